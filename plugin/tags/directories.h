// The images (directories) of a file: walking, appending, rewriting, flushing, and the FolderItem
// extension that opens a file as a new object. Directory counts and indexes are 16-bit for the
// host. None of these changes the message target before its libtiff call; a directory change
// that is not header-only decodes the new image into Pict and Mask (which does).
#ifndef TQV_TAGS_DIRECTORIES_H
#define TQV_TAGS_DIRECTORIES_H

#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

// "NextImage as boolean" and "NextImage(HeaderOnly as boolean) as boolean".
bool rbTIFFReadDirectory1(REALobject self);
bool rbTIFFReadDirectory2(REALobject self, bool headerOnly);
// "SetImageIndex(index as integer[, HeaderOnly as boolean]) as boolean": the index is cut to its
// low 16 bits, so 65536 selects the first image.
bool rbTIFFSetDirectory2(REALobject self, int32_t index);
bool rbTIFFSetDirectory3(REALobject self, int32_t index, bool headerOnly);
// "SaveImage" and "RewriteDirectory": rewrites the current directory.
bool rbTIFFRewriteDirectory(REALobject self);
// "AddImage": writes the current directory and starts a new one.
bool rbTIFFWriteDirectory(REALobject self);
bool rbTIFFLastDirectory(REALobject self);
int32_t rbTIFFNumberOfDirectories(REALobject self);
int32_t rbTIFFCurrentDirectory(REALobject self);
bool rbTIFFFlush(REALobject self);
bool rbTIFFFlushData(REALobject self);

// FolderItem "OpenAsTiffTQV(HeaderOnly as boolean=false) as TiffPictureTQV": a new object on the
// file's first image, decoded unless HeaderOnly; nil when libtiff cannot open the file.
REALobject OpenTifffile2(REALfolderItem file, bool headerOnly);

}  // namespace tqv

#endif  // TQV_TAGS_DIRECTORIES_H
