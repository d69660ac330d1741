#include "import/scanline_import.h"

#include <cstdint>
#include <utility>

#include "bridge/memory.h"
#include "bridge/services.h"
#include "picture/picture_editor.h"
#include "session/messages.h"
#include "session/scanline_read.h"
#include "session/tiff_data.h"

namespace tqv {
namespace {

// A host integer counts at most this many bytes; libtiff 4.5 reports larger rows truthfully.
constexpr int64_t kMaxScanlineBytes = INT32_MAX;

struct Session {
    REALobject self;
    TiffData* record;
};

void Store(REALpicture& slot, REALpicture picture) {
    if (REALpicture old = std::exchange(slot, picture)) REALUnlockObject(reinterpret_cast<REALobject>(old));
}

int64_t ScanlineSizeOf(TIFF* tiff) {
    const uint64_t size = TIFFScanlineSize64(tiff);
    return size > static_cast<uint64_t>(kMaxScanlineBytes) ? 0 : static_cast<int64_t>(size);
}

// Every fetch is made; the image is usable only when all of them answered. RowsPerStrip is read
// without a default: a directory that does not state it is refused.
bool Fetch(TIFF* tiff, bool withPhotometric, ScanlineImage& image) {
    bool ok = TIFFGetFieldDefaulted(tiff, TIFFTAG_IMAGEWIDTH, &image.width) == 1;
    ok = (TIFFGetFieldDefaulted(tiff, TIFFTAG_IMAGELENGTH, &image.length) == 1) && ok;
    ok = (TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &image.bitsPerSample) == 1) && ok;
    ok = (TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &image.samplesPerPixel) == 1) && ok;
    ok = (TIFFGetFieldDefaulted(tiff, TIFFTAG_FILLORDER, &image.fillOrder) == 1) && ok;
    if (withPhotometric)
        ok = (TIFFGetFieldDefaulted(tiff, TIFFTAG_PHOTOMETRIC, &image.photometric) == 1) && ok;
    image.scanlineSize = ScanlineSizeOf(tiff);
    ok = (TIFFGetField(tiff, TIFFTAG_ROWSPERSTRIP, &image.rowsPerStrip) == 1) && ok;
    return ok && image.scanlineSize >= 1;
}

// Host code run by a yield may close the session's TIFF, open another one, change its directory
// or its fields, or read it; the read goes on only while the handle is undisturbed and its row
// length the one it started with, so a scanline never outgrows the buffer.
bool YieldAndCheck(const Session& s, TIFF* tiff, int64_t scanlineSize) {
    return YieldDuringRows(s.self, s.record, tiff) && ScanlineSizeOf(tiff) == scanlineSize;
}

bool ValidRect(const SourceRect& rect, uint32_t sampling) {
    const int32_t minSide = static_cast<int32_t>(sampling);
    return rect.left >= 0 && rect.top >= 0 && rect.width >= minSide && rect.height >= minSide;
}

// The rectangle lies inside the image, and one scanline holds every pixel of a row (it does not
// for separate planes or subsampled data, whose scanlines are shorter than the samples a pixel).
bool Covers(const ScanlineImage& image, const SourceRect& rect) {
    if (image.width == 0 || image.length == 0) return false;
    if (uint64_t{static_cast<uint32_t>(rect.left)} + static_cast<uint32_t>(rect.width) > image.width)
        return false;
    if (uint64_t{static_cast<uint32_t>(rect.top)} + static_cast<uint32_t>(rect.height) > image.length)
        return false;
    const uint64_t rowBits = uint64_t{image.width} * image.samplesPerPixel * image.bitsPerSample;
    return (rowBits + 7) / 8 <= static_cast<uint64_t>(image.scanlineSize);
}

// Strip decoders cannot start in the middle of a strip: the rows above `top` in its strip are
// read first and discarded, so the decoder reaches `top` in order.
void PrimeStrip(TIFF* tiff, uint8_t* buffer, uint32_t top, uint32_t rowsPerStrip) {
    const uint32_t skipped = top % rowsPerStrip;
    for (uint32_t row = top - skipped; row < top; ++row) ReadScanline(tiff, buffer, row, 0);
}

int32_t OutputSide(int32_t side, uint32_t sampling) {
    // 64-bit: a side near 2^31 rounded up must not overflow.
    return static_cast<int32_t>((int64_t{side} + sampling - 1) / sampling);
}

