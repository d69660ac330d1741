#include "export/rgb.h"

#include <tiffio.h>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "bridge/memory.h"
#include "export/export_common.h"
#include "export/pixel_words.h"
#include "picture/picture_editor.h"
#include "platform/vector_paths.h"
#include "session/messages.h"
#include "session/scanline_write.h"
#include "session/tiff_data.h"

namespace tqv {
namespace {

// ---- Tags -----------------------------------------------------------------------------------

enum class Rule {
    Always,      // set whatever the image holds
    IfUnset,     // keep what the caller set
    AtLeastOne,  // resolution: set when unset, and replace anything below 1 dpi
    // resolution: set when unset, and replace 0 (libtiff marks both resolutions set when one is,
    // and the other reads 0)
    IfUnsetOrZero,
};

enum class Value { Height, Width, One, Two, Eight, Samples, UnassociatedAlpha, Dpi };

struct TagRow {
    ttag_t tag;
    Rule rule;
    Value value;
};

// The order is the order of the calls; every call is made even after one failed.
constexpr TagRow kOpaqueTags[] = {
    {TIFFTAG_ROWSPERSTRIP, Rule::IfUnset, Value::One},
    {TIFFTAG_IMAGELENGTH, Rule::Always, Value::Height},
    {TIFFTAG_IMAGEWIDTH, Rule::Always, Value::Width},
    {TIFFTAG_PLANARCONFIG, Rule::Always, Value::One},
    {TIFFTAG_PHOTOMETRIC, Rule::Always, Value::Two},
    {TIFFTAG_BITSPERSAMPLE, Rule::Always, Value::Eight},
    {TIFFTAG_SAMPLESPERPIXEL, Rule::Always, Value::Samples},
    {TIFFTAG_XRESOLUTION, Rule::AtLeastOne, Value::Dpi},
    {TIFFTAG_YRESOLUTION, Rule::AtLeastOne, Value::Dpi},
    {TIFFTAG_FILLORDER, Rule::IfUnset, Value::One},
    {TIFFTAG_ORIENTATION, Rule::IfUnset, Value::One},
    {TIFFTAG_RESOLUTIONUNIT, Rule::IfUnset, Value::Two},
    {TIFFTAG_COMPRESSION, Rule::IfUnset, Value::One},
};

// With a mask a resolution below 1 dpi is kept, but not 0.
constexpr TagRow kMaskedTags[] = {
    {TIFFTAG_ROWSPERSTRIP, Rule::IfUnset, Value::One},
    {TIFFTAG_IMAGELENGTH, Rule::Always, Value::Height},
    {TIFFTAG_IMAGEWIDTH, Rule::Always, Value::Width},
    {TIFFTAG_PLANARCONFIG, Rule::Always, Value::One},
    {TIFFTAG_PHOTOMETRIC, Rule::Always, Value::Two},
    {TIFFTAG_BITSPERSAMPLE, Rule::Always, Value::Eight},
    {TIFFTAG_SAMPLESPERPIXEL, Rule::Always, Value::Samples},
    {TIFFTAG_EXTRASAMPLES, Rule::Always, Value::UnassociatedAlpha},
    {TIFFTAG_FILLORDER, Rule::IfUnset, Value::One},
    {TIFFTAG_XRESOLUTION, Rule::IfUnsetOrZero, Value::Dpi},
    {TIFFTAG_YRESOLUTION, Rule::IfUnsetOrZero, Value::Dpi},
    {TIFFTAG_ORIENTATION, Rule::IfUnset, Value::One},
    {TIFFTAG_RESOLUTIONUNIT, Rule::IfUnset, Value::Two},
    {TIFFTAG_COMPRESSION, Rule::IfUnset, Value::One},
};

struct ImageShape {
    uint32_t width, height;
    uint16_t samples;
};

bool SetValue(TIFF* tiff, ttag_t tag, Value value, const ImageShape& shape) {
    static const uint16_t kUnassociatedAlpha[] = {EXTRASAMPLE_UNASSALPHA};
    switch (value) {
        case Value::Height:
            return TIFFSetField(tiff, tag, shape.height) != 0;
        case Value::Width:
            return TIFFSetField(tiff, tag, shape.width) != 0;
        case Value::Samples:
            return TIFFSetField(tiff, tag, int{shape.samples}) != 0;
        case Value::UnassociatedAlpha:
            return TIFFSetField(tiff, tag, 1, kUnassociatedAlpha) != 0;
        case Value::Dpi:
            return TIFFSetField(tiff, tag, 72.0) != 0;
        case Value::One:
            // ROWSPERSTRIP takes a uint32, the short tags an int; both are passed as int-sized.
            return TIFFSetField(tiff, tag, 1) != 0;
        case Value::Two:
            return TIFFSetField(tiff, tag, 2) != 0;
        case Value::Eight:
            return TIFFSetField(tiff, tag, 8) != 0;
    }
    return false;
}

// Whether the image holds the tag; `resolution` receives a resolution's value (0 when unset).
// Every tag here has one output of at most 4 bytes; the scratch is larger and aligned anyway.
bool IsSet(TIFF* tiff, ttag_t tag, float* resolution) {
    alignas(16) unsigned char scratch[16] = {};
    const bool set = TIFFGetField(tiff, tag, scratch) != 0;
    if (set && resolution != nullptr) std::memcpy(resolution, scratch, sizeof *resolution);
    return set;
}

bool ApplyRow(TIFF* tiff, const TagRow& row, const ImageShape& shape) {
    if (row.rule == Rule::Always) return SetValue(tiff, row.tag, row.value, shape);
    float resolution = 0.0f;
    bool ok = true;
    const bool set = IsSet(tiff, row.tag, &resolution);
    if (!set) ok = SetValue(tiff, row.tag, row.value, shape);
    if (row.rule == Rule::AtLeastOne && resolution < 1.0f)
        ok = SetValue(tiff, row.tag, row.value, shape) && ok;
    if (set && row.rule == Rule::IfUnsetOrZero && resolution == 0.0f)
        ok = SetValue(tiff, row.tag, row.value, shape) && ok;
    return ok;
}

template <size_t N>
bool ApplyTags(TIFF* tiff, const TagRow (&rows)[N], const ImageShape& shape) {
    bool ok = true;
    for (const TagRow& row : rows) ok = ApplyRow(tiff, row, shape) && ok;
    return ok;
}

// ---- Row converters: one per picture layout, chosen before the row loop --------------------

using RowConverter = void (*)(uint8_t* out, const uint8_t* in, int32_t count);

// Colour pixels into R, G, B at a stride of 3 (opaque) or 4 (alpha follows, written later).
template <int R, int G, int B, int Advance, int Stride>
void ColourRow(uint8_t* out, const uint8_t* in, int32_t count) {
    for (int32_t x = 0; x < count; ++x) {
        out[x * Stride] = in[x * Advance + R];
        out[x * Stride + 1] = in[x * Advance + G];
        out[x * Stride + 2] = in[x * Advance + B];
    }
}

#if defined(__x86_64__)
// Four 4-byte pixels into R, G, B with one byte shuffle where the processor has SSSE3 (every
// x86-64 processor of the last fifteen years). Each 16-byte store carries 12 bytes of the row, so
// the loop stops while the store still ends inside the row; answers how many pixels it wrote.
template <int R, int G, int B>
[[gnu::target("ssse3")]] int32_t PackedColourRowSsse3(uint8_t* out, const uint8_t* in, int32_t count) {
    const __m128i pick = _mm_setr_epi8(R, G, B, 4 + R, 4 + G, 4 + B, 8 + R, 8 + G, 8 + B, 12 + R, 12 + G,
                                       12 + B, -1, -1, -1, -1);
    int32_t x = 0;
    for (; x + 6 <= count; x += 4) {
        const __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + ptrdiff_t{x} * 4));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + ptrdiff_t{x} * 3), _mm_shuffle_epi8(pixels, pick));
    }
    return x;
}
#endif

