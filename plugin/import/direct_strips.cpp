#include "import/direct_strips.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "bridge/handles.h"
#include "bridge/services.h"
#include "import/rgba_begin.h"
#include "import/rgba_layouts.h"
#include "picture/picture_editor.h"
#include "platform/vector_paths.h"

namespace tqv {
namespace {

// The raster path refuses images of more pixels than this; the direct path declines them so
// that the answer stays the raster path's.
constexpr uint64_t kMaxPixels = uint64_t{1} << 28;
// One strip or tile buffer at most; libtiff's own per-allocation bound is the same.
constexpr uint64_t kMaxChunkBytes = uint64_t{256} << 20;

// ---- Sources: the file's samples as libtiff's RGBA words ---------------------------------------

// Copies of the tables libtiff's RGBA setup built for this image, so every value is libtiff's.
struct Tables {
    uint32_t lut[256];      // grey or palette sample -> RGBA word
    uint8_t uaToAa[65536];  // (alpha << 8 | value) -> premultiplied value
};

uint32_t Pack(uint32_t r, uint32_t g, uint32_t b, uint32_t a) {
    return r | (g << 8) | (b << 16) | (a << 24);
}

// Opaque sources (no alpha) give a constant mask; their colour is taken from a 32-bit load of
// the pixel's bytes (R in the low byte; the fourth byte is the next pixel's or padding and is
// shifted out), which the buffers' slack keeps inside the allocation.
struct SourceRgb {
    static constexpr bool kOpaque = true;
    static constexpr int kSamples = 3;
    static uint32_t Word(const uint8_t* p, const Tables&) { return Pack(p[0], p[1], p[2], 255); }
};
struct SourceRgbx {  // a fourth sample that is not alpha
    static constexpr bool kOpaque = true;
    static constexpr int kSamples = 4;
    static uint32_t Word(const uint8_t* p, const Tables&) { return Pack(p[0], p[1], p[2], 255); }
};
struct SourceRgba {  // associated alpha: taken as it is
    static constexpr bool kOpaque = false;
    static constexpr int kSamples = 4;
    static uint32_t Word(const uint8_t* p, const Tables&) { return Pack(p[0], p[1], p[2], p[3]); }
};
struct SourceRgbua {  // unassociated alpha: premultiplied, rounded as libtiff rounds
    static constexpr bool kOpaque = false;
    static constexpr int kSamples = 4;
    static uint32_t Word(const uint8_t* p, const Tables& t) {
        const uint8_t* m = t.uaToAa + (size_t{p[3]} << 8);
        return Pack(m[p[0]], m[p[1]], m[p[2]], p[3]);
    }
};
struct SourceLut {  // grey or palette, one sample
    static constexpr bool kOpaque = false;
    static constexpr int kSamples = 1;
    static uint32_t Word(const uint8_t* p, const Tables& t) { return t.lut[p[0]]; }
};

enum class Source { Rgb, Rgbx, Rgba, Rgbua, Lut };

// ---- Row converters: one per source and picture layout, writing both pictures in one pass ----

using PairConverter = void (*)(uint8_t* pict, uint8_t* mask, const uint8_t* in, uint32_t count,
                               const Tables&);

// Colour words straight from the loaded bytes R, G, B, x of an opaque pixel.
inline uint32_t OpaqueWord(ColourXRGB, uint32_t loaded) {
    return (loaded << 8) | 0xFFu;  // 255, R, G, B
}
inline uint32_t OpaqueWord(ColourBGRX, uint32_t loaded) {
    return __builtin_bswap32(loaded) >> 8;  // B, G, R, 0
}

template <typename S, typename Colour, typename Mask>
void ConvertOpaque(uint8_t* pict, uint8_t* mask, const uint8_t* in, uint32_t count) {
    if constexpr (WordLayout<Colour>) {
        const uint32_t maskWord = Mask::Word(0xFF000000u);
        for (uint32_t x = 0; x < count; ++x) {
            uint32_t loaded = 0;
            std::memcpy(&loaded, in + size_t{x} * S::kSamples, 4);
            const uint32_t c = OpaqueWord(Colour{}, loaded);
            std::memcpy(pict + size_t{x} * 4, &c, 4);
            std::memcpy(mask + size_t{x} * 4, &maskWord, 4);
        }
    } else {
        // Three bytes R, G, B a pixel and a mask of zeros (255 - 255).
        for (uint32_t x = 0; x < count; ++x)
            std::memcpy(pict + size_t{x} * 3, in + size_t{x} * S::kSamples, 3);
        std::memset(mask, 0, size_t{count} * 3);
    }
}

template <typename S, typename Colour, typename Mask>
void ConvertPair(uint8_t* pict, uint8_t* mask, const uint8_t* in, uint32_t count, const Tables& t) {
    if constexpr (S::kOpaque) {
        ConvertOpaque<S, Colour, Mask>(pict, mask, in, count);
        return;
    }
    for (uint32_t x = 0; x < count; ++x) {
        const uint32_t word = S::Word(in + size_t{x} * S::kSamples, t);
        if constexpr (WordLayout<Colour>) {
            const uint32_t c = Colour::Word(word);
            const uint32_t m = Mask::Word(word);
            std::memcpy(pict + size_t{x} * 4, &c, 4);
            std::memcpy(mask + size_t{x} * 4, &m, 4);
        } else {
            const Rgba p = Unpack(word);
            Colour::Put(pict + size_t{x} * 3, p);
            Mask::Put(mask + size_t{x} * 3, p);
        }
    }
}

template <typename S>
PairConverter ForLayout(int32_t pixelType) {
    switch (pixelType) {
        case kPixelTypeXRGB:
            return ConvertPair<S, ColourXRGB, MaskXRGB>;
        case kPixelTypeBGRX:
            return ConvertPair<S, ColourBGRX, MaskBGRX>;
        case kPixelTypeRGB:
            return ConvertPair<S, ColourRGB, MaskRGB>;
        default:
            return nullptr;
    }
}

#if defined(__x86_64__)
// Byte shuffles for four pixels a step where the processor has SSSE3 (every x86-64 processor of
// the last fifteen years): a scalar loop spends two 4-byte stores a pixel, more than the memory
// it writes costs. Index -1 gives a zero byte; the constants below then set what must be 255.

// The colour word's bytes from pixel k's samples s0, s1, s2 at k * Samples.
template <int Samples, typename Colour>
[[gnu::target("ssse3")]] __m128i ColourShuffle() {
    constexpr int n = Samples;
    if constexpr (std::is_same_v<Colour, ColourXRGB>)  // 255, R, G, B: 0 here, then or'ed with 255
        return _mm_setr_epi8(-1, 0, 1, 2, -1, n, n + 1, n + 2, -1, 2 * n, 2 * n + 1, 2 * n + 2, -1, 3 * n,
                             3 * n + 1, 3 * n + 2);
    else  // B, G, R, 0
        return _mm_setr_epi8(2, 1, 0, -1, n + 2, n + 1, n, -1, 2 * n + 2, 2 * n + 1, 2 * n, -1, 3 * n + 2,
                             3 * n + 1, 3 * n, -1);
}

// The mask word's V bytes from the alpha sample (fourth): 255 - A is A with every bit flipped.
template <typename Colour>
[[gnu::target("ssse3")]] __m128i AlphaShuffle() {
    if constexpr (std::is_same_v<Colour, ColourXRGB>)  // 255, V, V, V
        return _mm_setr_epi8(-1, 3, 3, 3, -1, 7, 7, 7, -1, 11, 11, 11, -1, 15, 15, 15);
    else  // V, V, V, 0
        return _mm_setr_epi8(3, 3, 3, -1, 7, 7, 7, -1, 11, 11, 11, -1, 15, 15, 15, -1);
}

// Unassociated alpha: each colour sample times alpha, (v * a + 127) / 255, in 16-bit lanes
// ((x + 1 + (x >> 8)) >> 8 is x / 255 for every x this can be). The alpha bytes come out as
// a * a / 255; the colour shuffle leaves them out.
[[gnu::target("ssse3")]] inline __m128i Premultiplied(__m128i samples) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i bias = _mm_set1_epi16(127);
    const __m128i one = _mm_set1_epi16(1);
    const auto half = [&](__m128i v) {
        const __m128i alpha = _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, 0xFF), 0xFF);
        const __m128i x = _mm_add_epi16(_mm_mullo_epi16(v, alpha), bias);
        return _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(x, one), _mm_srli_epi16(x, 8)), 8);
    };
    return _mm_packus_epi16(half(_mm_unpacklo_epi8(samples, zero)), half(_mm_unpackhi_epi8(samples, zero)));
}

