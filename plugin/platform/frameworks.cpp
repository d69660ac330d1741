#include "platform/frameworks.h"

#include <dlfcn.h>
#include <tqv/pixmap_framework.h>

#include <cstdlib>
#include <map>
#include <string>
#include <utility>

namespace tqv {
namespace {

// Libraries stay loaded for the life of the process: cached function addresses point into them.
void* OpenFramework(const std::string& name) {
    static std::map<std::string, void*> opened;
    if (auto it = opened.find(name); it != opened.end()) return it->second;
    const char* folder = std::getenv(TQV_FRAMEWORKS_ENV);
    if (folder == nullptr || *folder == '\0') return nullptr;
    const std::string path = std::string(folder) + "/" + name + ".framework/" + name;
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library != nullptr) opened.emplace(name, library);
    return library;
}

}  // namespace

void* LoadFrameworkFunction(const char* framework, const char* function) {
    if (framework == nullptr || function == nullptr) return nullptr;
    static std::map<std::pair<std::string, std::string>, void*> found;
    auto key = std::make_pair(std::string(framework), std::string(function));
    if (auto it = found.find(key); it != found.end()) return it->second;
    void* library = OpenFramework(key.first);
    void* address = library != nullptr ? dlsym(library, function) : nullptr;
    if (address != nullptr) found.emplace(std::move(key), address);
    return address;
}

}  // namespace tqv
