#include "import/rgba_begin.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "session/tiff_data.h"

namespace tqv {
namespace {

// The packers below make exactly libtiff's pixels (its lookup tables, its alpha rule); only the
// step between rows differs. Skews are applied between rows, never after the last, so no pointer
// is moved outside the raster or the strip buffer.
template <typename Pixel>
void PackRows(TIFFRGBAImage* image, uint32_t* out, uint32_t w, uint32_t h, int32_t fromSkew, int32_t toSkew,
              const unsigned char* in, ptrdiff_t pixelBytes, Pixel pixel) {
    const ptrdiff_t skipBytes = ptrdiff_t{fromSkew} * pixelBytes;
    for (uint32_t row = 0; row < h; ++row) {
        if (row > 0) out += toSkew, in += skipBytes;
        for (uint32_t x = 0; x < w; ++x, in += pixelBytes) *out++ = pixel(image, in);
    }
}

void PutGrey8(TIFFRGBAImage* image, uint32_t* out, uint32_t, uint32_t, uint32_t w, uint32_t h,
              int32_t fromSkew, int32_t toSkew, unsigned char* in) {
    PackRows(image, out, w, h, fromSkew, toSkew, in, image->samplesperpixel,
             [](TIFFRGBAImage* im, const unsigned char* p) { return im->BWmap[*p][0]; });
}

// Grey with alpha as the second of exactly two samples: the alpha byte replaces the map's.
void PutGreyAlpha8(TIFFRGBAImage* image, uint32_t* out, uint32_t, uint32_t, uint32_t w, uint32_t h,
                   int32_t fromSkew, int32_t toSkew, unsigned char* in) {
    PackRows(image, out, w, h, fromSkew, toSkew, in, image->samplesperpixel,
             [](TIFFRGBAImage* im, const unsigned char* p) {
                 return im->BWmap[p[0]][0] & (uint32_t{p[1]} << 24 | 0x00FFFFFFu);
             });
}

// The high byte of each 16-bit sample indexes the map, as in libtiff.
void PutGrey16(TIFFRGBAImage* image, uint32_t* out, uint32_t, uint32_t, uint32_t w, uint32_t h,
               int32_t fromSkew, int32_t toSkew, unsigned char* in) {
    PackRows(image, out, w, h, fromSkew, toSkew, in, ptrdiff_t{2} * image->samplesperpixel,
             [](TIFFRGBAImage* im, const unsigned char* p) {
                 uint16_t sample;
                 std::memcpy(&sample, p, 2);
                 return im->BWmap[sample >> 8][0];
             });
}

void PutPalette8(TIFFRGBAImage* image, uint32_t* out, uint32_t, uint32_t, uint32_t w, uint32_t h,
                 int32_t fromSkew, int32_t toSkew, unsigned char* in) {
    PackRows(image, out, w, h, fromSkew, toSkew, in, image->samplesperpixel,
             [](TIFFRGBAImage* im, const unsigned char* p) { return im->PALmap[*p][0]; });
}

// The packer to use instead of libtiff's choice, or null where libtiff's is right (one-byte
// pixels, bit-packed pixels and every other photometric).
tileContigRoutine CorrectedPacker(const TIFFRGBAImage& image) {
    if (!image.isContig || image.put.contig == nullptr) return nullptr;
    switch (image.photometric) {
        case PHOTOMETRIC_MINISBLACK:
        case PHOTOMETRIC_MINISWHITE:
            if (image.bitspersample == 16) return PutGrey16;
            if (image.bitspersample != 8 || image.samplesperpixel < 2) return nullptr;
            return image.alpha != 0 && image.samplesperpixel == 2 ? PutGreyAlpha8 : PutGrey8;
        case PHOTOMETRIC_PALETTE:
            return image.bitspersample == 8 && image.samplesperpixel > 1 ? PutPalette8 : nullptr;
        default:
            return nullptr;
    }
}

}  // namespace

bool BeginRgbaImage(TIFFRGBAImage* image, TIFF* tiff, char message[1024]) {
    if (TIFFRGBAImageBegin(image, tiff, 0, message) == 0) return false;
    // Begin sets the codec's data format (8-bit LogLuv or PixarLog, RGB from JPEG's YCbCr), with
    // which libtiff sizes rows anew.
    NoteLayoutSetUp(tiff);
    if (const tileContigRoutine packer = CorrectedPacker(*image)) image->put.contig = packer;
    return true;
}

}  // namespace tqv
