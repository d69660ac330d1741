// Whether libtiff 4.5's directory writer can work on the directories a file already holds.
//
// To append a directory (and to rewrite one in place) the writer follows the chain of
// directories from the header to its end without any loop check, so a file whose chain loops
// makes AddImage, SaveImage, Flush and Close never return.
#ifndef TQV_SESSION_DIRECTORY_CHAIN_H
#define TQV_SESSION_DIRECTORY_CHAIN_H

#include <tiffio.h>

namespace tqv {

// True when `tiff` is open for reading only, or when the writer can link new directories to the
// ones the file holds. Otherwise reports why with an Error event and gives false.
bool DirectoriesWritable(TIFF* tiff);

}  // namespace tqv

#endif  // TQV_SESSION_DIRECTORY_CHAIN_H
