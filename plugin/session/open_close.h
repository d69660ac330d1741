// Opening, creating and closing TIFF files on a session.
#ifndef TQV_SESSION_OPEN_CLOSE_H
#define TQV_SESSION_OPEN_CLOSE_H

#include <tiffio.h>
#include <tqv/plugin_abi.h>

namespace tqv {

struct TiffData;

// An open in progress on a session. A Close that an Error or Warning handler asks for while
// libtiff opens the file finds no handle to let go of yet; it is kept here, and Keep then closes
// the new handle instead of keeping it: the open gives false, as any operation whose session a
// handler closed, and the program's Close is not lost.
class Opening {
  public:
    explicit Opening(TiffData* record);
    ~Opening();
    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;
    // The session's handle becomes `tiff` unless a Close was asked meanwhile; true when it holds one.
    bool Keep(TIFF* tiff);
    // Notes a Close asked for `record` while it has no handle.
    static void CloseAsked(const TiffData* record);

  private:
    TiffData* record_;
    Opening* outer_;
    bool closeAsked_ = false;
};

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
