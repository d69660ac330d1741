// Whether libtiff 4.5's directory writer can work on the directories a file already holds.
//
// To append a directory (and to rewrite one in place) the writer follows the chain of
// directories from the header to its end without any loop check, so a file whose chain loops
// makes AddImage, SaveImage, Flush and Close never return. Appending with "8" to a classic file
// writes BigTIFF directories and an 8-byte link into the classic header, and the pages are lost.
#ifndef TQV_SESSION_DIRECTORY_CHAIN_H
#define TQV_SESSION_DIRECTORY_CHAIN_H

#include <tiffio.h>

namespace tqv {

// True when `tiff`, just opened with `mode`, is open for reading only, or when the writer can link
// new directories to the ones the file holds. Otherwise reports why with an Error event and gives
// false.
bool DirectoriesWritable(TIFF* tiff, const char* mode);

}  // namespace tqv

#endif  // TQV_SESSION_DIRECTORY_CHAIN_H
