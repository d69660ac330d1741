#include "bridge/yield.h"

#include "bridge/services.h"
#include "platform/ticks.h"

namespace tqv {

void YieldData::DoYield() {
    // The absolute difference keeps a wrapped counter from stalling the yields.
    const int64_t elapsed = static_cast<int64_t>(TickCount()) - static_cast<int64_t>(lastYieldTick);
    if ((elapsed < 0 ? -elapsed : elapsed) < YieldTicks) return;
    REALYieldToRB();
    lastYieldTick = TickCount();
}

}  // namespace tqv
