// Bilevel export: the session's Pict into the current image as 1-bit data. The caller's image
// tags are kept; only unset ones are filled in (min-is-black, uncompressed, one row a strip).
#ifndef TQV_EXPORT_BILEVEL_H
#define TQV_EXPORT_BILEVEL_H

#include <tqv/plugin_abi.h>

namespace tqv {

// "WriteBW as boolean". A pixel is white when R + G + B is at least 128 (a threshold on the sum,
// not the mean: only very dark pixels become black). White pixels are 1 bits for min-is-black,
// black pixels for min-is-white; the first pixel of a row goes into the most significant bit
// whatever the fill order (libtiff reverses bytes for FillOrder 2). Any other photometric or fill
// order writes nothing and answers true. Mask is not used; the directory is written later.
bool WriteBW(REALobject object);

}  // namespace tqv

#endif  // TQV_EXPORT_BILEVEL_H
