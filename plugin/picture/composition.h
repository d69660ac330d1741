// Combining host pictures: drawing one into another, attaching masks.
//
// Drawing goes through the host's own graphics method when it has one (found by its exact
// declaration), else through a direct copy of pixel records, which supports only a full,
// unscaled copy at the origin.
#ifndef TQV_PICTURE_COMPOSITION_H
#define TQV_PICTURE_COMPOSITION_H

#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

// Draws `source` into `destination` through `graphics` (the destination's graphics object).
bool GraphicsDrawPicture(REALgraphics graphics, REALpicture destination, REALpicture source, int32_t x,
                         int32_t y, int32_t w, int32_t h, int32_t sx, int32_t sy, int32_t sw, int32_t sh);
// The same, getting (and releasing) the destination's graphics object itself.
bool GraphicsDrawPicture(REALpicture destination, REALpicture source, int32_t x, int32_t y, int32_t w,
                         int32_t h, int32_t sx, int32_t sy, int32_t sw, int32_t sh);
// Copies every row of `source` into `destination` when both are pixel records of one size and
// the request is a full copy at the origin.
bool OwnCopy(REALpicture destination, REALpicture source, int32_t x, int32_t y, int32_t w, int32_t h,
             int32_t sx, int32_t sy, int32_t sw, int32_t sh);
// Draws `mask` into the picture's own mask (made when missing); true for a nil mask.
bool AddPictureMask(REALpicture picture, REALpicture mask);
// `picture` (one more lock) when `mask` is nil; otherwise a picture carrying `mask`: a new one
// of width × height when `makeNew`, else `picture` itself with its mask drawn over.
REALpicture CreatePictureWithMask(REALpicture picture, REALpicture mask, bool makeNew, int32_t width,
                                  int32_t height);

}  // namespace tqv

#endif  // TQV_PICTURE_COMPOSITION_H
