#include "import/bilevel.h"

#include <cstddef>
#include <cstring>

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

// The eight output pixels of every byte value, in the writer's layout: a whole byte of the
// scanline becomes one copy, with no test per pixel.
template <typename Layout>
struct ByteExpansion {
    uint8_t pixels[256][8 * Layout::kBytes];
};

// The bit order of FillOrder is applied to the scanline as libtiff hands it out. libtiff has
// already put FillOrder 2 data into most-significant-bit-first order, so such an image reads with
// the eight pixels of every byte mirrored; programs were written against that reading.
template <typename Layout, int FillOrder>
ByteExpansion<Layout> MakeExpansion(BitColours colours) {
    ByteExpansion<Layout> table{};
    for (uint32_t value = 0; value < 256; ++value) {
        for (uint32_t k = 0; k < 8; ++k) {
            const uint32_t shift = FillOrder == 1 ? 7u - k : k;
            const uint8_t v = ((value >> shift) & 1u) != 0 ? colours.set : colours.clear;
            Layout::Put(table.pixels[value] + k * Layout::kBytes, v, v, v);
        }
    }
    return table;
}

// Built on first use and kept: 8 KiB at most for each layout, bit order and photometric.
template <typename Layout, int FillOrder, bool MinIsWhite>
const void* Expansion() {
    static const ByteExpansion<Layout> table =
        MakeExpansion<Layout, FillOrder>(MinIsWhite ? kMinIsWhite : kMinIsBlack);
    return &table;
}

// Whole bytes through the expansion table; the pixels before the first byte boundary and after
// the last one, and every sampled pixel of a preview, one by one (the first pixel of byte 0x00 is
// a clear one, of byte 0xFF a set one).
template <typename Layout, int FillOrder>
void DecodeBits(uint8_t* out, const uint8_t* scanline, const RowArgs& a) {
    const auto& table = *static_cast<const ByteExpansion<Layout>*>(a.context);
    constexpr size_t kPixel = Layout::kBytes;
    // Locals: the compiler cannot tell that the output does not overlap `a`.
    const int32_t count = a.count;
    const uint32_t left = a.left;
    const uint32_t step = a.step;
    const uint8_t* const pixelOf[2] = {table.pixels[0x00], table.pixels[0xFF]};
    const auto single = [&](int32_t k) {
        const uint32_t column = left + step * static_cast<uint32_t>(k);
        const unsigned shift = FillOrder == 1 ? 7u - (column & 7u) : column & 7u;
        std::memcpy(out + static_cast<size_t>(k) * kPixel, pixelOf[(scanline[column >> 3] >> shift) & 1u],
                    kPixel);
    };
    int32_t k = 0;
    if (step == 8) {
        // A preview takes the same bit of consecutive bytes.
        const uint8_t* in = scanline + (left >> 3);
        const unsigned shift = FillOrder == 1 ? 7u - (left & 7u) : left & 7u;
        if constexpr (kPixel == 4) {
            // As arithmetic on whole pixels, which the compiler vectorises.
            uint32_t clearWord, setWord;
            std::memcpy(&clearWord, pixelOf[0], 4);
            std::memcpy(&setWord, pixelOf[1], 4);
            const uint32_t differ = clearWord ^ setWord;
            for (; k < count; ++k) {
                const uint32_t word = clearWord ^ (differ & (0u - ((in[k] >> shift) & 1u)));
                std::memcpy(out + static_cast<size_t>(k) * 4, &word, 4);
            }
        } else {
            for (; k < count; ++k)
                std::memcpy(out + static_cast<size_t>(k) * kPixel, pixelOf[(in[k] >> shift) & 1u], kPixel);
        }
        return;
    }
    if (step == 1) {
        for (; k < count && ((left + static_cast<uint32_t>(k)) & 7u) != 0; ++k) single(k);
        const uint8_t* in = scanline + ((left + static_cast<uint32_t>(k)) >> 3);
        for (; count - k >= 8; k += 8, ++in)
            std::memcpy(out + static_cast<size_t>(k) * kPixel, table.pixels[*in], 8 * kPixel);
    }
    for (; k < count; ++k) single(k);
}

struct DecoderRow {
    int32_t pixelType;
    uint16_t fillOrder;
    RowDecoder decode;
    const void* (*minIsWhite)();
    const void* (*minIsBlack)();
};

template <typename Layout, int32_t PixelType, int FillOrder>
constexpr DecoderRow Row() {
    return {PixelType, FillOrder, DecodeBits<Layout, FillOrder>, Expansion<Layout, FillOrder, true>,
            Expansion<Layout, FillOrder, false>};
}

constexpr DecoderRow kDecoders[] = {
    Row<PutXRGB, kPixelTypeXRGB, 1>(), Row<PutXRGB, kPixelTypeXRGB, 2>(), Row<PutRGB, kPixelTypeRGB, 1>(),
    Row<PutRGB, kPixelTypeRGB, 2>(),   Row<PutBGRX, kPixelTypeBGRX, 1>(), Row<PutBGRX, kPixelTypeBGRX, 2>(),
};

bool AcceptsBilevel(const ScanlineImage& image) {
    return image.bitsPerSample == 1 && image.samplesPerPixel == 1;
}

RowDecoder ChooseBilevel(const ScanlineImage& image, int32_t pixelType, const void** context) {
    if (image.photometric != PHOTOMETRIC_MINISWHITE && image.photometric != PHOTOMETRIC_MINISBLACK)
        return nullptr;
    for (const DecoderRow& row : kDecoders) {
        if (row.pixelType == pixelType && row.fillOrder == image.fillOrder) {
            *context = image.photometric == PHOTOMETRIC_MINISWHITE ? row.minIsWhite() : row.minIsBlack();
            return row.decode;
        }
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
