#include "import/rgba_memory.h"

#include <tiffio.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "bridge/handles.h"
#include "bridge/memory.h"
#include "bridge/services.h"
#include "bridge/values.h"
#include "import/direct_strips.h"
#include "import/rgba_begin.h"
#include "platform/page_advice.h"
#include "platform/vector_paths.h"
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
    AdviseWholeWrite(data, static_cast<size_t>(bytes));
    return raster;
}

// ---- The held state -------------------------------------------------------------------------

// What libtiff's state depends on: the handle and the directory read it was begun on, the fields
// that set up its decoder, and the buffer sizes the decoders assume. Host code may close the file,
// open another or change directory between Begin and Step, and a new handle may get the address
// and the directory offset of the old one; or it may set a field, such as the JPEG colour mode
// that Begin chose, behind the state's back. A state that no longer matches would decode with the
// wrong setup, or into buffers of the wrong size, so Step refuses it.
struct Signature {
    TIFF* tiff;
    uintptr_t changes;
    uint64_t directoryOffset;
    uint32_t directory;
    uint64_t scanlineSize;
    uint64_t chunkSize;

    static Signature Of(TIFF* tiff) {
        const bool tiled = TIFFIsTiled(tiff) != 0;
        return {tiff,
                ChangeMark(tiff),
                TIFFCurrentDirOffset(tiff),
                TIFFCurrentDirectory(tiff),
                TIFFScanlineSize64(tiff),
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

// Whether libtiff 4.5 places `col_offset` right. The whole width needs no offset at all.
// Otherwise strips advance col_offset × samples bytes, true only when every pixel is that many
// bytes (8-bit contiguous samples, not packed in subsampling blocks); tiles are right from any
// tile boundary. (The columns a row leaves out on its right are skipped right for every layout
// once BeginRgbaImage has replaced libtiff's skewed grey and palette packers.)
bool LibtiffPlacesColumns(const TIFFRGBAImage& image, const Rect& r) {
    // Subsampled data is placed by rows too: see BandAlignment.
    if (image.photometric == PHOTOMETRIC_YCBCR) return false;
    if (r.x == 0 && r.width == image.width) return true;
    const bool blockPacked = image.photometric == PHOTOMETRIC_LOGL || image.photometric == PHOTOMETRIC_LOGLUV;
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

// ---- Strips packed here ----------------------------------------------------------------------
//
// For the commonest layout (8-bit RGB, or RGBA with associated alpha, contiguous, in strips or
// tiles, top-left) the rectangle is packed here instead of by libtiff's row packer: the same strips are
// decoded, each to the same number of bytes libtiff asks for, and rows are packed at a few
// instructions a pixel (libtiff's packer takes about ten). The moment libtiff says anything, or a
// strip comes back short, the attempt is dropped and libtiff renders the whole rectangle as it
// always did, so pixels, failures and messages stay libtiff's own. TQV_FORCE_RGBA_PATH in the
// environment turns the packing off, for tests that compare the two.

static_assert(std::endian::native == std::endian::little, "packed words assume a little-endian host");

enum class Packing { None, Rgb, Rgba };

// A strip or tile buffer larger than libtiff itself may allocate for the handle is left to libtiff.
constexpr uint64_t kMaxStripBytes = uint64_t{256} << 20;

struct FreeDeleter {
    void operator()(void* p) const noexcept { std::free(p); }
};
using Buffer = std::unique_ptr<uint8_t[], FreeDeleter>;

// What libtiff's setup chose for this image decides whether its packer is the plain one.
Packing PackingOf(const TIFFRGBAImage& image) {
    if (image.get == nullptr || image.put.any == nullptr) return Packing::None;
    if (!image.isContig || image.bitspersample != 8 || image.photometric != PHOTOMETRIC_RGB)
        return Packing::None;
    if (image.orientation != ORIENTATION_TOPLEFT || image.req_orientation != ORIENTATION_BOTLEFT)
        return Packing::None;
    // As stored: YCbCr that a codec turns into RGB stays with libtiff.
    uint16_t stored = 0;
    if (TIFFGetField(image.tif, TIFFTAG_PHOTOMETRIC, &stored) != 1 || stored != PHOTOMETRIC_RGB)
        return Packing::None;
    // Codecs whose messages repeat whenever a strip is decoded again (see OldStyleLzw).
    uint16_t compression = 0, fillOrder = 0;
    TIFFGetFieldDefaulted(image.tif, TIFFTAG_COMPRESSION, &compression);
    TIFFGetFieldDefaulted(image.tif, TIFFTAG_FILLORDER, &fillOrder);
    const bool plainCodec = compression == COMPRESSION_NONE || compression == COMPRESSION_PACKBITS ||
                            compression == COMPRESSION_ADOBE_DEFLATE || compression == COMPRESSION_DEFLATE ||
                            (compression == COMPRESSION_LZW && fillOrder == FILLORDER_MSB2LSB);
    if (!plainCodec) return Packing::None;
    if (image.samplesperpixel == 3 && image.alpha == 0) return Packing::Rgb;
    if (image.samplesperpixel == 4 && image.alpha == EXTRASAMPLE_ASSOCALPHA) return Packing::Rgba;
    return Packing::None;
}

// R, G, B and A = 255. Four pixels at a time from three 32-bit loads: a few shifts a pixel,
// where a byte-gathering loop would cost a dozen shuffles.
void PackRgbRowPortable(uint32_t* out, const uint8_t* in, uint32_t count) {
    constexpr uint32_t kOpaque = 0xFF000000u;
    uint32_t x = 0;
    for (; x + 4 <= count; x += 4, in += 12) {
        uint32_t a, b, c;
        std::memcpy(&a, in, 4);
        std::memcpy(&b, in + 4, 4);
        std::memcpy(&c, in + 8, 4);
        out[x] = a | kOpaque;
        out[x + 1] = (a >> 24) | (b << 8) | kOpaque;
        out[x + 2] = (b >> 16) | (c << 16) | kOpaque;
        out[x + 3] = (c >> 8) | kOpaque;
    }
    for (; x < count; ++x, in += 3)
        out[x] = uint32_t{in[0]} | uint32_t{in[1]} << 8 | uint32_t{in[2]} << 16 | kOpaque;
}

#if defined(__x86_64__)
// One byte shuffle for four pixels where the processor has SSSE3 (every x86-64 processor of the
// last fifteen years). A 16-byte load uses 12: it runs while 16 bytes of the row remain.
[[gnu::target("ssse3")]] void PackRgbRowSsse3(uint32_t* out, const uint8_t* in, uint32_t count) {
    const __m128i spread = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    const __m128i opaque = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    uint32_t x = 0;
    for (; x + 6 <= count; x += 4, in += 12) {
        const __m128i samples = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x),
                         _mm_or_si128(_mm_shuffle_epi8(samples, spread), opaque));
    }
    PackRgbRowPortable(out + x, in, count - x);
}

void PackRgbRow(uint32_t* out, const uint8_t* in, uint32_t count) {
    if (UseSsse3())
        PackRgbRowSsse3(out, in, count);
    else
        PackRgbRowPortable(out, in, count);
}
#else
void PackRgbRow(uint32_t* out, const uint8_t* in, uint32_t count) {
    PackRgbRowPortable(out, in, count);
}
#endif

// R, G, B, A are already the word's bytes in memory order.
void PackRgbaRow(uint32_t* out, const uint8_t* in, uint32_t count) {
    std::memcpy(out, in, size_t{count} * 4);
}

// Packs `count` pixels of one row; chosen once for the image.
using RowPacker = void (*)(uint32_t* out, const uint8_t* in, uint32_t count);

// The rectangle, bottom row first, as libtiff's strip reader renders it: for each run of rows
// within one strip it decodes the strip up to the run's last row, rounded up to the vertical
// YCbCr subsampling (2 by default, even for RGB). False when the attempt was dropped; the raster
// may then hold some rows.
bool PackStrips(const TIFFRGBAImage& image, uint32_t* pixels, const Rect& r, RowPacker pack) {
    TIFF* tiff = image.tif;
    uint16_t subsamplingHor = 0, subsamplingVer = 0;
    uint32_t rowsPerStrip = 0;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_YCBCRSUBSAMPLING, &subsamplingHor, &subsamplingVer);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
    const uint64_t samples = image.samplesperpixel;
    const uint64_t scanline = TIFFScanlineSize64(tiff);
    const uint64_t stripBytes = TIFFStripSize64(tiff);
    if (subsamplingVer == 0 || rowsPerStrip == 0 || scanline != uint64_t{image.width} * samples ||
        stripBytes == 0 || stripBytes > kMaxStripBytes)
        return false;
    const Buffer buffer(static_cast<uint8_t*>(std::malloc(static_cast<size_t>(stripBytes))));
    if (buffer == nullptr) return false;
    const QuietMessages quiet;
    for (uint32_t row = 0; row < r.height;) {
        const uint32_t fileRow = r.y + row;
        const uint32_t inStrip = fileRow % rowsPerStrip;
        const uint32_t rows = std::min(rowsPerStrip - inStrip, r.height - row);
        uint64_t rowsDecoded = uint64_t{inStrip} + rows;
        if (rows % subsamplingVer != 0) rowsDecoded += subsamplingVer - rows % subsamplingVer;
        // libtiff counts these rows in 32 bits; anything near the limit stays with it.
        if (rowsDecoded > UINT32_MAX || rowsDecoded > static_cast<uint64_t>(INT64_MAX) / scanline)
            return false;
        const uint32_t strip = TIFFComputeStrip(tiff, fileRow, 0);
        if (OldStyleLzw(tiff, strip)) return false;
        const tmsize_t got =
            TIFFReadEncodedStrip(tiff, strip, buffer.get(), static_cast<tmsize_t>(rowsDecoded * scanline));
        if (got < 0 || !quiet.Silent() || static_cast<uint64_t>(got) < (uint64_t{inStrip} + rows) * scanline)
            return false;
        const uint8_t* in = buffer.get() + inStrip * scanline + r.x * samples;
        for (uint32_t j = 0; j < rows; ++j, in += scanline) {
            uint32_t* out = pixels + size_t{r.height - 1 - (row + j)} * r.width;
            pack(out, in, r.width);
        }
        row += rows;
    }
    return true;
}

// The same for tiles, as libtiff's tile reader renders them: for each band of rows within one
// row of tiles, every tile the rectangle touches is decoded whole, left to right.
bool PackTiles(const TIFFRGBAImage& image, uint32_t* pixels, const Rect& r, RowPacker pack) {
    TIFF* tiff = image.tif;
    uint32_t tileWidth = 0, tileLength = 0;
    if (TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &tileWidth) != 1 ||
        TIFFGetField(tiff, TIFFTAG_TILELENGTH, &tileLength) != 1 || tileWidth == 0 || tileLength == 0)
        return false;
    const uint64_t samples = image.samplesperpixel;
    const uint64_t tileRow = TIFFTileRowSize64(tiff);
    const uint64_t tileBytes = TIFFTileSize64(tiff);
    // libtiff refuses (with a message) tiles that do not fit its 32-bit skews.
    if (tileRow != uint64_t{tileWidth} * samples || tileBytes != tileRow * tileLength ||
        tileBytes > kMaxStripBytes || uint64_t{tileWidth} + r.width > INT_MAX)
        return false;
    const Buffer buffer(static_cast<uint8_t*>(std::malloc(static_cast<size_t>(tileBytes))));
    if (buffer == nullptr) return false;
    const QuietMessages quiet;
    for (uint32_t row = 0; row < r.height;) {
        const uint32_t fileRow = r.y + row;
        const uint32_t inTile = fileRow % tileLength;
        const uint32_t rows = std::min(tileLength - inTile, r.height - row);
        for (uint32_t done = 0; done < r.width;) {
            const uint32_t column = r.x + done;
            const uint32_t skipped = column % tileWidth;  // only in the leftmost tile
            const uint32_t columns = std::min(tileWidth - skipped, r.width - done);
            if (OldStyleLzw(tiff, TIFFComputeTile(tiff, column, fileRow, 0, 0))) return false;
            const tmsize_t got = TIFFReadTile(tiff, buffer.get(), column, fileRow, 0, 0);
            if (got < 0 || !quiet.Silent() || static_cast<uint64_t>(got) < tileBytes) return false;
            const uint8_t* in = buffer.get() + inTile * tileRow + skipped * samples;
            for (uint32_t j = 0; j < rows; ++j, in += tileRow) {
                uint32_t* out = pixels + size_t{r.height - 1 - (row + j)} * r.width + done;
                pack(out, in, columns);
            }
            done += columns;
        }
        row += rows;
    }
    return true;
}

