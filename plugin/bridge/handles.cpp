#include "bridge/handles.h"

#include "bridge/services.h"

namespace tqv {

bool ObjectLocks::Lock(void* handle) {
    if (ResolveService(ServiceId::REALLockObject) == nullptr) return false;
    REALLockObject(static_cast<REALobject>(handle));
    return true;
}
void ObjectLocks::Unlock(void* handle) {
    REALUnlockObject(static_cast<REALobject>(handle));
}
bool StringLocks::Lock(void* handle) {
    if (ResolveService(ServiceId::REALLockString) == nullptr) return false;
    REALLockString(static_cast<REALstring>(handle));
    return true;
}
void StringLocks::Unlock(void* handle) {
    REALUnlockString(static_cast<REALstring>(handle));
}

}  // namespace tqv
