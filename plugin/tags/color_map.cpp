#include "tags/color_map.h"

#include <tiffio.h>

#include <cstdarg>
#include <cstring>
#include <utility>

#include "bridge/services.h"
#include "bridge/values.h"
#include "session/tiff_data.h"
#include "tags/tag_access.h"
#include "tags/value_guard.h"

namespace tqv {
namespace {

// libtiff sizes a colour map by BitsPerSample and reads none from a file beyond 24 bits (32 MiB a
// channel); a larger depth would make it copy arrays past what it can allocate, or shift past its
// integer.
constexpr uint16_t kMaxPaletteBits = 24;

// Bytes per channel of the current directory's colour map; 0 when there can be none.
int64_t ChannelBytes(TIFF* tiff) {
    uint16_t bits = 0;
    if (TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits) != 1 || bits > kMaxPaletteBits) return 0;
    return int64_t{2} << bits;
}

void ReleaseBlock(REALmemoryBlock* slot) {
    if (slot == nullptr) return;
    if (REALmemoryBlock old = std::exchange(*slot, nullptr))
        REALUnlockObject(reinterpret_cast<REALobject>(old));
}

bool FillBlock(REALmemoryBlock block, const uint16_t* values, int64_t bytes) {
    void* target = REALMemoryBlockGetPtr(block);
    if (target == nullptr) return false;
    std::memcpy(target, values, static_cast<size_t>(bytes));
    return true;
}

// The directory's own field setter, saved by the extender below. TIFFDefaultDirectory installs
// the same libtiff function on every directory just before it calls the extender.
TIFFVSetMethod gDirectorySetField = nullptr;
TIFFExtendProc gParentExtender = nullptr;

bool ColorMapSet(TIFF* tiff) {
    const uint16_t *r = nullptr, *g = nullptr, *b = nullptr;
    return TIFFGetField(tiff, TIFFTAG_COLORMAP, &r, &g, &b) == 1;
}

bool KeepsDepth(TIFF* tiff, uint16_t bits) {
    uint16_t current = 0;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &current);
    return bits == current;
}

// Whether a BitsPerSample assignment (the variadic value still unread in `ap`) keeps the depth the
// colour map or transfer function was sized for.
bool KeepsDepth(TIFF* tiff, va_list ap) {
    return KeepsDepth(tiff, static_cast<uint16_t>(PeekArgument<int>(ap)));  // read as uint16_vap
}

void RefuseMapDepth(TIFF* tiff) {
    TIFFErrorExtR(tiff, "BitsPerSample",
                  "Cannot change BitsPerSample while a colour map sized for the current value is set");
}

bool TransferFunctionSet(TIFF* tiff) {
    const uint16_t *first = nullptr, *second = nullptr, *third = nullptr;
    return TIFFGetField(tiff, TIFFTAG_TRANSFERFUNCTION, &first, &second, &third) == 1;
}

// Whether a Compression assignment (the value still unread in `ap`) leaves old-style JPEG. libtiff
// 4.5 then keeps the old-style JPEG codec's field methods on a directory whose codec state it has
// freed, and the next scanline read or write dereferences it and stops the host.
bool LeavesOldJpeg(TIFF* tiff, va_list ap) {
    uint16_t current = 0;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &current);
    if (current != COMPRESSION_OJPEG) return false;
    return static_cast<uint16_t>(PeekArgument<int>(ap)) != COMPRESSION_OJPEG;  // read as uint16_vap
}

// libtiff 4.5 leaves the tags a codec kept in its own state marked as set when the compression
// changes (and the marks are shared between codecs), so writing the directory asks the new codec
// for them: it refuses, and the writer writes values it never received (for JPEGTables and the fax
// texts, through stray pointers). Their values went with the old codec.
void ForgetCodecTags(TIFF* tiff, uint16_t compression) {
    for (uint32_t tag : TagsSetByCodec(compression)) {
        // Under a definition met in a file, the value is an ordinary custom value of the
        // directory's own, which stays.
        if (IsCodecDefinition(TIFFFindField(tiff, tag, TIFF_ANY))) TIFFUnsetField(tiff, tag);
    }
}

int SetThroughDirectory(TIFF* tiff, uint32_t tag, ...) {
    va_list ap;
    va_start(ap, tag);
    const int result = gDirectorySetField(tiff, tag, ap);
    va_end(ap);
    return result;
}

