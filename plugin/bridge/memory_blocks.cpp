#include <cstdio>
#include <cstring>

#include "bridge/handles.h"
#include "bridge/services.h"
#include "bridge/values.h"

namespace tqv {
namespace {
constexpr int64_t kMaxBlockSize = 2147483646;

void RaiseAllocationFailure(int64_t size) {
    char message[200];
    std::snprintf(message, sizeof message, "Failed to allocate a memoryblock with %lld bytes in size.",
                  static_cast<long long>(size));
    RaiseException("OutOfMemoryException", message, kREALTextEncodingASCII);
}
}  // namespace

REALmemoryBlock REALNewMemoryBlock(int64_t size) {
    if (size < 0 || size > kMaxBlockSize) return nullptr;
    return REALNewMemoryBlockOriginal(static_cast<int32_t>(size));
}

REALmemoryBlock REALBuildMemoryblock(const void* bytes, int64_t size) {
    if (bytes == nullptr || size < 1) return nullptr;
    MemoryBlockRef block = MemoryBlockRef::Steal(REALNewMemoryBlock(size));
    if (!block) {
        RaiseAllocationFailure(size);
        return nullptr;
    }
    // A host that hands out a block but not its bytes cannot be filled: no block rather than an
    // uninitialised one.
    void* target = REALMemoryBlockGetPtr(block.get());
    if (target == nullptr) return nullptr;
    std::memcpy(target, bytes, static_cast<size_t>(size));
    return block.Release();
}

}  // namespace tqv
