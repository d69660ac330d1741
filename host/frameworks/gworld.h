// The reference host's desktop pixel maps, shared by the host and its stand-in pixel-map
// framework. Plugins see only GWorldPtr and PixMapHandle (tqv/pixmap_framework.h).
#ifndef TQVHOST_FRAMEWORKS_GWORLD_H
#define TQVHOST_FRAMEWORKS_GWORLD_H

#include <stdint.h>

#include "tqv/pixmap_framework.h"

struct PixMapStruct {
    void* baseAddr;
    long rowBytes;
    int16_t depth;              // 32: bytes spare, R, G, B; 24: R, G, B; 16: big-endian 1-5-5-5; 8: grey
    int32_t lockCount;          // LockPixels not yet matched by UnlockPixels
    int32_t unbalancedUnlocks;  // UnlockPixels calls with no lock to release
};

struct GWorldStruct {
    PixMapStruct* pixMap;  // GetGWorldPixMap answers &pixMap
};

#endif  // TQVHOST_FRAMEWORKS_GWORLD_H