template <typename S, typename Colour, typename Mask>
[[gnu::target("ssse3")]] void ConvertShuffled(uint8_t* pict, uint8_t* mask, const uint8_t* in, uint32_t count,
                                              const Tables& t) {
    constexpr bool kXrgb = std::is_same_v<Colour, ColourXRGB>;
    const __m128i colourBytes = ColourShuffle<S::kSamples, Colour>();
    const __m128i colourSet = _mm_set1_epi32(kXrgb ? 0xFF : 0);
    const __m128i alphaBytes = AlphaShuffle<Colour>();
    const __m128i alphaFlip = _mm_set1_epi32(kXrgb ? -1 : 0x00FFFFFF);
    const __m128i opaqueMask = _mm_set1_epi32(static_cast<int>(Mask::Word(0xFF000000u)));
    // A 16-byte load reads 12 bytes of three-sample pixels: it runs while 16 bytes remain.
    constexpr uint32_t kReach = S::kSamples == 3 ? 6 : 4;
    uint32_t x = 0;
    for (; x + kReach <= count; x += 4, in += 4 * S::kSamples) {
        const __m128i samples = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
        __m128i colourSamples = samples;
        if constexpr (std::is_same_v<S, SourceRgbua>) colourSamples = Premultiplied(samples);
        const __m128i colour = _mm_or_si128(_mm_shuffle_epi8(colourSamples, colourBytes), colourSet);
        __m128i maskWords = opaqueMask;
        if constexpr (!S::kOpaque) maskWords = _mm_xor_si128(_mm_shuffle_epi8(samples, alphaBytes), alphaFlip);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(pict + size_t{x} * 4), colour);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(mask + size_t{x} * 4), maskWords);
    }
    ConvertPair<S, Colour, Mask>(pict + size_t{x} * 4, mask + size_t{x} * 4, in, count - x, t);
}

