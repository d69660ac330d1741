// The frame shared by the importers that decode raw scanlines themselves (bilevel and
// lookup-table reads): tag fetch, range checks, strip priming, one scanline buffer, and a picture
// written row by row through a PictureWriter. Each importer brings only its row decoders.
#ifndef TQV_IMPORT_SCANLINE_IMPORT_H
#define TQV_IMPORT_SCANLINE_IMPORT_H

#include <tiffio.h>
#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

// The current image as the scanline importers see it.
struct ScanlineImage {
    uint32_t width = 0;
    uint32_t length = 0;
    uint16_t bitsPerSample = 0;
    uint16_t samplesPerPixel = 0;
    uint16_t fillOrder = 0;
    uint16_t photometric = 0;
    uint32_t rowsPerStrip = 0;
    int64_t scanlineSize = 0;
};

// A rectangle of the image in host integers, as the host program passed it.
struct SourceRect {
    int32_t left, top, width, height;
};

// What one row decoder needs besides the scanline.
struct RowArgs {
    uint32_t left;        // first source column
    uint32_t step;        // source columns per output pixel
    int32_t count;        // output pixels
    const void* context;  // the importer's own data (colour tables, bit colours)
};

// Decodes one output row into the writer's row; chosen once per read for the writer's layout.
using RowDecoder = void (*)(uint8_t* out, const uint8_t* scanline, const RowArgs& args);

struct ScanlineImporter {
    // 1: every row and column; 8: a preview of the top-left pixel of each 8 × 8 block.
    uint32_t sampling;
    // Bilevel reads also need the photometric interpretation.
    bool fetchPhotometric;
    // The sample layout is one the importer decodes (checked with the rectangle).
    bool (*accepts)(const ScanlineImage& image);
    // The decoder for the writer's layout, or nil to refuse the image once the writer exists.
    RowDecoder (*choose)(const ScanlineImage& image, int32_t pixelType, const void** context);
    const void* context;
};

// Reads `rect` of the current image into the session's Pict (Mask stays nil). False for every
// refusal; true with Pict nil when the host cannot make a picture of the result's size.
bool ReadScanlineRect(REALobject object, SourceRect rect, const ScanlineImporter& importer);

// ImageWidth and ImageLength of the session's open image; false when nothing is open or either
// tag cannot be read.
bool OpenImageSize(REALobject object, SourceRect& whole);

// ---- Pixel layouts of the picture writer ------------------------------------------------------

struct PutXRGB {
    static constexpr int kBytes = 4;
    static void Put(uint8_t* o, uint8_t r, uint8_t g, uint8_t b) { o[0] = 255, o[1] = r, o[2] = g, o[3] = b; }
};
struct PutRGB {
    static constexpr int kBytes = 3;
    static void Put(uint8_t* o, uint8_t r, uint8_t g, uint8_t b) { o[0] = r, o[1] = g, o[2] = b; }
};
struct PutBGRX {
    static constexpr int kBytes = 4;
    static void Put(uint8_t* o, uint8_t r, uint8_t g, uint8_t b) { o[0] = b, o[1] = g, o[2] = r, o[3] = 0; }
};

}  // namespace tqv

#endif  // TQV_IMPORT_SCANLINE_IMPORT_H
