// Stand-in for the desktop pixel-map framework: the six calls over the reference host's pixel maps.
#include "gworld.h"

#define EXPORT extern "C" __attribute__((visibility("default")))

EXPORT PixMapHandle GetGWorldPixMap(GWorldPtr world) {
    return world ? &world->pixMap : nullptr;
}

EXPORT int16_t GetPixDepth(PixMapHandle pm) {
    return pm && *pm ? (*pm)->depth : 0;
}

EXPORT bool LockPixels(PixMapHandle pm) {
    if (!pm || !*pm || !(*pm)->baseAddr) return false;
    ++(*pm)->lockCount;
    return true;
}

// An unlock with no lock to release changes nothing here; the host reports it when the picture
// goes, as the real framework's lock is one flag that such an unlock would take from another user.
EXPORT void UnlockPixels(PixMapHandle pm) {
    if (!pm || !*pm) return;
    if ((*pm)->lockCount > 0)
        --(*pm)->lockCount;
    else
        ++(*pm)->unbalancedUnlocks;
}

EXPORT void* GetPixBaseAddr(PixMapHandle pm) {
    return pm && *pm ? (*pm)->baseAddr : nullptr;
}

EXPORT long GetPixRowBytes(PixMapHandle pm) {
    return pm && *pm ? (*pm)->rowBytes : 0;
}