// The shuffled converter for the picture layout, where the processor has SSSE3; nil otherwise.
template <typename S>
PairConverter Shuffled(int32_t pixelType) {
    if (!UseSsse3()) return nullptr;
    switch (pixelType) {
        case kPixelTypeXRGB:
            return ConvertShuffled<S, ColourXRGB, MaskXRGB>;
        case kPixelTypeBGRX:
            return ConvertShuffled<S, ColourBGRX, MaskBGRX>;
        default:
            return nullptr;
    }
}
#else
template <typename S>
PairConverter Shuffled(int32_t) {
    return nullptr;
}
#endif

template <typename S>
PairConverter Fastest(int32_t pixelType) {
    const PairConverter shuffled = Shuffled<S>(pixelType);
    return shuffled != nullptr ? shuffled : ForLayout<S>(pixelType);
}

// `premultiplyByFormula`: libtiff's premultiplication table for this image is (v * a + 127) / 255,
// which the shuffled converter computes instead of looking it up.
PairConverter PickConverter(Source source, int32_t pixelType, bool premultiplyByFormula) {
    switch (source) {
        case Source::Rgb:
            return Fastest<SourceRgb>(pixelType);
        case Source::Rgbx:
            return Fastest<SourceRgbx>(pixelType);
        case Source::Rgba:
            return Fastest<SourceRgba>(pixelType);
        case Source::Rgbua:
            return premultiplyByFormula ? Fastest<SourceRgbua>(pixelType) : ForLayout<SourceRgbua>(pixelType);
        case Source::Lut:
            return ForLayout<SourceLut>(pixelType);
    }
    return nullptr;
}

// ---- What the direct path takes -------------------------------------------------------------

struct Layout {
    Source source = Source::Rgb;
    bool premultiplyByFormula = false;
    uint32_t samples = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    std::unique_ptr<Tables> tables;
};

uint16_t Defaulted16(TIFF* tiff, uint32_t tag) {
    uint16_t value = 0;
    return TIFFGetFieldDefaulted(tiff, tag, &value) ? value : uint16_t{0};
}