// 4-byte pixels into R, G, B: by byte shuffles where there is SSSE3, else four pixels at a time
// as one 64-bit and one 32-bit store on little-endian machines; the rest byte by byte.
template <int R, int G, int B>
void PackedColourRow(uint8_t* out, const uint8_t* in, int32_t count) {
    int32_t x = 0;
#if defined(__x86_64__)
    if (UseSsse3()) x = PackedColourRowSsse3<R, G, B>(out, in, count);
#endif
    if constexpr (kLittleEndian) {
        for (; x + 4 <= count; x += 4) {
            const uint8_t* p = in + ptrdiff_t{x} * 4;
            const uint64_t a = RgbWord<R, G, B>(LoadWord(p)), b = RgbWord<R, G, B>(LoadWord(p + 4));
            const uint64_t c = RgbWord<R, G, B>(LoadWord(p + 8)), d = RgbWord<R, G, B>(LoadWord(p + 12));
            const uint64_t first = a | b << 24 | c << 48;               // R0 G0 B0 R1 G1 B1 R2 G2
            const auto rest = static_cast<uint32_t>(c >> 16 | d << 8);  // B2 R3 G3 B3
            std::memcpy(out + ptrdiff_t{x} * 3, &first, sizeof first);
            std::memcpy(out + ptrdiff_t{x} * 3 + 8, &rest, sizeof rest);
        }
    }
    ColourRow<R, G, B, 4, 3>(out + ptrdiff_t{x} * 3, in + ptrdiff_t{x} * 4, count - x);
}

