#include "bridge/memory.h"

#include <cstdlib>
#include <cstring>

namespace tqv {
namespace {
constexpr int64_t kMaxClearMemory = 2147483647;
constexpr int64_t kMaxHandle = 2147483647;
constexpr int64_t kMaxHandleResize = 2147483632;
}  // namespace

void* AllocateClearMemory(int64_t size) {
    if (size < 1 || size > kMaxClearMemory) return nullptr;
    return std::calloc(1, static_cast<size_t>(size));
}

void FreeMemoryNow(void* pointer) {
    std::free(pointer);
}

void ClearMemory(void* pointer, int64_t size) {
    if (pointer != nullptr && size > 0) std::memset(pointer, 0, static_cast<size_t>(size));
}

RelocatableHandle allocateHandle(int64_t size) {
    if (size < 0 || size > kMaxHandle) return nullptr;
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
    ResizeRelocatable(handle, static_cast<size_t>(size));
    return handle;
}

void freeHandle(RelocatableHandle handle) {
    DisposeRelocatable(handle);
}

}  // namespace tqv