// Cheap checks on the tags before libtiff's RGBA setup runs (it has side effects on some
// codecs): 8-bit unsigned contiguous samples, top-left, a photometric the path knows.
bool TagsFit(TIFF* tiff) {
    uint16_t photometric = 0;
    if (!TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric)) return false;
    const uint16_t samples = Defaulted16(tiff, TIFFTAG_SAMPLESPERPIXEL);
    const uint16_t compression = Defaulted16(tiff, TIFFTAG_COMPRESSION);
    if (Defaulted16(tiff, TIFFTAG_BITSPERSAMPLE) != 8 ||
        Defaulted16(tiff, TIFFTAG_SAMPLEFORMAT) != SAMPLEFORMAT_UINT ||
        Defaulted16(tiff, TIFFTAG_ORIENTATION) != ORIENTATION_TOPLEFT)
        return false;
    if (samples > 1 && Defaulted16(tiff, TIFFTAG_PLANARCONFIG) != PLANARCONFIG_CONTIG) return false;
    if (compression == COMPRESSION_OJPEG || compression == COMPRESSION_SGILOG ||
        compression == COMPRESSION_SGILOG24)
        return false;
    switch (photometric) {
        case PHOTOMETRIC_RGB:
            return samples == 3 || samples == 4;
        case PHOTOMETRIC_YCBCR:
            return compression == COMPRESSION_JPEG && samples == 3;
        case PHOTOMETRIC_MINISBLACK:
        case PHOTOMETRIC_MINISWHITE:
        case PHOTOMETRIC_PALETTE:
            return samples == 1;
        default:
            return false;
    }
}

Source RgbSource(const TIFFRGBAImage& image) {
    if (image.samplesperpixel == 3) return Source::Rgb;
    if (image.alpha == EXTRASAMPLE_ASSOCALPHA) return Source::Rgba;
    if (image.alpha == EXTRASAMPLE_UNASSALPHA) return Source::Rgbua;
    return Source::Rgbx;
}

bool IsPremultiplyFormula(const uint8_t* uaToAa) {
    for (uint32_t alpha = 0; alpha < 256; ++alpha)
        for (uint32_t value = 0; value < 256; ++value)
            if (uaToAa[alpha << 8 | value] != (value * alpha + 127) / 255) return false;
    return true;
}

// Reads the decision and the tables out of libtiff's RGBA setup for this image.
bool TakeSetup(const TIFFRGBAImage& image, Layout& layout) {
    if (!image.isContig || image.bitspersample != 8 || image.orientation != ORIENTATION_TOPLEFT) return false;
    layout.samples = image.samplesperpixel;
    layout.width = image.width;
    layout.height = image.height;
    layout.tables.reset(new (std::nothrow) Tables);
    if (layout.tables == nullptr) return false;
    Tables& t = *layout.tables;
    switch (image.photometric) {
        case PHOTOMETRIC_RGB:
            if (image.samplesperpixel != 3 && image.samplesperpixel != 4) return false;
            layout.source = RgbSource(image);
            if (layout.source != Source::Rgbua) return true;
            if (image.UaToAa == nullptr) return false;
            std::memcpy(t.uaToAa, image.UaToAa, sizeof t.uaToAa);
            layout.premultiplyByFormula = IsPremultiplyFormula(t.uaToAa);
            return true;
        case PHOTOMETRIC_MINISBLACK:
        case PHOTOMETRIC_MINISWHITE:
        case PHOTOMETRIC_PALETTE: {
            uint32_t** map = image.photometric == PHOTOMETRIC_PALETTE ? image.PALmap : image.BWmap;
            if (image.samplesperpixel != 1 || map == nullptr) return false;
            for (int i = 0; i < 256; ++i) t.lut[i] = map[i][0];
            layout.source = Source::Lut;
            return true;
        }
        default:
            return false;
    }
}

bool ReadLayout(TIFF* tiff, Layout& layout) {
    if (!TagsFit(tiff)) return false;
    TIFFRGBAImage image{};
    char message[1024] = {};
    if (!BeginRgbaImage(&image, tiff, message)) return false;
    const bool taken = TakeSetup(image, layout);
    TIFFRGBAImageEnd(&image);
    if (!taken || layout.width < 1 || layout.height < 1) return false;
    if (layout.width > kMaxWriterSide || layout.height > kMaxWriterSide) return false;
    if (uint64_t{layout.width} * layout.height > kMaxPixels) return false;
    const uint64_t rowBytes = uint64_t{layout.width} * layout.samples;
    return static_cast<uint64_t>(TIFFScanlineSize64(tiff)) == rowBytes;
}

// ---- Decoding into the pictures -------------------------------------------------------------

// A picture the host could not make stays nil, as on the raster path; its rows go to a scratch
// row so that the other picture and the result come out the same.
struct Target {
    PictureWriter pict;
    PictureWriter mask;
    bool hasPict = false;
    bool hasMask = false;
    std::unique_ptr<uint8_t[]> scratch;
    size_t bytesPerPixel = 4;
    PairConverter convert = nullptr;
    const Tables* tables = nullptr;

