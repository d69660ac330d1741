#include "tags/color_map.h"

#include <tiffio.h>

#include <cstring>
#include <utility>

#include "bridge/services.h"
#include "bridge/values.h"
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

bool FillBlock(REALmemoryBlock* slot, const uint16_t* values, int64_t bytes) {
    *slot = REALNewMemoryBlock(bytes);
    void* target = *slot != nullptr ? REALMemoryBlockGetPtr(*slot) : nullptr;
    if (target == nullptr) return false;
    std::memcpy(target, values, static_cast<size_t>(bytes));
    return true;
}

}  // namespace

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
    // Each block is stored as soon as it exists, so a failure leaves the ones already made.
    return FillBlock(red, r, bytes) && FillBlock(green, g, bytes) && FillBlock(blue, b, bytes);
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
