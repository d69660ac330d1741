#include "bridge/memory.h"

#include <cstdlib>
#include <cstring>

namespace tqv {
namespace {
constexpr int64_t kMaxClearMemory = 2147483647;
constexpr int64_t kMaxHandle = 2147483647;

// Countdowns of the test seam, indexed by AllocationFault; 0 is disarmed.
int64_t gCountdown[2] = {0, 0};
int64_t gInjected = 0;

bool InjectFailure(AllocationFault kind) {
    int64_t& remaining = gCountdown[static_cast<int>(kind)];
    if (remaining == 0 || --remaining > 0) return false;
    ++gInjected;
    return true;
}
}  // namespace

void FailAllocationAfter(AllocationFault kind, int64_t n) {
    gCountdown[static_cast<int>(kind)] = n < 0 ? 0 : n;
}

bool AllocationFailureArmed(AllocationFault kind) {
    return gCountdown[static_cast<int>(kind)] > 0;
}

int64_t InjectedAllocationFailures() {
    return gInjected;
}

void* AllocateClearMemory(int64_t size) {
    if (size < 1 || size > kMaxClearMemory || InjectFailure(AllocationFault::PlainMemory)) return nullptr;
    return std::calloc(1, static_cast<size_t>(size));
}

void FreeMemoryNow(void* pointer) {
    std::free(pointer);
}

void ClearMemory(void* pointer, int64_t size) {
    if (pointer != nullptr && size > 0) std::memset(pointer, 0, static_cast<size_t>(size));
}

RelocatableHandle allocateHandle(int64_t size) {
    if (size < 0 || size > kMaxHandle || InjectFailure(AllocationFault::Relocatable)) return nullptr;
    return NewRelocatable(static_cast<size_t>(size));
}

int64_t getHandleSize(RelocatableHandle handle) {
    return static_cast<int64_t>(RelocatableSize(handle));
}

void* lockHandle(RelocatableHandle handle) {
    return PinRelocatable(handle);
}

void unlockHandle(RelocatableHandle handle) {
    UnpinRelocatable(handle);
}

RelocatableHandle resizeHandle(RelocatableHandle handle, int64_t size) {
    if (handle == nullptr) return nullptr;
    if (size < 0 || size > kMaxHandleResize) {
        DisposeRelocatable(handle);
        return nullptr;
    }
    // A refused growth leaves the size as it was, which callers detect.
    const bool grows = static_cast<size_t>(size) > RelocatableSize(handle);
    if (!(grows && InjectFailure(AllocationFault::Relocatable)))
        ResizeRelocatable(handle, static_cast<size_t>(size));
    return handle;
}

void freeHandle(RelocatableHandle handle) {
    DisposeRelocatable(handle);
}

}  // namespace tqv
