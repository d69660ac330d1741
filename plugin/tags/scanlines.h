// Raw rows of the current image, exactly as libtiff's scanline interface reads and writes them.
// A run of rows lies back to back, TIFFScanlineSize bytes each. Every operation makes its
// object the message target (after the nil-block check) and never reads or writes past the end
// of a host block whose size the host knows.
#ifndef TQV_TAGS_SCANLINES_H
#define TQV_TAGS_SCANLINES_H

#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

// "Scanline(mem as memoryblock, index as integer, sample as integer = 0) as boolean": libtiff's
// result as a byte, so a read error answers 0xFF (true to the host, not false). 0 for a nil
// handle or block, or a block shorter than a row.
uint8_t rbTIFFReadScanline(REALobject self, REALmemoryBlock mem, int32_t index, int32_t sample);
// "Scanline(index as integer, sample as integer = 0) as memoryblock": one row, or nil.
REALmemoryBlock rbTIFFReadScanline2(REALobject self, int32_t index, int32_t sample);
// Its setter: writes one row from the assigned block.
void rbTIFFWriteScanline(REALobject self, int32_t index, int32_t sample, REALmemoryBlock value);
// "Scanlines(index as integer, count as integer, sample as integer = 0) as memoryblock": count
// rows, or nil unless every one of them could be read.
REALmemoryBlock rbTIFFReadScanlines(REALobject self, int32_t index, int32_t count, int32_t sample);
// Its setter: writes every row the block holds, carrying on past a row libtiff refuses.
void rbTIFFWriteScanlines(REALobject self, int32_t index, int32_t count, int32_t sample,
                          REALmemoryBlock value);

}  // namespace tqv

#endif  // TQV_TAGS_SCANLINES_H
