#include "import/lut.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "bridge/memory.h"
#include "bridge/services.h"
#include "import/scanline_import.h"
#include "picture/picture_editor.h"
#include "session/messages.h"
#include "session/tiff_data.h"

namespace tqv {
namespace {

constexpr int32_t kTableEntries = 65536;

// The host's colours split into one byte table per channel, so the pixel loop makes no host
// calls and no shifts; for one sample and the four-byte layouts, each entry also as the whole
// pixel (bytes in memory order), one load and one store a pixel.
struct ColourTables {
    uint8_t red[kTableEntries];
    uint8_t green[kTableEntries];
    uint8_t blue[kTableEntries];
    uint32_t xrgb[kTableEntries];  // 255, R, G, B
    uint32_t bgrx[kTableEntries];  // B, G, R, 0
};

// Zero-filled first: entries the host array does not reach stay black.
ClearMemoryPtr<ColourTables> BuildTables(REALarray table) {
    ClearMemoryPtr<ColourTables> tables(
        static_cast<ColourTables*>(AllocateClearMemory(sizeof(ColourTables))));
    if (tables == nullptr || table == nullptr) return tables;
    const int32_t last = std::min(REALGetArrayUBound(table), kTableEntries - 1);
    for (int32_t i = 0; i <= last; ++i) {
        const uint32_t colour = static_cast<uint32_t>(REALGetArrayInt(table, i));
        tables->red[i] = static_cast<uint8_t>(colour >> 16);
        tables->green[i] = static_cast<uint8_t>(colour >> 8);
        tables->blue[i] = static_cast<uint8_t>(colour);
    }
    for (int32_t i = 0; i < kTableEntries; ++i) {
        const uint32_t r = tables->red[i], g = tables->green[i], b = tables->blue[i];
        tables->xrgb[i] = 0xFFu | r << 8 | g << 16 | b << 24;
        tables->bgrx[i] = b | g << 8 | r << 16;
    }
    return tables;
}

// ---- Samples as table indices (in the machine's byte order, as libtiff hands them out) -------

struct Sample8 {
    static constexpr int kBytes = 1;
    static uint32_t Index(const uint8_t* p) { return *p; }
};
struct Sample16 {
    static constexpr int kBytes = 2;
    static uint32_t Index(const uint8_t* p) {
        uint16_t v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
};
// The signed value divided by 65,536 (toward zero): the upper 16 bits of values below
// 0x80000000. Values at or above it would give negative indices; they use entry 0.
struct Sample32 {
    static constexpr int kBytes = 4;
    static uint32_t Index(const uint8_t* p) {
        int32_t v;
        std::memcpy(&v, p, sizeof v);
        return static_cast<uint32_t>(std::max(v / 65536, 0));
    }
};

template <typename Layout>
const uint32_t* WordsFor(const ColourTables& t) {
    if constexpr (std::is_same_v<Layout, PutXRGB>) return t.xrgb;
    if constexpr (std::is_same_v<Layout, PutBGRX>) return t.bgrx;
    return nullptr;
}

template <typename Layout, typename Sample, int Samples>
void DecodeThroughTables(uint8_t* out, const uint8_t* scanline, const RowArgs& a) {
    const auto& t = *static_cast<const ColourTables*>(a.context);
    if constexpr (Samples == 1 && Layout::kBytes == 4) {
        static_assert(std::endian::native == std::endian::little, "pixel words assume a little-endian host");
        const uint32_t* words = WordsFor<Layout>(t);
        const uint8_t* in = scanline + size_t{a.left} * Sample::kBytes;
        const int32_t count = a.count;
        // Two loads and a store a pixel: unrolled, the loop's own count and branch do not double it.
#pragma GCC unroll 8
        for (int32_t x = 0; x < count; ++x) {
            const uint32_t word = words[Sample::Index(in + static_cast<size_t>(x) * Sample::kBytes)];
            std::memcpy(out + static_cast<size_t>(x) * 4, &word, 4);
        }
        return;
    }
    const uint8_t* in = scanline + size_t{a.left} * Samples * Sample::kBytes;
    const int32_t count = a.count;
    for (int32_t x = 0; x < count; ++x, in += Samples * Sample::kBytes) {
        const uint32_t r = Sample::Index(in);
        const uint32_t g = Samples == 1 ? r : Sample::Index(in + Sample::kBytes);
        const uint32_t b = Samples == 1 ? r : Sample::Index(in + 2 * Sample::kBytes);
        Layout::Put(out + x * Layout::kBytes, t.red[r], t.green[g], t.blue[b]);
    }
}

struct DecoderRow {
    int32_t pixelType;
    uint16_t samples;
    uint16_t bits;
    RowDecoder decode;
};

template <typename Layout, int32_t PixelType>
constexpr DecoderRow kRows[] = {
    {PixelType, 1, 8, DecodeThroughTables<Layout, Sample8, 1>},
    {PixelType, 1, 16, DecodeThroughTables<Layout, Sample16, 1>},
    {PixelType, 1, 32, DecodeThroughTables<Layout, Sample32, 1>},
    {PixelType, 3, 8, DecodeThroughTables<Layout, Sample8, 3>},
    {PixelType, 3, 16, DecodeThroughTables<Layout, Sample16, 3>},
    {PixelType, 3, 32, DecodeThroughTables<Layout, Sample32, 3>},
};

const DecoderRow* const kLayouts[] = {kRows<PutXRGB, kPixelTypeXRGB>, kRows<PutRGB, kPixelTypeRGB>,
                                      kRows<PutBGRX, kPixelTypeBGRX>};
constexpr size_t kRowsPerLayout = std::size(kRows<PutXRGB, kPixelTypeXRGB>);

RowDecoder Find(int32_t pixelType, uint16_t samples, uint16_t bits) {
    for (const DecoderRow* rows : kLayouts) {
        for (size_t i = 0; i < kRowsPerLayout; ++i) {
            const DecoderRow& row = rows[i];
            if (row.pixelType == pixelType && row.samples == samples && row.bits == bits) return row.decode;
        }
    }
    return nullptr;
}

// 1- to 4-bit data, two or four samples and every other depth are refused.
bool AcceptsTables(const ScanlineImage& image) {
    return Find(kPixelTypeXRGB, image.samplesPerPixel, image.bitsPerSample) != nullptr;
}

RowDecoder ChooseTables(const ScanlineImage& image, int32_t pixelType, const void**) {
    return Find(pixelType, image.samplesPerPixel, image.bitsPerSample);
}

}  // namespace

bool Read16rect(REALobject object, REALarray table, int32_t left, int32_t top, int32_t width,
                int32_t height) {
    if (TiffDataOf(object) == nullptr) return false;
    current = object;
    const ClearMemoryPtr<ColourTables> tables = BuildTables(table);
    if (tables == nullptr) return false;
    const ScanlineImporter importer{1, false, AcceptsTables, ChooseTables, tables.get()};
    return ReadScanlineRect(object, {left, top, width, height}, importer);
}

bool Read16(REALobject object, REALarray table) {
    SourceRect whole{};
    if (!OpenImageSize(object, whole)) return false;
    return Read16rect(object, table, whole.left, whole.top, whole.width, whole.height);
}

}  // namespace tqv