// libtiff writes SMinSampleValue and SMaxSampleValue only in the integer and floating-point
// sample formats; with any other one its directory writer fails without a message, after an
// image rewritten in place was already unlinked from the file.
bool WritesSampleRange(uint16_t format) {
    return format == SAMPLEFORMAT_UINT || format == SAMPLEFORMAT_INT || format == SAMPLEFORMAT_IEEEFP;
}

bool SampleRangeSet(TIFF* tiff) {
    alignas(16) unsigned char scratch[16] = {};  // a double, or a pointer to one a sample
    return TIFFGetField(tiff, TIFFTAG_SMINSAMPLEVALUE, scratch) == 1 ||
           TIFFGetField(tiff, TIFFTAG_SMAXSAMPLEVALUE, scratch) == 1;
}

// libtiff refuses more extra samples than samples when ExtraSamples is set, but keeps them when
// SamplesPerPixel falls below their number: the directory is written and never reads again.
void FitExtraSamples(TIFF* tiff, uint16_t samples) {
    uint16_t extra = 0;
    const uint16_t* kinds = nullptr;
    if (samples == 0 || TIFFGetField(tiff, TIFFTAG_EXTRASAMPLES, &extra, &kinds) != 1 || extra <= samples)
        return;
    TIFFWarningExtR(
        tiff, "SamplesPerPixel",
        "SamplesPerPixel tag value is changing, but ExtraSamples holds more samples. Canceling it");
    SetThroughDirectory(tiff, TIFFTAG_EXTRASAMPLES, 0, static_cast<uint16_t*>(nullptr));
}

// Rules for values that libtiff takes but its directory writer refuses, losing the directory.
// Answers -1 to go on to the setter, else the set's result.
int FitValue(TIFF* tiff, uint32_t tag, va_list ap) {
    switch (tag) {
        case TIFFTAG_SAMPLESPERPIXEL:
            FitExtraSamples(tiff, static_cast<uint16_t>(PeekArgument<int>(ap)));  // read as uint16_vap
            return -1;
        case TIFFTAG_SAMPLEFORMAT:
            if (!WritesSampleRange(static_cast<uint16_t>(PeekArgument<int>(ap))) && SampleRangeSet(tiff)) {
                TIFFWarningExtR(tiff, "SampleFormat",
                                "SampleFormat tag value is changing, but SMinSampleValue and SMaxSampleValue "
                                "cannot be written with it. Canceling them");
                TIFFUnsetField(tiff, TIFFTAG_SMINSAMPLEVALUE);
                TIFFUnsetField(tiff, TIFFTAG_SMAXSAMPLEVALUE);
            }
            return -1;
        case TIFFTAG_SMINSAMPLEVALUE:
        case TIFFTAG_SMAXSAMPLEVALUE: {
            uint16_t format = SAMPLEFORMAT_UINT;
            TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &format);
            if (WritesSampleRange(format)) return -1;
            TIFFErrorExtR(tiff, "SampleFormat", "Sample value ranges cannot be written with SampleFormat %u",
                          unsigned{format});
            return 0;
        }
        case TIFFTAG_XPOSITION:
        case TIFFTAG_YPOSITION: {
            // The writer refuses a negative position ("Negative value is illegal"): 0, as the
            // position properties set it.
            const double position = PeekArgument<double>(ap);
            if (position >= 0) return -1;
            return SetThroughDirectory(tiff, tag, 0.0);
        }
        default:
            return -1;
    }
}

