#include "bridge/path.h"

#include <cstring>

#include "platform/folder_path.h"

namespace tqv {

char* UnixFilePath(REALfolderItem item) {
    const auto path = FolderItemPosixPath(item);
    if (!path || path->empty()) return nullptr;
    auto* copy = static_cast<char*>(AllocateClearMemory(static_cast<int64_t>(path->size()) + 20));
    if (copy != nullptr) std::memcpy(copy, path->data(), path->size());
    return copy;
}

const char* rbPath::GetUnixPath() {
    if (!made_) {
        made_ = true;
        path_.reset(UnixFilePath(item_.get()));
    }
    return path_.get();
}

}  // namespace tqv
