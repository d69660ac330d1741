#include "platform/folder_path.h"

#include <iconv.h>
#include <sys/stat.h>
#include <utf8proc.h>

#include <cstdlib>
#include <cstring>

#include "bridge/services.h"

namespace tqv {
namespace {

std::optional<std::string> RefPath(const REALfileRef& ref) {
    const void* end = std::memchr(ref.path, '\0', sizeof ref.path);
    if (end == nullptr || ref.path[0] != '/') return std::nullopt;
    return std::string(ref.path, static_cast<const char*>(end));
}

bool AppendUtf8(std::string& out, utf8proc_int32_t cp) {
    utf8proc_uint8_t buffer[4];
    const utf8proc_ssize_t n = utf8proc_encode_char(cp, buffer);
    if (n <= 0) return false;
    out.append(reinterpret_cast<const char*>(buffer), static_cast<size_t>(n));
    return true;
}

// UTF-16 to UTF-8; a lone surrogate makes the name invalid.
std::optional<std::string> Utf16Name(const REALunicodeName& name) {
    const size_t count = name.length <= 255 ? name.length : 0;
    std::string out;
    for (size_t i = 0; i < count; ++i) {
        utf8proc_int32_t cp = name.unicode[i];
        if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < count && name.unicode[i + 1] >= 0xDC00 &&
            name.unicode[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (name.unicode[++i] - 0xDC00);
        } else if (cp >= 0xD800 && cp <= 0xDFFF) {
            return std::nullopt;
        }
        if (!AppendUtf8(out, cp)) return std::nullopt;
    }
    return out;
}

// A Pascal-string name in Mac Roman, to UTF-8.
std::optional<std::string> MacRomanName(const uint8_t* pascal) {
    const size_t length = pascal[0] < 64 ? pascal[0] : 0;
    iconv_t cd = iconv_open("UTF-8", "MACINTOSH");
    if (cd == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
    char in[64], out[64 * 4];
    std::memcpy(in, pascal + 1, length);
    char* inp = in;
    char* outp = out;
    size_t inLeft = length, outLeft = sizeof out;
    const size_t rc = iconv(cd, &inp, &inLeft, &outp, &outLeft);
    iconv_close(cd);
    if (rc == static_cast<size_t>(-1)) return std::nullopt;
    return std::string(out, static_cast<size_t>(outp - out));
}

bool Exists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

// The parent's path plus the item's name. An existing entry keeps the name's own bytes; a new one
// gets the decomposed name. Names that would step out of the parent folder are refused.
std::optional<std::string> ChildPath(const std::string& parent, const std::string& name) {
    if (name.empty() || name.find('/') != std::string::npos || name.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    const std::string prefix = parent.back() == '/' ? parent : parent + "/";
    if (Exists(prefix + name)) return prefix + name;
    const auto decomposed = DecomposeName(name);
    if (!decomposed) return std::nullopt;
    return prefix + *decomposed;
}

std::optional<std::string> PathOfNewItem(REALfolderItem item) {
    REALfileRef parent{};
    REALunicodeName name{};
    if (!REALFSRefFromFolderItem(item, &parent, &name)) return std::nullopt;
    const auto parentPath = RefPath(parent);
    const auto utf8 = Utf16Name(name);
    if (!parentPath || !utf8) return std::nullopt;
    return ChildPath(*parentPath, *utf8);
}

std::optional<std::string> PathFromSpec(REALfolderItem item) {
    REALfileSpec spec{};
    if (!REALFSSpecFromFolderItem(&spec, item)) return std::nullopt;
    const auto parentPath = RefPath(spec.parent);
    const auto utf8 = MacRomanName(spec.name);
    if (!parentPath || !utf8) return std::nullopt;
    return ChildPath(*parentPath, *utf8);
}

}  // namespace

std::optional<std::string> DecomposeName(const std::string& name) {
    utf8proc_uint8_t* nfd = utf8proc_NFD(reinterpret_cast<const utf8proc_uint8_t*>(name.c_str()));
    if (nfd == nullptr) return std::nullopt;
    std::string out(reinterpret_cast<const char*>(nfd));
    std::free(nfd);
    return out;
}

std::optional<std::string> FolderItemPosixPath(REALfolderItem item) {
    if (item == nullptr) return std::nullopt;
    REALfileRef ref{};
    if (REALFSRefFromFolderItem(item, &ref, nullptr)) {
        if (auto path = RefPath(ref)) return path;
    }
    if (auto path = PathOfNewItem(item)) return path;
    return PathFromSpec(item);
}

}  // namespace tqv
