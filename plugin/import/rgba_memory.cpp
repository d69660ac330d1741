#include "import/rgba_memory.h"

#include <tiffio.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <type_traits>

#include "bridge/handles.h"
#include "bridge/memory.h"
#include "bridge/services.h"
#include "bridge/values.h"
#include "session/tiff_data.h"

namespace tqv {
namespace {

// libtiff's message buffer for TIFFRGBAImageBegin (EMSG_BUF_SIZE).
constexpr size_t kMessageBytes = 1024;
// A rectangle libtiff cannot place by itself is rendered in full-width bands of at most this
// many bytes, so a tile of a very wide image never needs the whole image in memory.
constexpr int64_t kBandBytes = int64_t{16} << 20;

// ---- The byref error text ---------------------------------------------------------------------

void ClearMessage(REALstring* slot) {
    if (slot == nullptr) return;
    if (REALstring old = *slot) REALUnlockString(old);
    *slot = nullptr;
}

// The text up to the first zero, labelled ASCII; empty (not nil) when libtiff wrote nothing.
void SetMessage(REALstring* slot, const char (&message)[kMessageBytes]) {
    if (slot == nullptr) return;
    const size_t length = strnlen(message, kMessageBytes);
    REALstring text = originalREALBuildString(message, static_cast<int32_t>(length));
    if (text != nullptr) REALSetStringEncoding(text, kREALTextEncodingASCII);
    *slot = text;
}

// ---- Blocks ---------------------------------------------------------------------------------

// Bytes of a width × height raster, or 0 when there is nothing to render or a host block could
// not hold it.
int64_t RasterBytes(uint32_t width, uint32_t height) {
    constexpr uint64_t kMaxBlock = 2147483646;
    if (width == 0 || height == 0 || height > kMaxBlock / 4 / width) return 0;
    return static_cast<int64_t>(uint64_t{width} * height * 4);
}

struct Raster {
    MemoryBlockRef block;
    uint32_t* pixels = nullptr;
};

// A new block with its pixels, or an empty raster. libtiff stores 32-bit words: a block the host
// does not align for them is not used.
Raster NewRaster(int64_t bytes) {
    Raster raster;
    if (bytes <= 0) return raster;
    raster.block = MemoryBlockRef::Steal(REALNewMemoryBlock(bytes));
    void* data = raster.block ? REALMemoryBlockGetPtr(raster.block.get()) : nullptr;
    if (data == nullptr || reinterpret_cast<uintptr_t>(data) % alignof(uint32_t) != 0) return {};
    raster.pixels = static_cast<uint32_t*>(data);
    return raster;
}

// ---- The held state -------------------------------------------------------------------------

// What libtiff's state depends on: the handle and the directory it was begun on, and the buffer
// sizes its decoders assume. Host code may close the file, open another or change directory
// between Begin and Step; a state that no longer matches would decode into buffers of the wrong
// size, so Step refuses it.
struct Signature {
    TIFF* tiff;
    uint64_t directoryOffset;
    uint32_t directory;
    uint64_t scanlineSize;
    uint64_t chunkSize;

