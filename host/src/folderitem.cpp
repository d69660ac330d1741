#include <sys/stat.h>

#include <cstring>

#include "services.h"
#include "tqv/plugin_abi.h"
#include "tqvhost/strings.h"
#include "tqvhost/values.h"

namespace tqvhost {

FolderItemHandle::FolderItemHandle(std::string path) : Handle(Kind::FolderItem), path_(std::move(path)) {
    while (path_.size() > 1 && path_.back() == '/') path_.pop_back();
}

bool FolderItemHandle::exists() const {
    struct stat st;
    return !path_.empty() && ::stat(path_.c_str(), &st) == 0;
}

static bool isFolderItem(Kind k) {
    return k == Kind::FolderItem;
}

FolderItemHandle* asFolderItem(const void* address, const char* service) {
    return static_cast<FolderItemHandle*>(Accounts::check(address, service, isFolderItem));
}

namespace {

bool isDirectory(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Splits an absolute path into an existing parent folder and the last component.
bool splitExistingParent(const std::string& path, std::string* parent, std::string* name) {
    size_t slash = path.rfind('/');
    if (path.empty() || path[0] != '/' || slash == std::string::npos || slash + 1 >= path.size())
        return false;
    *parent = slash == 0 ? "/" : path.substr(0, slash);
    *name = path.substr(slash + 1);
    return isDirectory(*parent);
}

bool copyPath(const std::string& path, REALfileRef* ref) {
    if (path.size() >= sizeof ref->path) return false;
    std::memcpy(ref->path, path.c_str(), path.size() + 1);
    return true;
}

bool REALFSRefFromFolderItem(REALfolderItem item, REALfileRef* ref, REALunicodeName* name) {
    return guarded("REALFSRefFromFolderItem", false, [&] {
        auto* f = asFolderItem(item, "REALFSRefFromFolderItem");
        if (!f || !ref) return false;
        if (!name) return f->exists() && copyPath(f->path(), ref);
        std::string parent, leaf;
        if (!splitExistingParent(f->path(), &parent, &leaf)) return false;
        // A name that is not UTF-8 would come back as another name (U+FFFD for each bad byte),
        // and the plugin would make a file other than the one the item stands for.
        auto units = convertEncoding(leaf, kREALTextEncodingUTF8, kREALTextEncodingUTF16);
        if (!units || units->size() / 2 > 255 || !copyPath(parent, ref)) return false;
        if (convertEncoding(*units, kREALTextEncodingUTF16, kREALTextEncodingUTF8) != leaf) return false;
        name->length = static_cast<uint16_t>(units->size() / 2);
        std::memcpy(name->unicode, units->data(), units->size());
        return true;
    });
}

bool REALFSSpecFromFolderItem(REALfileSpec* spec, REALfolderItem item) {
    return guarded("REALFSSpecFromFolderItem", false, [&] {
        auto* f = asFolderItem(item, "REALFSSpecFromFolderItem");
        if (!f || !spec) return false;
        std::string parent, leaf;
        if (!splitExistingParent(f->path(), &parent, &leaf)) return false;
        // A name Mac Roman cannot hold exactly cannot be specified this way.
        auto roman = convertEncoding(leaf, kREALTextEncodingUTF8, kREALTextEncodingMacRoman);
        if (!roman || roman->size() > 63) return false;
        auto back = convertEncoding(*roman, kREALTextEncodingMacRoman, kREALTextEncodingUTF8);
        if (!back || *back != leaf || !copyPath(parent, &spec->parent)) return false;
        spec->name[0] = static_cast<uint8_t>(roman->size());
        std::memcpy(spec->name + 1, roman->data(), roman->size());
        return true;
    });
}

}  // namespace

void addFolderItemServices(ServiceTable& t) {
    t["REALFSRefFromFolderItem"] = service(&REALFSRefFromFolderItem);
    t["REALFSSpecFromFolderItem"] = service(&REALFSSpecFromFolderItem);
}

}  // namespace tqvhost
