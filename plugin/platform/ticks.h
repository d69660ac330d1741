// The tick count: 1/60 s since an arbitrary start, from a monotonic clock, wrapping at 2^32.
#ifndef TQV_PLATFORM_TICKS_H
#define TQV_PLATFORM_TICKS_H

#include <cstdint>

namespace tqv {

using TickSource = uint32_t (*)();

uint32_t TickCount();
// Replaces the clock (tests); nil restores the monotonic clock.
void SetTickSource(TickSource source);

}  // namespace tqv

#endif  // TQV_PLATFORM_TICKS_H
