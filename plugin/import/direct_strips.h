// The direct full-colour read: strips or tiles of the common 8-bit layouts decoded straight
// into the colour and mask pictures, without libtiff's full RGBA raster.
//
// It gives the same bytes as the raster path: the samples go through the tables libtiff's own
// RGBA setup builds (grey and palette expansion, premultiplication of unassociated alpha). It
// declines anything else — another layout or orientation, a strip that does not decode fully,
// any message from libtiff — and then leaves nothing behind, so
// the caller runs the raster path, which reports and renders as it always has.
#ifndef TQV_IMPORT_DIRECT_STRIPS_H
#define TQV_IMPORT_DIRECT_STRIPS_H

#include <tiffio.h>
#include <tqv/plugin_abi.h>

namespace tqv {

struct DirectPictures {
    REALpicture mask = nullptr;  // one lock each, for the caller
    REALpicture pict = nullptr;
};

// True with the pictures made and filled (one the host could not make stays nil, as on the
// raster path); false with nothing made. Never yields: host code run by a yield could close
// `tiff`.
bool ReadDirect(TIFF* tiff, DirectPictures& out);

// False when the environment variable TQV_FORCE_RGBA_PATH is set (read once): tests compare the
// direct read with the raster path through it.
bool DirectPathEnabled();

}  // namespace tqv

#endif  // TQV_IMPORT_DIRECT_STRIPS_H
