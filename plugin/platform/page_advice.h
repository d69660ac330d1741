// A hint to the operating system about memory the plugin is about to fill whole.
#ifndef TQV_PLATFORM_PAGE_ADVICE_H
#define TQV_PLATFORM_PAGE_ADVICE_H

#include <cstddef>

namespace tqv {

// `bytes` at `start` (a new picture) will be written in full before anything reads them: on
// Linux, large pages are asked for, so that a 64 MiB picture costs 32 page faults instead of
// 16,384. It only helps memory that has not been touched yet, and only changes what the kernel
// does when it first touches it; elsewhere, and for less than one large page, nothing happens.
void AdviseWholeWrite(void* start, size_t bytes);

}  // namespace tqv

#endif  // TQV_PLATFORM_PAGE_ADVICE_H
