#include "platform/page_advice.h"

#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace tqv {

void AdviseWholeWrite(void* start, size_t bytes) {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    constexpr size_t kLargePage = size_t{2} << 20;
    static const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    if (start == nullptr || bytes < kLargePage || page == 0 || (page & (page - 1)) != 0) return;
    // Only whole pages inside the range: the pages at its ends may hold other data.
    const uintptr_t first = (reinterpret_cast<uintptr_t>(start) + page - 1) & ~(page - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(start) + bytes) & ~(page - 1);
    if (end > first) madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
#else
    (void)start;
    (void)bytes;
#endif
}

}  // namespace tqv
