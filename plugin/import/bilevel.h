// Bilevel import: a 1-bit image (or a rectangle of it) decoded straight from its scanlines into
// the session's Pict, without libtiff's RGBA conversion; optionally reduced by 8 for a preview.
// Mask stays nil.
#ifndef TQV_IMPORT_BILEVEL_H
#define TQV_IMPORT_BILEVEL_H

#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

// "ReadBW as boolean": the whole image; false without touching the pictures when nothing is open.
bool ReadBW(REALobject object);
// "ReadBW(left as integer, top as integer, width as integer, height as integer) as boolean".
bool ReadBWrect(REALobject object, int32_t left, int32_t top, int32_t width, int32_t height);
// "ReadPreviewBW as boolean": the whole image, one pixel per 8 × 8 block.
bool ReadBWpreview(REALobject object);
// "ReadPreviewBW(left, top, width, height) as boolean": the top-left pixel of each 8 × 8 block
// of the rectangle (at least 8 × 8), ⌈width / 8⌉ × ⌈height / 8⌉ pixels.
bool ReadBWpreviewrect(REALobject object, int32_t left, int32_t top, int32_t width, int32_t height);

}  // namespace tqv

#endif  // TQV_IMPORT_BILEVEL_H
