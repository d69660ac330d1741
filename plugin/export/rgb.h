// RGB export: the session's `Pict` picture, with its `Mask` as alpha, into the current image.
#ifndef TQV_EXPORT_RGB_H
#define TQV_EXPORT_RGB_H

#include <tqv/plugin_abi.h>

namespace tqv {

// "WriteRGB as boolean": 8-bit RGB scanlines (RGBA with unassociated alpha when a mask is held;
// the mask's red byte is the alpha unchanged, so white is opaque). Sets the image-structure tags
// and fills in descriptive ones the caller left unset; the directory is written later. True when
// every row was written.
bool WriteRGB(REALobject object);

}  // namespace tqv

#endif  // TQV_EXPORT_RGB_H
