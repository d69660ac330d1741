// Folder item to POSIX path, through the host's file-reference services.
//
// Linux file systems compare names byte for byte, so the path of an existing item is kept exactly
// as the host reports it: normalising it could make an existing file unreachable. Only the name
// of an item that does not exist yet is decomposed (NFD), the form the desktop file system gave
// new files.
#ifndef TQV_PLATFORM_FOLDER_PATH_H
#define TQV_PLATFORM_FOLDER_PATH_H

#include <tqv/plugin_abi.h>

#include <optional>
#include <string>

namespace tqv {

// The absolute UTF-8 path of `item`, or nothing when the host cannot place it.
std::optional<std::string> FolderItemPosixPath(REALfolderItem item);

// `name` (UTF-8) in canonical decomposition, or nothing for invalid UTF-8.
std::optional<std::string> DecomposeName(const std::string& name);

}  // namespace tqv

#endif  // TQV_PLATFORM_FOLDER_PATH_H