// The rectangle through the packing above when it applies, else (or when dropped) by libtiff
// with its own offsets.
bool GetPlaced(TIFFRGBAImage& image, uint32_t* pixels, const Rect& r) {
    const Packing packing = DirectPathEnabled() ? PackingOf(image) : Packing::None;
    if (packing != Packing::None) {
        const RowPacker pack = packing == Packing::Rgb ? PackRgbRow : PackRgbaRow;
        const bool packed =
            TIFFIsTiled(image.tif) ? PackTiles(image, pixels, r, pack) : PackStrips(image, pixels, r, pack);
        if (packed) return true;
    }
    return GetDirect(image, pixels, r);
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

// The rows a band must start on. libtiff finds the first row of a band inside its strip or tile
// by whole scanlines, which YCbCr data packed in subsampling blocks does not have: a band that
// starts inside a strip or tile of such data reads from the wrong place, and past the strip or
// tile buffer. Bands of it start where a strip or a row of tiles starts, as whole images do.
uint32_t BandAlignment(const TIFFRGBAImage& image) {
    if (image.photometric != PHOTOMETRIC_YCBCR) return 1;
    uint32_t rows = 0;
    if (TIFFIsTiled(image.tif))
        TIFFGetField(image.tif, TIFFTAG_TILELENGTH, &rows);
    else
        TIFFGetFieldDefaulted(image.tif, TIFFTAG_ROWSPERSTRIP, &rows);
    return std::clamp<uint32_t>(rows, 1, image.height);
}

// Renders full-width bands of the rectangle's rows and copies its columns out, placing rows and
// columns exactly where a correct col_offset would have put them.
bool GetBanded(TIFFRGBAImage& image, uint32_t* pixels, const Rect& r) {
    const int64_t rowBytes = int64_t{image.width} * 4;
    const uint32_t align = BandAlignment(image);
    const int64_t fitting = std::max<int64_t>(kBandBytes / rowBytes / align, 1) * align;
    const auto bandRows = static_cast<uint32_t>(std::min<int64_t>(fitting, int64_t{r.height} + align - 1));
    const ClearMemoryPtr<uint32_t> band(static_cast<uint32_t*>(AllocateClearMemory(rowBytes * bandRows)));
    if (band == nullptr) return false;
    const uint32_t column = FlipsColumns(image.orientation) ? image.width - r.x - r.width : r.x;
    const bool flipped = FlipsRows(image.orientation);
    const uint32_t end = r.y + r.height;
    image.col_offset = 0;
    for (uint32_t first = r.y; first < end;) {
        const uint32_t start = first - first % align;
        const uint32_t rows = std::min(bandRows, image.height - start);
        image.row_offset = static_cast<int>(start);
        if (TIFFRGBAImageGet(&image, band.get(), image.width, rows) == 0) return false;
        const uint32_t last = std::min(start + rows, end);
        // Band row 0 is the band's last file row when rows are flipped, else its first; so is
        // block row 0 of the rectangle's.
        for (uint32_t f = first; f < last; ++f) {
            const uint32_t from = flipped ? start + rows - 1 - f : f - start;
            const uint32_t to = flipped ? end - 1 - f : f - r.y;
            std::memcpy(pixels + size_t{to} * r.width, band.get() + size_t{from} * image.width + column,
                        size_t{r.width} * 4);
        }
        first = last;
    }
    return true;
}

}  // namespace

