// RGBA memory import: libtiff's RGBA rendering of the current image as raw memory blocks, the
// whole image at once or any rectangle on demand between Begin and End. Blocks hold 4 bytes a
// pixel (R, G, B, A), rows without padding, bottom row first, as libtiff renders them. This is
// the way to read images beyond the 32,767-pixel picture limit, tile by tile.
#ifndef TQV_IMPORT_RGBA_MEMORY_H
#define TQV_IMPORT_RGBA_MEMORY_H

#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

// "ReadRGB(byref ErrorMessage as string) as memoryblock": the whole image, or nil. ErrorMessage
// receives libtiff's text (empty on success); it stays nil when nothing is open.
REALmemoryBlock ReadRGBMemory(REALobject object, REALstring* errorMessage);
// "ReadRGBMemoryBegin(byref ErrorMessage as string) as boolean": keeps libtiff's RGBA state of
// the current image in the session (ending one still held).
bool ReadRGBMemoryBegin(REALobject object, REALstring* errorMessage);
// "ReadRGBMemoryStep(x, y, width, height) as memoryblock": the rectangle at column x, row y of
// the image Begin was made on; nil outside Begin/End, for a rectangle not inside the image, or
// once the session's image is no longer the one Begin saw.
REALmemoryBlock ReadRGBMemoryStep(REALobject object, int32_t x, int32_t y, int32_t width, int32_t height);
// "ReadRGBMemoryEnd": ends and frees the state, if any.
void ReadRGBMemoryEnd(REALobject object);

}  // namespace tqv

#endif  // TQV_IMPORT_RGBA_MEMORY_H