    static Signature Of(TIFF* tiff) {
        const bool tiled = TIFFIsTiled(tiff) != 0;
        return {tiff, TIFFCurrentDirOffset(tiff), TIFFCurrentDirectory(tiff), TIFFScanlineSize64(tiff),
                tiled ? TIFFTileSize64(tiff) : TIFFStripSize64(tiff)};
    }
    bool operator==(const Signature&) const = default;
};

// The session holds &image; TiffClean ends it and frees the whole record through that pointer,
// which is why `image` comes first.
struct RgbaState {
    TIFFRGBAImage image;
    Signature signature;
};
static_assert(std::is_standard_layout_v<RgbaState> && offsetof(RgbaState, image) == 0);

RgbaState* StateOf(TiffData* record) {
    return reinterpret_cast<RgbaState*>(record->rgbaImage);
}

// libtiff 4.5 only frees memory when ending a state, without touching its handle, so a state
// whose file has been closed can still be ended.
void EndState(TiffData* record) {
    if (TIFFRGBAImage* image = std::exchange(record->rgbaImage, nullptr)) {
        TIFFRGBAImageEnd(image);
        FreeMemoryNow(image);
    }
}

// ---- Rendering a rectangle ------------------------------------------------------------------

struct Rect {
    uint32_t x, y, width, height;
};

bool Inside(const TIFFRGBAImage& image, int32_t x, int32_t y, int32_t width, int32_t height) {
    if (x < 0 || y < 0 || width < 1 || height < 1) return false;
    return uint64_t{static_cast<uint32_t>(x)} + static_cast<uint32_t>(width) <= image.width &&
           uint64_t{static_cast<uint32_t>(y)} + static_cast<uint32_t>(height) <= image.height;
}

// Whether libtiff 4.5 places `col_offset` right. For strips it advances col_offset × samples
// bytes, true only when every pixel is that many bytes (8-bit contiguous samples, not packed in
// subsampling blocks); for tiles it is right from any tile boundary. The whole width needs no
// offset at all.
bool LibtiffPlacesColumns(const TIFFRGBAImage& image, const Rect& r) {
    if (r.x == 0 && r.width == image.width) return true;
    const bool blockPacked = image.photometric == PHOTOMETRIC_YCBCR ||
                             image.photometric == PHOTOMETRIC_LOGL || image.photometric == PHOTOMETRIC_LOGLUV;
    if (image.isContig && image.bitspersample == 8 && !blockPacked) return true;
    uint32_t tileWidth = 0;
    return TIFFIsTiled(image.tif) && TIFFGetField(image.tif, TIFFTAG_TILEWIDTH, &tileWidth) == 1 &&
           tileWidth > 0 && r.x % tileWidth == 0;
}

bool GetDirect(TIFFRGBAImage& image, uint32_t* pixels, const Rect& r) {
    image.row_offset = static_cast<int>(r.y);
    image.col_offset = static_cast<int>(r.x);
    return TIFFRGBAImageGet(&image, pixels, r.width, r.height) != 0;
}

// The orientations for which libtiff mirrors rows or columns when it renders bottom-up.
bool FlipsRows(uint16_t orientation) {
    return orientation == ORIENTATION_TOPLEFT || orientation == ORIENTATION_LEFTTOP ||
           orientation == ORIENTATION_TOPRIGHT || orientation == ORIENTATION_RIGHTTOP;
}
bool FlipsColumns(uint16_t orientation) {
    return orientation == ORIENTATION_TOPRIGHT || orientation == ORIENTATION_RIGHTTOP ||
           orientation == ORIENTATION_BOTRIGHT || orientation == ORIENTATION_RIGHTBOT;
}

// Renders full-width bands of the rectangle's rows and copies its columns out, placing rows and
// columns exactly where a correct col_offset would have put them.
bool GetBanded(TIFFRGBAImage& image, uint32_t* pixels, const Rect& r) {
    const int64_t rowBytes = int64_t{image.width} * 4;
    const uint32_t bandRows = static_cast<uint32_t>(std::clamp<int64_t>(kBandBytes / rowBytes, 1, r.height));
    const ClearMemoryPtr<uint32_t> band(static_cast<uint32_t*>(AllocateClearMemory(rowBytes * bandRows)));
    if (band == nullptr) return false;
    const uint32_t column = FlipsColumns(image.orientation) ? image.width - r.x - r.width : r.x;
    image.col_offset = 0;
    for (uint32_t first = r.y; first < r.y + r.height; first += bandRows) {
        const uint32_t rows = std::min(bandRows, r.y + r.height - first);
        image.row_offset = static_cast<int>(first);
        if (TIFFRGBAImageGet(&image, band.get(), image.width, rows) == 0) return false;
        // Band row 0 is the band's last file row when rows are flipped, else its first.
        const uint32_t target = FlipsRows(image.orientation) ? r.y + r.height - first - rows : first - r.y;
        for (uint32_t j = 0; j < rows; ++j) {
            std::memcpy(pixels + size_t{target + j} * r.width, band.get() + size_t{j} * image.width + column,
                        size_t{r.width} * 4);
        }
    }
    return true;
}

}  // namespace

REALmemoryBlock ReadRGBMemory(REALobject object, REALstring* errorMessage) {
    ClearMessage(errorMessage);
    TiffData* record = TiffDataOf(object);
    if (record == nullptr || record->tiff == nullptr) return nullptr;
    char message[kMessageBytes] = {};
    TIFFRGBAImage image{};
    Raster raster;
    if (TIFFRGBAImageBegin(&image, record->tiff, 0, message) != 0) {
        raster = NewRaster(RasterBytes(image.width, image.height));
        // libtiff renders straight into the host's block.
        if (raster.pixels == nullptr ||
            TIFFRGBAImageGet(&image, raster.pixels, image.width, image.height) == 0)
            raster = {};
        TIFFRGBAImageEnd(&image);
    }
    SetMessage(errorMessage, message);
    return raster.block.Release();
}

bool ReadRGBMemoryBegin(REALobject object, REALstring* errorMessage) {
    ClearMessage(errorMessage);
    TiffData* record = TiffDataOf(object);
    if (record == nullptr || record->tiff == nullptr) return false;
    EndState(record);
    auto* state = static_cast<RgbaState*>(AllocateClearMemory(sizeof(RgbaState)));
    if (state == nullptr) return false;
    char message[kMessageBytes] = {};
    const bool begun = TIFFRGBAImageBegin(&state->image, record->tiff, 0, message) != 0;
    if (begun) {
        state->signature = Signature::Of(record->tiff);
        record->rgbaImage = &state->image;
    } else {
        FreeMemoryNow(state);
    }
    SetMessage(errorMessage, message);
    return begun;
}

REALmemoryBlock ReadRGBMemoryStep(REALobject object, int32_t x, int32_t y, int32_t width, int32_t height) {
    TiffData* record = TiffDataOf(object);
    if (record == nullptr || record->tiff == nullptr || record->rgbaImage == nullptr) return nullptr;
    RgbaState* state = StateOf(record);
    if (!(state->signature == Signature::Of(record->tiff))) return nullptr;
    TIFFRGBAImage& image = state->image;
    if (!Inside(image, x, y, width, height)) return nullptr;
    const Rect r{static_cast<uint32_t>(x), static_cast<uint32_t>(y), static_cast<uint32_t>(width),
                 static_cast<uint32_t>(height)};
    Raster raster = NewRaster(RasterBytes(r.width, r.height));
    if (raster.pixels == nullptr) return nullptr;
    const bool got = LibtiffPlacesColumns(image, r) ? GetDirect(image, raster.pixels, r)
                                                    : GetBanded(image, raster.pixels, r);
    return got ? raster.block.Release() : nullptr;
}

void ReadRGBMemoryEnd(REALobject object) {
    if (TiffData* record = TiffDataOf(object)) EndState(record);
}

}  // namespace tqv
