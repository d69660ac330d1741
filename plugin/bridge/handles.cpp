#include "bridge/handles.h"

#include "bridge/services.h"

namespace tqv {

void ObjectLocks::Lock(void* handle) {
    REALLockObject(static_cast<REALobject>(handle));
}
void ObjectLocks::Unlock(void* handle) {
    REALUnlockObject(static_cast<REALobject>(handle));
}
void StringLocks::Lock(void* handle) {
    REALLockString(static_cast<REALstring>(handle));
}
void StringLocks::Unlock(void* handle) {
    REALUnlockString(static_cast<REALstring>(handle));
}

}  // namespace tqv
