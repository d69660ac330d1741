// Grey export: the session's Pict into the current image as one 8- or 16-bit sample a pixel.
#ifndef TQV_EXPORT_GRAY_H
#define TQV_EXPORT_GRAY_H

#include <tqv/plugin_abi.h>

namespace tqv {

// "WriteGray as boolean". The grey value is the pixel's red channel, unweighted: V, or V × 257 at
// 16 bits (the caller's BitsPerSample when it is 16, else 8-bit samples are written, whatever
// the tag says). Any photometric other than min-is-black inverts the values. Sets size, planar
// configuration, depth and samples; fills in the other tags the caller left unset. Mask is not
// used; the directory is written later.
bool WriteGray(REALobject object);

}  // namespace tqv

#endif  // TQV_EXPORT_GRAY_H
