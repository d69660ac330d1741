#include "import/bilevel.h"

#include "import/scanline_import.h"
#include "picture/picture_editor.h"

namespace tqv {
namespace {

// Grey level of a set and of a clear bit.
struct BitColours {
    uint8_t set, clear;
};
constexpr BitColours kMinIsWhite{0, 255};
constexpr BitColours kMinIsBlack{255, 0};

// The bit order of FillOrder is applied to the scanline as libtiff hands it out. libtiff has
// already put FillOrder 2 data into most-significant-bit-first order, so such an image reads with
// the eight pixels of every byte mirrored; programs were written against that reading.
template <typename Layout, int FillOrder>
void DecodeBits(uint8_t* out, const uint8_t* scanline, const RowArgs& a) {
    const BitColours colours = *static_cast<const BitColours*>(a.context);
    for (int32_t k = 0; k < a.count; ++k) {
        const uint32_t column = a.left + a.step * static_cast<uint32_t>(k);
        const unsigned shift = FillOrder == 1 ? 7u - (column & 7u) : column & 7u;
        const uint8_t v = ((scanline[column >> 3] >> shift) & 1u) != 0 ? colours.set : colours.clear;
        Layout::Put(out + k * Layout::kBytes, v, v, v);
    }
}

struct DecoderRow {
    int32_t pixelType;
    uint16_t fillOrder;
    RowDecoder decode;
};

constexpr DecoderRow kDecoders[] = {
    {kPixelTypeXRGB, 1, DecodeBits<PutXRGB, 1>}, {kPixelTypeXRGB, 2, DecodeBits<PutXRGB, 2>},
    {kPixelTypeRGB, 1, DecodeBits<PutRGB, 1>},   {kPixelTypeRGB, 2, DecodeBits<PutRGB, 2>},
    {kPixelTypeBGRX, 1, DecodeBits<PutBGRX, 1>}, {kPixelTypeBGRX, 2, DecodeBits<PutBGRX, 2>},
};

bool AcceptsBilevel(const ScanlineImage& image) {
    return image.bitsPerSample == 1 && image.samplesPerPixel == 1;
}

RowDecoder ChooseBilevel(const ScanlineImage& image, int32_t pixelType, const void** context) {
    if (image.photometric == PHOTOMETRIC_MINISWHITE) {
        *context = &kMinIsWhite;
    } else if (image.photometric == PHOTOMETRIC_MINISBLACK) {
        *context = &kMinIsBlack;
    } else {
        return nullptr;
    }
    for (const DecoderRow& row : kDecoders) {
        if (row.pixelType == pixelType && row.fillOrder == image.fillOrder) return row.decode;
    }
    return nullptr;
}

constexpr ScanlineImporter kFull{1, true, AcceptsBilevel, ChooseBilevel, nullptr};
constexpr ScanlineImporter kPreview{8, true, AcceptsBilevel, ChooseBilevel, nullptr};

}  // namespace

bool ReadBWrect(REALobject object, int32_t left, int32_t top, int32_t width, int32_t height) {
    return ReadScanlineRect(object, {left, top, width, height}, kFull);
}

bool ReadBWpreviewrect(REALobject object, int32_t left, int32_t top, int32_t width, int32_t height) {
    return ReadScanlineRect(object, {left, top, width, height}, kPreview);
}

bool ReadBW(REALobject object) {
    SourceRect whole{};
    return OpenImageSize(object, whole) && ReadScanlineRect(object, whole, kFull);
}

bool ReadBWpreview(REALobject object) {
    SourceRect whole{};
    return OpenImageSize(object, whole) && ReadScanlineRect(object, whole, kPreview);
}

}  // namespace tqv
