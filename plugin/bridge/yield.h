// Cooperative yielding from long pixel loops.
#ifndef TQV_BRIDGE_YIELD_H
#define TQV_BRIDGE_YIELD_H

#include <cstdint>

namespace tqv {

// The session's yield interval and the tick of its last yield (two fields of TiffData).
struct YieldData {
    int32_t YieldTicks;      // ticks of 1/60 s between yields; 0 or less: never (see callers)
    uint32_t lastYieldTick;  // tick count right after the last yield

    // Yields to the host when at least YieldTicks ticks passed since the last yield. An interval
    // of 0 or less would yield on every call: callers call only when YieldTicks > 0.
    void DoYield();
};

}  // namespace tqv

#endif  // TQV_BRIDGE_YIELD_H
