#include "bridge/services.h"

#include <array>

namespace tqv {

REALResolver gResolver = nullptr;
double rbversion_rbversion = 0.0;

namespace {

constexpr std::array<const char*, static_cast<size_t>(ServiceId::Count)> kServiceNames = {
#define TQV_SERVICE_NAME(wrapper, name, proc) name,
    TQV_HOST_SERVICES(TQV_SERVICE_NAME)
#undef TQV_SERVICE_NAME
};

// Written on first use from the host's one thread; no locking needed.
std::array<void*, static_cast<size_t>(ServiceId::Count)> gServiceCache{};

}  // namespace

const char* ServiceName(ServiceId id) {
    return kServiceNames[static_cast<size_t>(id)];
}

void* ResolveService(ServiceId id) {
    void*& slot = gServiceCache[static_cast<size_t>(id)];
    if (slot == nullptr && gResolver != nullptr) slot = gResolver(ServiceName(id));
    return slot;
}

void ResetServiceCache() {
    gServiceCache.fill(nullptr);
}

}  // namespace tqv
