// The palette of the current image as three blocks of uint16 entries (red, green, blue), 2 to the
// power of BitsPerSample entries each, machine order. Neither method changes the message target.
#ifndef TQV_TAGS_COLOR_MAP_H
#define TQV_TAGS_COLOR_MAP_H

#include <tiffio.h>
#include <tqv/plugin_abi.h>

namespace tqv {

// Releases whatever the three variables hold, then fills them with new blocks; false (and nil
// blocks) without a colour map.
bool GetColorMap(REALobject self, REALmemoryBlock* red, REALmemoryBlock* green, REALmemoryBlock* blue);
// Sets the colour map from three blocks of at least 2 << BitsPerSample bytes each.
bool SetColorMap(REALobject self, REALmemoryBlock red, REALmemoryBlock green, REALmemoryBlock blue);

// Guards on libtiff's field setter, for every libtiff handle in the process from this call on;
// each refusal is an Error and a failed setter, whichever way the change is asked for:
// - libtiff sizes a colour map by the BitsPerSample in force when the map was set or read, and
//   later reads (GetColorMap, its RGBA palette conversion, its directory writer) by the current
//   one: BitsPerSample cannot change while a colour map is set. A transfer function, sized the
//   same way, is dropped with a warning instead (as libtiff drops it when the samples change).
// - Leaving old-style JPEG compression keeps that codec's field methods on freed codec state in
//   libtiff 4.5 (the next row read or written stops the host): the compression of an old-style
//   JPEG image cannot change.
void InstallFieldGuards();

// Whether BitsPerSample may become `bits`: false, with the guard's Error event, while a colour map
// sized for another depth is set. For operations that check before they change anything.
bool DepthFitsColorMap(TIFF* tiff, uint16_t bits);

}  // namespace tqv

#endif  // TQV_TAGS_COLOR_MAP_H
