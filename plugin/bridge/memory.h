// Plain and relocatable memory with the size limits a host of 32-bit integers can address.
#ifndef TQV_BRIDGE_MEMORY_H
#define TQV_BRIDGE_MEMORY_H

#include <cstdint>
#include <memory>

#include "platform/relocatable.h"

namespace tqv {

// Zero-filled memory of 1 to 2,147,483,647 bytes; nil for any other size or when memory is short.
void* AllocateClearMemory(int64_t size);
// Frees memory from AllocateClearMemory; nil is ignored.
void FreeMemoryNow(void* pointer);
// Zero-fills `size` bytes; nil or a size below 1 does nothing.
void ClearMemory(void* pointer, int64_t size);

struct FreeMemoryDeleter {
    void operator()(void* pointer) const noexcept { FreeMemoryNow(pointer); }
};
template <typename T>
using ClearMemoryPtr = std::unique_ptr<T, FreeMemoryDeleter>;

using RelocatableHandle = RelocatableBlock*;

// A handle of 0 to 2,147,483,647 bytes, or nil.
RelocatableHandle allocateHandle(int64_t size);
// The handle's size, 0 for nil.
int64_t getHandleSize(RelocatableHandle handle);
// Pins the bytes until unlockHandle; nil for nil.
void* lockHandle(RelocatableHandle handle);
void unlockHandle(RelocatableHandle handle);
// The largest size resizeHandle sets.
inline constexpr int64_t kMaxHandleResize = 2147483632;
// Sizes 0 to kMaxHandleResize: sets the size when memory allows (callers compare the size
// afterwards) and returns the same handle. Any other size disposes of the handle and returns nil:
// the caller's handle is gone.
RelocatableHandle resizeHandle(RelocatableHandle handle, int64_t size);
void freeHandle(RelocatableHandle handle);

// Test-only seam, reached by in-process tests that link the plugin's objects (the shared library
// does not export it): FailAllocationAfter(kind, n) makes the nth allocation of that kind from now
// on fail once, as if memory were short (1: the next one; 0 disarms). Plain memory is every
// AllocateClearMemory; relocatable memory is every allocateHandle and every resizeHandle that grows.
enum class AllocationFault { PlainMemory, Relocatable };
void FailAllocationAfter(AllocationFault kind, int64_t n);
bool AllocationFailureArmed(AllocationFault kind);
int64_t InjectedAllocationFailures();

}  // namespace tqv

#endif  // TQV_BRIDGE_MEMORY_H
