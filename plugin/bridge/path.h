// The POSIX path of a host folder item.
#ifndef TQV_BRIDGE_PATH_H
#define TQV_BRIDGE_PATH_H

#include <tqv/plugin_abi.h>

#include "bridge/handles.h"
#include "bridge/memory.h"

namespace tqv {

// A new zero-terminated UTF-8 path (free with FreeMemoryNow), or nil when the host cannot place
// the item. Works for a file that does not exist yet in an existing folder.
char* UnixFilePath(REALfolderItem item);

// A scoped view of a folder item's path: holds one lock on the item, makes the path on first use.
class rbPath {
  public:
    explicit rbPath(REALfolderItem item) : item_(FolderItemRef::Borrow(item)) {}
    rbPath(const rbPath&) = delete;
    rbPath& operator=(const rbPath&) = delete;

    // The path, or nil.
    const char* GetUnixPath();

  private:
    FolderItemRef item_;
    ClearMemoryPtr<char> path_;
    bool made_ = false;
};

}  // namespace tqv

#endif  // TQV_BRIDGE_PATH_H