    uint8_t* RowOf(const PictureEditor& picture, bool made, uint32_t y) const {
        if (!made) return scratch.get();
        if (picture.pixelType == kPixelTypeBGRX) return picture.rowTable[y];
        return picture.baseAddress + static_cast<intptr_t>(y) * picture.rowBytes;
    }

    // `count` pixels of file row `y` from column `x`.
    void Put(uint32_t x, uint32_t y, const uint8_t* samples, uint32_t count) const {
        const size_t offset = size_t{x} * bytesPerPixel;
        convert(RowOf(pict, hasPict, y) + offset, RowOf(mask, hasMask, y) + offset, samples, count, *tables);
    }
};

struct FreeBuffer {
    void operator()(uint8_t* p) const noexcept { std::free(p); }
};
using Buffer = std::unique_ptr<uint8_t, FreeBuffer>;

// Zeroed, with slack for the 32-bit load of a row's last three-byte pixel.
constexpr size_t kSlack = 4;

Buffer AllocateChunk(uint64_t bytes) {
    if (bytes == 0 || bytes > kMaxChunkBytes) return nullptr;
    return Buffer(static_cast<uint8_t*>(std::calloc(static_cast<size_t>(bytes) + kSlack, 1)));
}

}  // namespace

namespace {
int gMessageCount = 0;

void CountMessage(const char*, const char*, va_list) {
    ++gMessageCount;
}
}  // namespace

QuietMessages::QuietMessages()
    : error_(TIFFSetErrorHandler(CountMessage)), warning_(TIFFSetWarningHandler(CountMessage)) {
    gMessageCount = 0;
}

QuietMessages::~QuietMessages() {
    TIFFSetErrorHandler(error_);
    TIFFSetWarningHandler(warning_);
}

bool QuietMessages::Silent() const {
    return gMessageCount == 0;
}

bool OldStyleLzw(TIFF* tiff, uint32_t chunk) {
    uint16_t compression = 0;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &compression);
    if (compression != COMPRESSION_LZW) return false;
    uint8_t head[2] = {};
    const tmsize_t got =
        TIFFIsTiled(tiff) ? TIFFReadRawTile(tiff, chunk, head, 2) : TIFFReadRawStrip(tiff, chunk, head, 2);
    if (got != 2) return true;
    uint16_t fillOrder = FILLORDER_MSB2LSB;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_FILLORDER, &fillOrder);
    if (fillOrder == FILLORDER_LSB2MSB) TIFFReverseBits(head, 2);  // as libtiff turns the strip it read
    return head[0] == 0 && (head[1] & 1u) != 0;
}

namespace {

bool DecodeStrips(TIFF* tiff, const Layout& layout, const Target& target) {
    uint32_t rowsPerStrip = 0;
    if (!TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip) || rowsPerStrip == 0) return false;
    rowsPerStrip = std::min(rowsPerStrip, layout.height);
    const uint64_t rowBytes = uint64_t{layout.width} * layout.samples;
    const Buffer buffer = AllocateChunk(rowBytes * rowsPerStrip);
    if (buffer == nullptr) return false;
    for (uint32_t row = 0; row < layout.height; row += rowsPerStrip) {
        const uint32_t rows = std::min(rowsPerStrip, layout.height - row);
        const auto want = static_cast<tmsize_t>(rowBytes * rows);
        const uint32_t strip = TIFFComputeStrip(tiff, row, 0);
        if (OldStyleLzw(tiff, strip) || TIFFReadEncodedStrip(tiff, strip, buffer.get(), want) != want)
            return false;
        for (uint32_t r = 0; r < rows; ++r) target.Put(0, row + r, buffer.get() + rowBytes * r, layout.width);
    }
    return true;
}

bool DecodeTiles(TIFF* tiff, const Layout& layout, const Target& target) {
    uint32_t tileWidth = 0;
    uint32_t tileLength = 0;
    if (!TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &tileWidth) ||
        !TIFFGetField(tiff, TIFFTAG_TILELENGTH, &tileLength))
        return false;
    if (tileWidth == 0 || tileLength == 0) return false;
    const uint64_t tileRowBytes = uint64_t{tileWidth} * layout.samples;
    const uint64_t tileBytes = tileRowBytes * tileLength;
    if (static_cast<uint64_t>(TIFFTileSize64(tiff)) != tileBytes) return false;
    const Buffer buffer = AllocateChunk(tileBytes);
    if (buffer == nullptr) return false;
    const auto want = static_cast<tmsize_t>(tileBytes);
    for (uint32_t y = 0; y < layout.height; y += std::min(tileLength, layout.height - y)) {
        const uint32_t rows = std::min(tileLength, layout.height - y);
        for (uint32_t x = 0; x < layout.width; x += std::min(tileWidth, layout.width - x)) {
            const uint32_t columns = std::min(tileWidth, layout.width - x);
            const uint32_t tile = TIFFComputeTile(tiff, x, y, 0, 0);
            if (OldStyleLzw(tiff, tile) || TIFFReadEncodedTile(tiff, tile, buffer.get(), want) != want)
                return false;
            for (uint32_t r = 0; r < rows; ++r)
                target.Put(x, y + r, buffer.get() + tileRowBytes * r, columns);
        }
    }
    return true;
}

