// Private to the runtime: how each area adds its services to the lookup table, and the guard
// that keeps C++ exceptions from crossing into the plugin.
#ifndef TQVHOST_SRC_SERVICES_H
#define TQVHOST_SRC_SERVICES_H

#include <ffi.h>

#include <exception>
#include <map>
#include <string>
#include <string_view>

#include "tqvhost/declaration.h"
#include "tqvhost/handles.h"

namespace tqvhost {

using ServiceTable = std::map<std::string, void*>;

void addStringServices(ServiceTable& table);
void addMemoryServices(ServiceTable& table);
void addFolderItemServices(ServiceTable& table);
void addObjectServices(ServiceTable& table);
void addPictureServices(ServiceTable& table);

// The libffi type of a by-value scalar of `kind` (void for no value, a pointer for handles);
// plugin calls and event closures share it.
ffi_type* ffiTypeOf(TypeKind kind);

// True when fault injection makes this allocation of `kind` fail (fault_injection.cpp).
bool injectFailure(std::string_view kind);

template <class F>
void* service(F f) {
    return reinterpret_cast<void*>(f);
}

// Runs body(); an exception becomes an accounting error and the fallback result.
template <class R, class F>
R guarded(const char* name, R fallback, F&& body) noexcept {
    try {
        return body();
    } catch (const std::exception& e) {
        Accounts::error(std::string(name) + ": " + e.what());
    } catch (...) {
        Accounts::error(std::string(name) + ": unknown exception");
    }
    return fallback;
}

template <class F>
void guardedVoid(const char* name, F&& body) noexcept {
    guarded<int>(name, 0, [&] {
        body();
        return 0;
    });
}

}  // namespace tqvhost

#endif  // TQVHOST_SRC_SERVICES_H