// 4-byte pixels into R, G, B and a zero alpha byte, one word a pixel.
template <int R, int G, int B>
void WordColourRow(uint8_t* out, const uint8_t* in, int32_t count) {
    for (int32_t x = 0; x < count; ++x)
        StoreWord(out + ptrdiff_t{x} * 4, RgbWord<R, G, B>(LoadWord(in + ptrdiff_t{x} * 4)));
}

// The mask's red byte as alpha, unchanged.
template <int Red, int Advance>
void AlphaRow(uint8_t* out, const uint8_t* in, int32_t count) {
    for (int32_t x = 0; x < count; ++x) out[x * 4 + 3] = in[x * Advance + Red];
}

// The same for a 4-byte mask layout, merged into the colour words already in the row.
template <int Red>
void WordAlphaRow(uint8_t* out, const uint8_t* in, int32_t count) {
    constexpr uint32_t kColour = ~(uint32_t{0xFF} << ByteShift(3));
    for (int32_t x = 0; x < count; ++x) {
        uint8_t* q = out + ptrdiff_t{x} * 4;
        const uint32_t alpha = ByteOf<Red>(LoadWord(in + ptrdiff_t{x} * 4)) << ByteShift(3);
        StoreWord(q, (LoadWord(q) & kColour) | alpha);
    }
}

// A layout this system does not know reads as black (and transparent).
template <int Stride>
void ZeroColourRow(uint8_t* out, const uint8_t*, int32_t count) {
    for (int32_t x = 0; x < count; ++x) out[x * Stride] = out[x * Stride + 1] = out[x * Stride + 2] = 0;
}
void ZeroAlphaRow(uint8_t* out, const uint8_t*, int32_t count) {
    for (int32_t x = 0; x < count; ++x) out[x * 4 + 3] = 0;
}

struct ConverterRow {
    int32_t pixelType;
    RowConverter opaque, colour, alpha;
};

constexpr ConverterRow kConverters[] = {
    {kPixelTypeBGRX, PackedColourRow<2, 1, 0>, WordColourRow<2, 1, 0>, WordAlphaRow<2>},
    {kPixelTypeRGB, ColourRow<0, 1, 2, 3, 3>, ColourRow<0, 1, 2, 3, 4>, AlphaRow<0, 3>},
    {kPixelTypeXRGB, PackedColourRow<1, 2, 3>, WordColourRow<1, 2, 3>, WordAlphaRow<1>},
};
constexpr ConverterRow kUnknownLayout = {0, ZeroColourRow<3>, ZeroColourRow<4>, ZeroAlphaRow};

const ConverterRow& ConvertersFor(int32_t pixelType) {
    for (const ConverterRow& row : kConverters)
        if (row.pixelType == pixelType) return row;
    return kUnknownLayout;
}

// ---- Writing --------------------------------------------------------------------------------

struct Session {
    REALobject self;
    TiffData* record;
};

// A row of four bytes a pixel, which holds a scanline of either layout.
struct RowBuffer {
    explicit RowBuffer(int32_t width)
        : bytes(int64_t{width} * 4), memory(static_cast<uint8_t*>(AllocateClearMemory(bytes))) {}
    int64_t bytes;
    ClearMemoryPtr<uint8_t> memory;
};