int GuardedSetField(TIFF* tiff, uint32_t tag, va_list ap) {
    NoteHandleChange(tiff);
    if (const int fitted = FitValue(tiff, tag, ap); fitted >= 0) return fitted;
    if (const int fitted = FitCustomValue(tiff, tag, ap); fitted >= 0) return fitted;
    if (tag == TIFFTAG_BITSPERSAMPLE && ColorMapSet(tiff) && !KeepsDepth(tiff, ap)) {
        RefuseMapDepth(tiff);
        return 0;
    }
    // A transfer function has one entry per value of the depth it was read or set with, and
    // libtiff writes one per value of the current depth: cancelled as libtiff itself cancels it
    // when the samples per pixel change, rather than written from past its end.
    if (tag == TIFFTAG_BITSPERSAMPLE && TransferFunctionSet(tiff) && !KeepsDepth(tiff, ap)) {
        TIFFWarningExtR(tiff, "BitsPerSample",
                        "BitsPerSample tag value is changing, but TransferFunction was read with a "
                        "different value. Canceling it");
        TIFFUnsetField(tiff, TIFFTAG_TRANSFERFUNCTION);
    }
    if (tag == TIFFTAG_COMPRESSION && LeavesOldJpeg(tiff, ap)) {
        TIFFErrorExtR(tiff, "Compression", "Cannot change the compression of an old-style JPEG image");
        return 0;
    }
    if (tag != TIFFTAG_COMPRESSION) return gDirectorySetField(tiff, tag, ap);
    uint16_t before = COMPRESSION_NONE, after = COMPRESSION_NONE;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &before);
    const int result = gDirectorySetField(tiff, tag, ap);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &after);
    if (after != before) ForgetCodecTags(tiff, before);
    return result;
}

void GuardDirectory(TIFF* tiff) {
    TIFFTagMethods* methods = TIFFAccessTagMethods(tiff);
    if (methods != nullptr && methods->vsetfield != GuardedSetField) {
        gDirectorySetField = methods->vsetfield;
        methods->vsetfield = GuardedSetField;
    }
    if (gParentExtender != nullptr) gParentExtender(tiff);
}

}  // namespace

bool DepthFitsColorMap(TIFF* tiff, uint16_t bits) {
    if (!ColorMapSet(tiff) || KeepsDepth(tiff, bits)) return true;
    RefuseMapDepth(tiff);
    return false;
}

void InstallFieldGuards() {
    static bool installed = false;
    if (installed) return;
    installed = true;
    gParentExtender = TIFFSetTagExtender(GuardDirectory);
}

bool GetColorMap(REALobject self, REALmemoryBlock* red, REALmemoryBlock* green, REALmemoryBlock* blue) {
    ReleaseBlock(red);
    ReleaseBlock(green);
    ReleaseBlock(blue);
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr || red == nullptr || green == nullptr || blue == nullptr) return false;
    const uint16_t *r = nullptr, *g = nullptr, *b = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_COLORMAP, &r, &g, &b) != 1 || r == nullptr || g == nullptr || b == nullptr)
        return false;
    const int64_t bytes = ChannelBytes(tiff);
    if (bytes == 0) return false;
    // All three blocks are made and stored before any is checked or filled: when one cannot be
    // made, the others are still handed back, empty. The three may be one variable of the host
    // program's: what it holds is let go before each store.
    *red = REALNewMemoryBlock(bytes);
    ReleaseBlock(green);
    *green = REALNewMemoryBlock(bytes);
    ReleaseBlock(blue);
    *blue = REALNewMemoryBlock(bytes);
    if (*red == nullptr || *green == nullptr || *blue == nullptr) return false;
    return FillBlock(*red, r, bytes) && FillBlock(*green, g, bytes) && FillBlock(*blue, b, bytes);
}

bool SetColorMap(REALobject self, REALmemoryBlock red, REALmemoryBlock green, REALmemoryBlock blue) {
    if (RaiseIfNil(red, "red memoryblock is nil") || RaiseIfNil(green, "green memoryblock is nil") ||
        RaiseIfNil(blue, "blue memoryblock is nil"))
        return false;
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr) return false;
    void* r = REALMemoryBlockGetPtr(red);
    void* g = REALMemoryBlockGetPtr(green);
    void* b = REALMemoryBlockGetPtr(blue);
    if (RaiseIfNil(r, "red memoryblock is nil") || RaiseIfNil(g, "green memoryblock is nil") ||
        RaiseIfNil(b, "blue memoryblock is nil"))
        return false;
    // libtiff copies 2 << BitsPerSample bytes from each block.
    const int64_t bytes = ChannelBytes(tiff);
    if (bytes == 0 || !BlockHolds(red, bytes) || !BlockHolds(green, bytes) || !BlockHolds(blue, bytes))
        return false;
    return TIFFSetField(tiff, TIFFTAG_COLORMAP, r, g, b) == 1;
}

}  // namespace tqv
