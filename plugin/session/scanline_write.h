// The one way the plugin writes a scanline of its own choosing.
//
// libtiff's scanline writer takes the rows of a strip in order from the first, and 4.5 does not
// check what it cannot take:
// - a row further into a strip is reached by moving the uncompressed writer's position forward
//   without writing, which loses the row while answering 1 (past the end of the buffer it writes
//   outside it), and compressing writers refuse it ("Compression algorithm does not support
//   random access");
// - a row again or earlier in the strip being written starts the strip over in the middle of the
//   codec's state, and the row after a read of the same strip is encoded with the reader's state
//   (LZW and Deflate then stop the process);
// - a row past the end of a contiguous image makes the image taller, but only one strip is added
//   to the strip tables: a row further out, or one after the height was raised while rows were
//   being written, is recorded past their end; row 4294967295 makes the height 0.
// - strip tables laid out for one height and rows per strip (read with the directory, or made by
//   the first row written) are not laid out again when either changes: libtiff keeps computing
//   row positions from the old layout, and the rows of strips past the old end are lost;
// - nor when the planar configuration or the samples change while the number of strips stays the
//   same (separate planes made contiguous and as many times taller): the rows are placed by the
//   old count of strips a plane, behind the row written, and reached by moving the write position
//   forward past the end of libtiff's strip buffer.
// Such rows are refused with an Error event naming TIFFWriteScanline and libtiff's failure value.
#ifndef TQV_SESSION_SCANLINE_WRITE_H
#define TQV_SESSION_SCANLINE_WRITE_H

#include <tiffio.h>

#include <cstdint>

namespace tqv {

// True when libtiff can take row `index` of plane `sample` next; otherwise after the Error event.
// A file opened for reading is left to libtiff, which refuses every row itself.
bool ScanlineWritable(TIFF* tiff, uint32_t index, uint16_t sample);

// Whether the strip tables of the current directory, when it has them, hold exactly `strips`
// entries. A directory that has none yet gets them sized by its first row.
bool StripTablesHold(TIFF* tiff, uint64_t strips);

// Whether the strip tables of the current directory, when it has them, were laid out for
// `planes` planes. A directory that has none yet gets them laid out for these by its first row.
bool StripPlanesHold(TIFF* tiff, uint32_t planes);

// Notes that rows are being written into the current directory (NoteRowsWritten), after readying
// the codec of a directory read from the file for new rows. Called before rows are written.
void BeginRows(TIFF* tiff);

// ScanlineWritable, then libtiff's TIFFWriteScanline: 1 written, -1 not.
int WriteScanline(TIFF* tiff, void* row, uint32_t index, uint16_t sample);

}  // namespace tqv

#endif  // TQV_SESSION_SCANLINE_WRITE_H
