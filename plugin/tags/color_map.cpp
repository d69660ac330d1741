#include "tags/color_map.h"

#include <tiffio.h>

#include <cstdarg>
#include <cstring>
#include <utility>

#include "bridge/services.h"
#include "bridge/values.h"
#include "session/tiff_data.h"
#include "tags/tag_access.h"

namespace tqv {
namespace {

// libtiff sizes a colour map by BitsPerSample and holds none beyond 16 bits; a larger depth
// would make the three arrays larger than any colour map libtiff keeps.
constexpr uint16_t kMaxPaletteBits = 16;

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
    va_list peek;
    va_copy(peek, ap);
    const auto bits = static_cast<uint16_t>(va_arg(peek, int));  // libtiff reads it as uint16_vap
    va_end(peek);
    return KeepsDepth(tiff, bits);
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
    va_list peek;
    va_copy(peek, ap);
    const auto compression = static_cast<uint16_t>(va_arg(peek, int));  // read as uint16_vap
    va_end(peek);
    return compression != COMPRESSION_OJPEG;
}

// libtiff 4.5 leaves the tags a codec kept in its own state marked as set when the compression
// changes (and the marks are shared between codecs), so writing the directory asks the new codec
// for them: it refuses, and the writer writes values it never received (for JPEGTables and the fax
// texts, through stray pointers). Their values went with the old codec.
void ForgetCodecTags(TIFF* tiff, uint16_t compression) {
    for (uint32_t tag : TagsSetByCodec(compression)) {
        // Under a definition met in a file or given by the program, the value is an ordinary
        // custom value of the directory's own, which stays.
        if (IsCodecDefinition(TIFFFindField(tiff, tag, TIFF_ANY))) TIFFUnsetField(tiff, tag);
    }
}

int GuardedSetField(TIFF* tiff, uint32_t tag, va_list ap) {
    NoteHandleChange(tiff);
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
    // made, the others are still handed back, empty.
    *red = REALNewMemoryBlock(bytes);
    *green = REALNewMemoryBlock(bytes);
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
