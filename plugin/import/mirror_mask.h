// Two operations that round off picture import: exchanging the scanlines of two open sessions in
// mirrored order, and merging the session's Pict and Mask into one picture with transparency.
#ifndef TQV_IMPORT_MIRROR_MASK_H
#define TQV_IMPORT_MIRROR_MASK_H

#include <tqv/plugin_abi.h>

namespace tqv {

// "MirrorVertical(output as TiffPictureTQV) as boolean": for every row i of this image (height
// h), this session's row i and output's row h - 1 - i are read, then written crosswise. Afterwards
// this image holds output's rows bottom-up and output holds this image's rows bottom-up. Only a
// call answering exactly 0 stops the exchange (libtiff's -1 does not). Striped images are read
// and rewritten a whole strip at a time. False for a nil or closed output, one whose rows are
// longer than this image's, or when the strip buffers cannot be had.
bool MirrorVertical(REALobject self, REALobject output);

// "CombinePictureWithMask as picture": a new picture of Pict's size carrying Mask (Pict itself,
// one more reference, when Mask is nil); nil when Pict is nil. The session keeps both pictures.
REALpicture CombinePictureWithMask(REALobject self);

}  // namespace tqv

#endif  // TQV_IMPORT_MIRROR_MASK_H
