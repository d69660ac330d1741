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
    // In the colour picture's own mask: the read was declined because the host could not make
    // a picture, not because of the image.
    bool unmade = false;
};

// Where the grey mask goes: a picture of its own, or the colour picture's own mask (for a
// caller that would attach the one to the other anyway: a third full-size picture and the
// copy between them are saved).
enum class MaskPlace { Separate, InPict };

// True with the pictures made and filled; false with nothing made. Separately, a picture the
// host could not make stays nil, as on the raster path; in the colour picture's own mask, both
// must be made (`out.mask` stays nil; `out.unmade` tells a failed picture). Never yields: host code run by a
// yield could close `tiff`.
bool ReadDirect(TIFF* tiff, DirectPictures& out, MaskPlace place = MaskPlace::Separate);

// libtiff's handlers are process-wide. While a read that may decline runs, every message is only
// counted: a read that made libtiff say anything is declined, and libtiff's own path then
// delivers the messages exactly as it always has. Not nested: each one starts the count afresh.
class QuietMessages {
  public:
    QuietMessages();
    ~QuietMessages();
    QuietMessages(const QuietMessages&) = delete;
    QuietMessages& operator=(const QuietMessages&) = delete;
    bool Silent() const;

  private:
    TIFFErrorHandler error_;
    TIFFErrorHandler warning_;
};

// libtiff's LZW decoder warns about old-style codes only when the first strip or tile it decodes
// for a handle is one: a read that declines after it swallowed that warning could not give it
// back. So a read that may decline stops before it decodes such a chunk (found as libtiff finds
// it: the first two raw bytes, in the file's bit order), and libtiff meets it first, as it always
// did. Once a chunk of the new kind is decoded, the decoder is in the same state whoever decoded
// it. True also when the two bytes cannot be read; false for other compressions.
bool OldStyleLzw(TIFF* tiff, uint32_t chunk);

// False when the environment variable TQV_FORCE_RGBA_PATH is set (read once): tests compare the
// direct read with the raster path through it.
bool DirectPathEnabled();

}  // namespace tqv

#endif  // TQV_IMPORT_DIRECT_STRIPS_H
