// Full-colour import: the current image, rendered by libtiff's RGBA interface, into the session's
// colour picture `Pict` and grey mask picture `Mask` (255 - alpha: black is opaque).
#ifndef TQV_IMPORT_FULL_COLOUR_H
#define TQV_IMPORT_FULL_COLOUR_H

#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

struct TiffData;

// "ReadRGB as boolean": the whole image at full size. Also called after a directory change and
// by FolderItem.OpenAsTiffTQV. False when no image is open or libtiff cannot render it; true
// with nil pictures for a side over 32,767 pixels.
bool ReadRGB(REALobject object);
// "ReadPreviewRGB(ReduceFactor as integer) as boolean": every f-th pixel of every f-th row,
// starting at the top-left one; false for a factor below 1.
bool PreviewReadRGB(REALobject object, int32_t reduceFactor);
// The full-size read on a bare record: no yields, `current` untouched. With `maskAttached`,
// the read may write the mask straight into the colour picture's own mask instead of `Mask`
// (for a caller that attaches it anyway) and says whether it did; `Mask` then stays nil.
bool ReadRGBRecord(TiffData* record, bool* maskAttached = nullptr);

// One picture from a filled raster (libtiff's bottom-up RGBA words, width × height), built top
// row first; yields after each row. Nil when the host cannot make a picture of that size.
REALpicture MakePicturePict(REALobject object, const uint32_t* raster, uint32_t width, uint32_t height);
REALpicture MakePictureMask(REALobject object, const uint32_t* raster, uint32_t width, uint32_t height);

}  // namespace tqv

#endif  // TQV_IMPORT_FULL_COLOUR_H