// Row y into `tiff`, the handle the write started with, while host code run by a yield has left
// it in place and its scanlines still fit the buffer.
bool WriteRow(const Session& s, TIFF* tiff, const RowBuffer& row, int32_t y, ReadDirectoryUndo& undo) {
    if (!StillWritable(s.record, tiff, row.bytes)) return false;
    if (TIFFWriteScanline(tiff, row.memory.get(), static_cast<uint32_t>(y), 0) != 1) return false;
    undo.RowTaken();
    return true;
}

bool WriteOpaqueRows(const Session& s, TIFF* tiff, PictureReader& reader, ReadDirectoryUndo& undo) {
    const RowBuffer row(reader.width);
    const ImageShape shape{static_cast<uint32_t>(reader.width), static_cast<uint32_t>(reader.height), 3};
    const bool cleared = ClearOtherSampleTags(tiff, true);
    const bool tagged = ApplyTags(tiff, kOpaqueTags, shape) && cleared;
    if (!tagged || row.memory == nullptr || !ScanlineWritable(tiff, 0, 0)) return false;
    BeginRows(tiff);
    const RowConverter convert = ConvertersFor(reader.pixelType).opaque;
    for (int32_t y = 0; y < reader.height; ++y) {
        convert(row.memory.get(), reader.rowPointer, reader.width);
        if (!WriteRow(s, tiff, row, y, undo)) return false;
        reader.AddPixelRow();
        if (!YieldDuringRows(s.self, s.record, tiff) && y + 1 < reader.height) return false;
    }
    return true;
}

bool WriteOpaque(const Session& s) {
    PictureReader reader;
    if (!reader.GetPictureReader(s.record->Pict)) return false;
    YieldToHost(s.self, s.record);
    current = s.self;
    // The yield may have run host code that closed the file.
    TIFF* tiff = s.record->tiff;
    if (tiff == nullptr || !ReadyForRows(tiff, static_cast<uint32_t>(reader.height), 8)) return false;
    ReadDirectoryUndo undo(tiff);
    return undo.Finish(WriteOpaqueRows(s, tiff, reader, undo));
}

bool WriteMaskedRows(const Session& s, TIFF* tiff, PictureReader& picture, PictureReader& mask,
                     ReadDirectoryUndo& undo) {
    const RowBuffer row(picture.width);
    const ImageShape shape{static_cast<uint32_t>(picture.width), static_cast<uint32_t>(picture.height), 4};
    const bool cleared = ClearOtherSampleTags(tiff, false);
    const bool tagged = ApplyTags(tiff, kMaskedTags, shape) && cleared;
    if (!tagged || row.memory == nullptr || !ScanlineWritable(tiff, 0, 0)) return false;
    BeginRows(tiff);
    const RowConverter colour = ConvertersFor(picture.pixelType).colour;
    const RowConverter alpha = ConvertersFor(mask.pixelType).alpha;
    for (int32_t y = 0; y < picture.height; ++y) {
        colour(row.memory.get(), picture.rowPointer, picture.width);
        alpha(row.memory.get(), mask.rowPointer, mask.width);
        if (!WriteRow(s, tiff, row, y, undo)) return false;
        picture.AddPixelRow();
        mask.AddPixelRow();
        if (!YieldDuringRows(s.self, s.record, tiff) && y + 1 < picture.height) return false;
    }
    return true;
}

bool WriteMasked(const Session& s) {
    PictureReader picture, mask;
    if (!picture.GetPictureReader(s.record->Pict)) return false;
    if (!mask.GetPictureReader(s.record->Mask)) return false;
    if (picture.width != mask.width || picture.height != mask.height) return false;
    TIFF* tiff = s.record->tiff;
    if (!ReadyForRows(tiff, static_cast<uint32_t>(picture.height), 8)) return false;
    ReadDirectoryUndo undo(tiff);
    return undo.Finish(WriteMaskedRows(s, tiff, picture, mask, undo));
}

}  // namespace

bool WriteRGB(REALobject object) {
    TiffData* record = TiffDataOf(object);
    if (record == nullptr) return false;
    current = object;
    if (record->tiff == nullptr || record->Pict == nullptr) return false;
    const Session session{object, record};
    return record->Mask == nullptr ? WriteOpaque(session) : WriteMasked(session);
}

}  // namespace tqv
