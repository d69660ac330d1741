#include "platform/relocatable.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <new>

#include "platform/page_advice.h"

namespace tqv {

struct RelocatableBlock {
    void* bytes = nullptr;  // a mapping of `capacity` bytes, never nil
    size_t size = 0;
    size_t capacity = 0;
    int pins = 0;
};

namespace {

size_t PageRound(size_t size) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t wanted = size == 0 ? 1 : size;
    if (wanted > SIZE_MAX - page) return 0;
    return (wanted + page - 1) / page * page;
}

void* MapZeroed(size_t capacity) {
    void* p = mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) return nullptr;
    // Large blocks are output buffers, filled from start to end as they grow.
    AdviseWholeWrite(p, capacity);
    return p;
}

}  // namespace

RelocatableBlock* NewRelocatable(size_t size) {
    const size_t capacity = PageRound(size);
    if (capacity == 0) return nullptr;
    void* bytes = MapZeroed(capacity);
    if (bytes == nullptr) return nullptr;
    auto* block = new (std::nothrow) RelocatableBlock{bytes, size, capacity, 0};
    if (block == nullptr) munmap(bytes, capacity);
    return block;
}

bool ResizeRelocatable(RelocatableBlock* block, size_t size) {
    if (block == nullptr) return false;
    if (size <= block->capacity) {
        // Bytes given up by shrinking must read as zero when the block grows back over them.
        if (size < block->size) std::memset(static_cast<char*>(block->bytes) + size, 0, block->size - size);
        block->size = size;
        return true;
    }
    const size_t capacity = PageRound(size);
    if (capacity == 0) return false;
    const int flags = block->pins > 0 ? 0 : MREMAP_MAYMOVE;
    void* bytes = mremap(block->bytes, block->capacity, capacity, flags);
    if (bytes == MAP_FAILED) return false;
    AdviseWholeWrite(bytes, capacity);
    block->bytes = bytes;
    block->capacity = capacity;
    block->size = size;
    return true;
}

size_t RelocatableSize(const RelocatableBlock* block) {
    return block == nullptr ? 0 : block->size;
}

void* PinRelocatable(RelocatableBlock* block) {
    if (block == nullptr) return nullptr;
    ++block->pins;
    return block->bytes;
}

void UnpinRelocatable(RelocatableBlock* block) {
    if (block != nullptr && block->pins > 0) --block->pins;
}

void DisposeRelocatable(RelocatableBlock* block) {
    if (block == nullptr) return;
    munmap(block->bytes, block->capacity);
    delete block;
}

}  // namespace tqv
