#include "export/bilevel.h"

#include <tiffio.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "bridge/memory.h"
#include "export/export_common.h"
#include "export/pixel_words.h"
#include "picture/picture_editor.h"
#include "platform/vector_paths.h"
#include "session/messages.h"
#include "session/tiff_data.h"

namespace tqv {
namespace {

// The sum of the three channels at which a pixel counts as white.
constexpr int kWhiteSum = 128;

// Pixels are judged a chunk at a time into one byte each (0 or 1), then packed eight to a byte.
constexpr int32_t kChunk = 64;

// 1 for a pixel that becomes a 1 bit. 4-byte layouts are read a word a pixel so that the loop
// vectorises.
template <int R, int G, int B, int Advance, bool WhiteIsOne>
void JudgePixels(uint8_t* ones, const uint8_t* in, int32_t count) {
    for (int32_t x = 0; x < count; ++x) {
        uint32_t sum;
        if constexpr (Advance == 4) {
            const uint32_t pixel = LoadWord(in + ptrdiff_t{x} * 4);
            sum = ByteOf<R>(pixel) + ByteOf<G>(pixel) + ByteOf<B>(pixel);
        } else {
            const uint8_t* p = in + ptrdiff_t{x} * Advance;
            sum = uint32_t{p[R]} + p[G] + p[B];
        }
        ones[x] = (sum >= kWhiteSum) == WhiteIsOne ? 1 : 0;
    }
}

// Eight 0-or-1 bytes into one byte, the first in bit 7. On little-endian machines one multiply
// moves byte k's bit to bit 63 - k with no two partial products meeting (no carries).
inline uint8_t PackEight(const uint8_t* ones) {
    if constexpr (kLittleEndian) {
        uint64_t bytes;
        std::memcpy(&bytes, ones, sizeof bytes);
        return static_cast<uint8_t>((bytes * 0x8040201008040201u) >> 56);
    } else {
        unsigned packed = 0;
        for (int k = 0; k < 8; ++k) packed |= unsigned{ones[k]} << (7 - k);
        return static_cast<uint8_t>(packed);
    }
}

// Up to one chunk of pixels or-ed into zeroed bytes, the first pixel in bit 7 of the first byte;
// the bits past the last pixel stay 0.
template <int R, int G, int B, int Advance, bool WhiteIsOne>
void PackChunk(uint8_t* out, const uint8_t* in, int32_t count) {
    alignas(16) uint8_t ones[kChunk];
    JudgePixels<R, G, B, Advance, WhiteIsOne>(ones, in, count);
    const int32_t bytes = (count + 7) / 8;
    std::fill(ones + count, ones + bytes * 8, uint8_t{0});
    for (int32_t i = 0; i < bytes; ++i) out[i] |= PackEight(ones + i * 8);
}

#if defined(__SSE2__)
// Byte b with its bits in reverse order.
constexpr std::array<uint8_t, 256> kReversed = [] {
    std::array<uint8_t, 256> table{};
    for (unsigned b = 0; b < 256; ++b) {
        unsigned reversed = 0;
        for (int k = 0; k < 8; ++k) reversed |= ((b >> k) & 1u) << (7 - k);
        table[b] = static_cast<uint8_t>(reversed);
    }
    return table;
}();

// 4-byte layouts sixteen pixels a step with SSE2, which every x86-64 processor has: the spare
// byte masked off, the other three summed in 16-bit then 32-bit lanes, compared, and one bit a
// pixel gathered by movemask (first pixel in bit 0, hence the reversed bytes). Answers how many
// pixels it packed: the whole steps of 16, so the rest starts on a byte.
template <int Spare, bool WhiteIsOne>
int32_t PackWordsSse2(uint8_t* out, const uint8_t* in, int32_t count) {
    const __m128i channels = _mm_set1_epi32(static_cast<int>(~(0xFFu << (8 * Spare))));
    const __m128i lowBytes = _mm_set1_epi16(0x00FF);
    const __m128i ones = _mm_set1_epi16(1);
    const __m128i darkest = _mm_set1_epi16(kWhiteSum - 1);
    int32_t x = 0;
    for (; x + 16 <= count; x += 16) {
        __m128i sums[4];
        for (int k = 0; k < 4; ++k) {
            const auto* p = reinterpret_cast<const __m128i*>(in + (ptrdiff_t{x} + 4 * k) * 4);
            const __m128i pixels = _mm_and_si128(_mm_loadu_si128(p), channels);
            const __m128i pairs = _mm_add_epi16(_mm_and_si128(pixels, lowBytes), _mm_srli_epi16(pixels, 8));
            sums[k] = _mm_madd_epi16(pairs, ones);
        }
        // The sums (at most 765) fit 16-bit lanes; the comparisons fit bytes.
        const __m128i first = _mm_cmpgt_epi16(_mm_packs_epi32(sums[0], sums[1]), darkest);
        const __m128i second = _mm_cmpgt_epi16(_mm_packs_epi32(sums[2], sums[3]), darkest);
        unsigned white = static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(first, second)));
        if (!WhiteIsOne) white = ~white;
        out[x / 8] |= kReversed[white & 0xFFu];
        out[x / 8 + 1] |= kReversed[(white >> 8) & 0xFFu];
    }
    return x;
}
#endif

