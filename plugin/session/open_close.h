// Opening, creating and closing TIFF files on a session.
#ifndef TQV_SESSION_OPEN_CLOSE_H
#define TQV_SESSION_OPEN_CLOSE_H

#include <tqv/plugin_abi.h>

namespace tqv {

// "Open(file as folderitem) as boolean": mode "r".
bool OpenTiff1(REALobject self, REALfolderItem file);
// "Open(file as folderitem, Mode as string) as boolean": libtiff's mode letters; nil Mode is "r".
bool OpenTiff2(REALobject self, REALfolderItem file, REALstring mode);
// "Create(file as folderitem) as boolean": the library's native byte order.
bool CreateTiff1(REALobject self, REALfolderItem file);
// "Create(file as folderitem, endian as integer) as boolean": 2 little-endian, 1 big-endian,
// anything else native.
bool CreateTiff2(REALobject self, REALfolderItem file, int32_t endian);
// "Close": closes the TIFF only; pictures and memory buffers stay.
void CloseTiff(REALobject self);

}  // namespace tqv

#endif  // TQV_SESSION_OPEN_CLOSE_H
