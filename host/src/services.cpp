// The lookup table, the process configuration, plugin loading, yielding and ticks.
#include "services.h"

#include <dlfcn.h>

#include <chrono>
#include <cstdlib>

#include "tqvhost/host.h"
#include "tqvhost/registry.h"

namespace tqvhost {
namespace {

Config& mutableConfig() {
    static Config c;
    return c;
}

int64_t gYields = 0;

void REALYieldToRB() {
    ++gYields;
    guardedVoid("REALYieldToRB", [] {
        if (embedding().onYield) embedding().onYield();
    });
}

const ServiceTable& table() {
    static const ServiceTable* t = [] {
        auto* t = new ServiceTable;
        addStringServices(*t);
        addMemoryServices(*t);
        addFolderItemServices(*t);
        addObjectServices(*t);
        addPictureServices(*t);
        (*t)["REALYieldToRB"] = service(&REALYieldToRB);
        return t;
    }();
    return *t;
}

bool gConfigured = false;

}  // namespace

void configure(const Config& c) {
    mutableConfig() = c;
    gConfigured = true;
    installHostClasses(c.app);
    if (!c.frameworksDir.empty()) setenv("TQV_FRAMEWORKS_DIR", c.frameworksDir.c_str(), 1);
}

const Config& config() {
    return mutableConfig();
}

extern "C" void* lookup(const char* name) {
    if (!name) return nullptr;
    if (!gConfigured) configure(mutableConfig());
    if (config().withheld.count(name)) return nullptr;
    auto it = table().find(name);
    return it == table().end() ? nullptr : it->second;
}

std::vector<std::string> serviceNames() {
    std::vector<std::string> names;
    for (const auto& [name, address] : table()) names.push_back(name);
    return names;
}

bool loadPlugin(const std::string& path, std::string* error) {
    if (!gConfigured) configure(mutableConfig());
    // RTLD_DEEPBIND is not used: the plugin's own libtiff must be the process's libtiff.
    void* lib = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!lib) {
        if (error) *error = dlerror();
        return false;
    }
    auto main = reinterpret_cast<void (*)(void* (*)(const char*))>(dlsym(lib, "REALPluginMain"));
    if (!main) {
        if (error) *error = path + ": no REALPluginMain";
        return false;
    }
    main(&lookup);
    completeRegistration();
    return true;
}

int64_t yields() {
    return gYields;
}

int64_t ticks() {
    using namespace std::chrono;
    auto now = steady_clock::now().time_since_epoch();
    return duration_cast<microseconds>(now).count() * 60 / 1000000;
}

}  // namespace tqvhost