REALmemoryBlock ReadRGBMemory(REALobject object, REALstring* errorMessage) {
    ClearMessage(errorMessage);
    TiffData* record = TiffDataOf(object);
    if (record == nullptr || record->tiff == nullptr) return nullptr;
    TIFF* const tiff = record->tiff;
    if (!RowsReadable(tiff, "TIFFRGBAImageBegin")) return nullptr;
    char message[kMessageBytes] = {};
    TIFFRGBAImage image{};
    Raster raster;
    if (BeginRgbaImage(&image, tiff, message)) {
        raster = NewRaster(RasterBytes(image.width, image.height));
        // Rendered straight into the host's block.
        if (raster.pixels == nullptr || !GetPlaced(image, raster.pixels, {0, 0, image.width, image.height}))
            raster = {};
        TIFFRGBAImageEnd(&image);
    }
    // A handler that closed the session ends the read, as it ends every operation.
    if (record->tiff != tiff) raster = {};
    SetMessage(errorMessage, message);
    return raster.block.Release();
}

bool ReadRGBMemoryBegin(REALobject object, REALstring* errorMessage) {
    ClearMessage(errorMessage);
    TiffData* record = TiffDataOf(object);
    if (record == nullptr || record->tiff == nullptr) return false;
    TIFF* const tiff = record->tiff;
    EndState(record);
    if (!RowsReadable(tiff, "TIFFRGBAImageBegin")) return false;
    auto* state = static_cast<RgbaState*>(AllocateClearMemory(sizeof(RgbaState)));
    if (state == nullptr) return false;
    char message[kMessageBytes] = {};
    bool begun = BeginRgbaImage(&state->image, tiff, message);
    if (begun && record->tiff != tiff) {
        // A handler closed the session: nothing is held for a handle that is going.
        TIFFRGBAImageEnd(&state->image);
        begun = false;
    }
    if (begun) {
        state->signature = Signature::Of(tiff);
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
    if (!RowsReadable(record->tiff, "TIFFRGBAImageGet")) return nullptr;
    TIFFRGBAImage& image = state->image;
    if (!Inside(image, x, y, width, height)) return nullptr;
    const Rect r{static_cast<uint32_t>(x), static_cast<uint32_t>(y), static_cast<uint32_t>(width),
                 static_cast<uint32_t>(height)};
    Raster raster = NewRaster(RasterBytes(r.width, r.height));
    if (raster.pixels == nullptr) return nullptr;
    TIFF* const tiff = record->tiff;
    const bool got = LibtiffPlacesColumns(image, r) ? GetPlaced(image, raster.pixels, r)
                                                    : GetBanded(image, raster.pixels, r);
    if (!got || record->tiff != tiff) return nullptr;
    // Decoding may set up the codec again through its fields; that is the state's own doing.
    state->signature.changes = ChangeMark(tiff);
    return raster.block.Release();
}

void ReadRGBMemoryEnd(REALobject object) {
    if (TiffData* record = TiffDataOf(object)) EndState(record);
}

}  // namespace tqv