bool Matches(const PictureWriter& writer, int32_t w, int32_t h) {
    return writer.width == w && writer.height == h;
}

// The colour picture, then its own mask (made by the host when missing) locked for writing.
// `unmade` when the host did not make one of them; a mask stored in a way the writer cannot
// write only declines, and the mask is then drawn into it as usual.
bool MakeMaskInPict(int32_t w, int32_t h, Target& target, bool* unmade) {
    const PictureRef made = PictureRef::Steal(REALNewPicture(w, h, 32));
    const PictureRef ownMask = made ? PictureRef::Steal(REALGetPictureMask(made.get(), true)) : PictureRef();
    if (!ownMask) return *unmade = true, false;
    if (!target.pict.GetPictureEditor(made.get(), false, true) ||
        !target.mask.GetPictureEditor(ownMask.get(), false, true))
        return false;
    target.pict.AdviseFreshPixels();
    target.mask.AdviseFreshPixels();
    return true;
}

bool MakeTarget(const Layout& layout, MaskPlace place, Target& target, bool* unmade) {
    const auto w = static_cast<int32_t>(layout.width);
    const auto h = static_cast<int32_t>(layout.height);
    if (place == MaskPlace::InPict) {
        if (!MakeMaskInPict(w, h, target, unmade)) return false;
        target.hasPict = target.hasMask = true;
    } else {
        // The mask first, as the raster path makes them.
        target.hasMask = target.mask.NewPictureWriter(w, h);
        target.hasPict = target.pict.NewPictureWriter(w, h);
    }
    if ((target.hasMask && !Matches(target.mask, w, h)) || (target.hasPict && !Matches(target.pict, w, h)))
        return false;
    if (target.hasMask && target.hasPict && target.mask.pixelType != target.pict.pixelType) return false;
    if (!target.hasMask || !target.hasPict) {
        target.scratch.reset(new (std::nothrow) uint8_t[size_t{layout.width} * 4]);
        if (target.scratch == nullptr) return false;
    }
    const PictureWriter& made = target.hasPict ? target.pict : target.mask;
    const int32_t pixelType = target.hasPict || target.hasMask ? made.pixelType : kPixelTypeXRGB;
    target.bytesPerPixel = pixelType == kPixelTypeRGB ? 3 : 4;
    target.convert = PickConverter(layout.source, pixelType, layout.premultiplyByFormula);
    target.tables = layout.tables.get();
    return target.convert != nullptr;
}

}  // namespace

bool DirectPathEnabled() {
    static const bool enabled = std::getenv("TQV_FORCE_RGBA_PATH") == nullptr;
    return enabled;
}

bool ReadDirect(TIFF* tiff, DirectPictures& out, MaskPlace place) {
    if (tiff == nullptr) return false;
    const QuietMessages quiet;
    Layout layout;
    if (!ReadLayout(tiff, layout) || !quiet.Silent()) return false;
    Target target;
    if (!MakeTarget(layout, place, target, &out.unmade)) return false;
    const bool decoded =
        TIFFIsTiled(tiff) ? DecodeTiles(tiff, layout, target) : DecodeStrips(tiff, layout, target);
    if (!decoded || !quiet.Silent()) return false;
    if (place == MaskPlace::InPict) {
        // The host's cached rendering of the mask is stale now, as after any drawing into it.
        const PictureRef ownMask = PictureRef::Steal(target.mask.RenderPictureWriter());
        out.pict = target.pict.RenderPictureWriter();
        return true;
    }
    out.mask = target.hasMask ? target.mask.RenderPictureWriter() : nullptr;
    out.pict = target.hasPict ? target.pict.RenderPictureWriter() : nullptr;
    return true;
}

}  // namespace tqv