struct RowPass {
    TIFF* tiff;
    int64_t scanlineSize;
    uint8_t* buffer;
    SourceRect rect;
    uint32_t sampling;
    RowDecoder decode;
    const void* context;
};

// Every row of the rectangle is read, in order; only sampled rows become picture rows, and only
// their reads count. A failed read adds no row but reading goes on to the end.
bool ReadRows(const Session& s, const RowPass& pass, PictureWriter& writer) {
    const RowArgs args{static_cast<uint32_t>(pass.rect.left), pass.sampling, writer.width, pass.context};
    bool allRead = true;
    for (int32_t i = 0; i < pass.rect.height; ++i) {
        const uint32_t row = static_cast<uint32_t>(pass.rect.top) + static_cast<uint32_t>(i);
        const bool read = ReadScanline(pass.tiff, pass.buffer, row, 0) == 1;
        if (static_cast<uint32_t>(i) % pass.sampling != 0) continue;
        if (!read) {
            allRead = false;
            continue;
        }
        pass.decode(writer.rowPointer, pass.buffer, args);
        writer.AddPixelRow();
        const bool more = i + 1 < pass.rect.height;
        if (!YieldAndCheck(s, pass.tiff, pass.scanlineSize) && more) return false;
    }
    return allRead;
}

bool DecodeInto(const Session& s, const ScanlineImage& image, const ScanlineImporter& importer,
                RowPass pass) {
    // Rows libtiff cannot read now fail alike: one Error, not one a row.
    if (!RowsReadable(pass.tiff, "TIFFReadScanline") || !StripsReadable(pass.tiff)) return false;
    PrimeStrip(pass.tiff, pass.buffer, static_cast<uint32_t>(pass.rect.top), image.rowsPerStrip);
    PictureWriter writer;
    // A picture the host cannot make (a side over 32,767) is a success without a picture.
    if (!writer.NewPictureWriter(OutputSide(pass.rect.width, pass.sampling),
                                 OutputSide(pass.rect.height, pass.sampling)))
        return true;
    pass.context = importer.context;
    pass.decode = importer.choose(image, writer.pixelType, &pass.context);
    if (pass.decode == nullptr || !ReadRows(s, pass, writer)) return false;
    Store(s.record->Pict, writer.RenderPictureWriter());
    return s.record->Pict != nullptr;
}

}  // namespace

bool ReadScanlineRect(REALobject object, SourceRect rect, const ScanlineImporter& importer) {
    TiffData* record = TiffDataOf(object);
    if (record == nullptr) return false;
    const Session s{object, record};
    current = object;
    Store(record->Pict, nullptr);
    Store(record->Mask, nullptr);
    if (!ValidRect(rect, importer.sampling) || record->tiff == nullptr) return false;
    TIFF* tiff = record->tiff;
    ScanlineImage image;
    if (!Fetch(tiff, importer.fetchPhotometric, image)) return false;
    if (importer.sampling == 1 && !YieldAndCheck(s, tiff, image.scanlineSize)) return false;
    // RowsPerStrip 0 is a damaged directory; it would divide by zero when priming.
    if (!Covers(image, rect) || !importer.accepts(image) || image.rowsPerStrip == 0) return false;
    const ClearMemoryPtr<uint8_t> buffer(static_cast<uint8_t*>(AllocateClearMemory(image.scanlineSize)));
    if (buffer == nullptr) return false;
    return DecodeInto(s, image, importer,
                      {tiff, image.scanlineSize, buffer.get(), rect, importer.sampling, nullptr, nullptr});
}

bool OpenImageSize(REALobject object, SourceRect& whole) {
    TiffData* record = TiffDataOf(object);
    if (record == nullptr || record->tiff == nullptr) return false;
    uint32_t width = 0, length = 0;
    if (TIFFGetFieldDefaulted(record->tiff, TIFFTAG_IMAGEWIDTH, &width) != 1) return false;
    if (TIFFGetFieldDefaulted(record->tiff, TIFFTAG_IMAGELENGTH, &length) != 1) return false;
    // A side beyond a host integer turns negative and is refused as such by the rectangle check.
    whole = {0, 0, static_cast<int32_t>(width), static_cast<int32_t>(length)};
    return true;
}

}  // namespace tqv