// Whole chunks first, so that their loops have a fixed count; then the rest of the row. 4-byte
// layouts take SSE2 where there is SSE2 (their spare byte is the one of 0 to 3 that is no channel).
template <int R, int G, int B, int Advance, bool WhiteIsOne>
void PackRow(uint8_t* out, const uint8_t* in, int32_t count) {
    int32_t x = 0;
#if defined(__SSE2__)
    if constexpr (Advance == 4)
        if (!PortablePathsOnly()) x = PackWordsSse2<6 - R - G - B, WhiteIsOne>(out, in, count);
#endif
    for (; count - x >= kChunk; x += kChunk)
        PackChunk<R, G, B, Advance, WhiteIsOne>(out + x / 8, in + ptrdiff_t{x} * Advance, kChunk);
    if (x < count)
        PackChunk<R, G, B, Advance, WhiteIsOne>(out + x / 8, in + ptrdiff_t{x} * Advance, count - x);
}

// A layout this system does not know reads as black.
template <bool WhiteIsOne>
void PackUnknownRow(uint8_t* out, const uint8_t*, int32_t count) {
    for (int32_t x = 0; x < count; ++x)
        out[x >> 3] |= static_cast<uint8_t>((WhiteIsOne ? 0u : 1u) << (7 - (x & 7)));
}

struct PackerRow {
    int32_t pixelType;
    PixelRowConverter whiteIsOne, blackIsOne;
};

constexpr PackerRow kPackers[] = {
    {kPixelTypeXRGB, PackRow<1, 2, 3, 4, true>, PackRow<1, 2, 3, 4, false>},
    {kPixelTypeRGB, PackRow<0, 1, 2, 3, true>, PackRow<0, 1, 2, 3, false>},
    {kPixelTypeBGRX, PackRow<2, 1, 0, 4, true>, PackRow<2, 1, 0, 4, false>},
};
constexpr PackerRow kUnknownLayout{0, PackUnknownRow<true>, PackUnknownRow<false>};

// Nil for a photometric or fill order that has no bit sense: nothing is written then.
PixelRowConverter ChoosePacker(int32_t pixelType, uint16_t fillOrder, uint16_t photometric) {
    if (fillOrder != FILLORDER_MSB2LSB && fillOrder != FILLORDER_LSB2MSB) return nullptr;
    if (photometric != PHOTOMETRIC_MINISWHITE && photometric != PHOTOMETRIC_MINISBLACK) return nullptr;
    const PackerRow* packer = &kUnknownLayout;
    for (const PackerRow& row : kPackers)
        if (row.pixelType == pixelType) packer = &row;
    return photometric == PHOTOMETRIC_MINISBLACK ? packer->whiteIsOne : packer->blackIsOne;
}

bool Tag(TIFF* tiff, uint32_t width, uint32_t height) {
    const TagStep steps[] = {
        {TIFFTAG_IMAGELENGTH, TagRule::IfUnset, TagInt(height)},
        {TIFFTAG_IMAGEWIDTH, TagRule::IfUnsetOrZero, TagInt(width)},
        {TIFFTAG_ROWSPERSTRIP, TagRule::IfUnset, TagInt(1)},
        {TIFFTAG_PLANARCONFIG, TagRule::IfUnset, TagInt(PLANARCONFIG_CONTIG)},
        {TIFFTAG_BITSPERSAMPLE, TagRule::IfUnset, TagInt(1)},
        {TIFFTAG_SAMPLESPERPIXEL, TagRule::IfUnset, TagInt(1)},
        {TIFFTAG_PHOTOMETRIC, TagRule::IfUnset, TagInt(PHOTOMETRIC_MINISBLACK)},
        {TIFFTAG_FILLORDER, TagRule::IfUnset, TagInt(FILLORDER_MSB2LSB)},
        // libtiff keeps one "set" flag for both resolutions: once X is set, an unset Y reads as 0.
        {TIFFTAG_XRESOLUTION, TagRule::IfUnsetOrZero, TagReal(72.0)},
        {TIFFTAG_YRESOLUTION, TagRule::IfUnsetOrZero, TagReal(72.0)},
        {TIFFTAG_ORIENTATION, TagRule::IfUnset, TagInt(ORIENTATION_TOPLEFT)},
        {TIFFTAG_RESOLUTIONUNIT, TagRule::IfUnset, TagInt(RESUNIT_INCH)},
        {TIFFTAG_COMPRESSION, TagRule::IfUnset, TagInt(COMPRESSION_NONE)},
    };
    const bool cleared = ClearOtherSampleTags(tiff, false);
    return ApplyTagSteps(tiff, steps) && cleared;
}

}  // namespace

bool WriteBW(REALobject object) {
    PictureReader reader;
    TIFF* tiff = BeginExport(object, reader, KeptLayout{true, 1});
    if (tiff == nullptr) return false;
    TiffData* record = TiffDataOf(object);
    ReadDirectoryUndo undo(tiff);
    const bool tagged = Tag(tiff, static_cast<uint32_t>(reader.width), static_cast<uint32_t>(reader.height));
    // The rows are packed from the picture's width, but libtiff takes a whole scanline of the
    // image's tags from the buffer: a caller's wider image or deeper samples are padded with zeros.
    const int64_t scanline = ScanlineBytes64(tiff);
    const int64_t bytes = std::max(int64_t{reader.width} + 10, scanline);
    const ClearMemoryPtr<uint8_t> buffer(static_cast<uint8_t*>(AllocateClearMemory(bytes)));
    if (scanline < 1 || !tagged || buffer == nullptr) return undo.Finish(false);
    const PixelRowConverter pack = ChoosePacker(reader.pixelType, TagOr(tiff, TIFFTAG_FILLORDER, 1),
                                                TagOr(tiff, TIFFTAG_PHOTOMETRIC, 1));
    if (pack == nullptr) return true;
    return undo.Finish(WriteRows({object, record, tiff, buffer.get(), bytes, pack, true, undo}, reader));
}

}  // namespace tqv
