#include "platform/ticks.h"

#include <time.h>

namespace tqv {
namespace {

uint32_t MonotonicTicks() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const uint64_t ticks =
        static_cast<uint64_t>(now.tv_sec) * 60u + static_cast<uint64_t>(now.tv_nsec) * 60u / 1000000000u;
    return static_cast<uint32_t>(ticks);
}

TickSource gTickSource = MonotonicTicks;

}  // namespace

uint32_t TickCount() {
    return gTickSource();
}

void SetTickSource(TickSource source) {
    gTickSource = source != nullptr ? source : MonotonicTicks;
}

}  // namespace tqv
