#include <cstdio>
#include <cstdlib>
#include <new>

#include "services.h"
#include "tqv/plugin_abi.h"
#include "tqvhost/values.h"

namespace tqvhost {

MemoryBlockHandle::MemoryBlockHandle(int32_t size) : Handle(Kind::MemoryBlock), size_(size < 0 ? 0 : size) {
    owned_.reset(static_cast<uint8_t*>(std::calloc(size_ > 0 ? static_cast<size_t>(size_) : 1, 1)));
    if (!owned_) throw std::bad_alloc();
}

MemoryBlockHandle::MemoryBlockHandle(const void* foreign)
    : Handle(Kind::MemoryBlock), foreign_(static_cast<uint8_t*>(const_cast<void*>(foreign))) {}

int32_t MemoryBlockHandle::size() const {
    if (foreign_) return REAL_MEMORYBLOCK_UNKNOWN_SIZE;
    return size_;
}

static bool isMemoryBlock(Kind k) {
    return k == Kind::MemoryBlock;
}
static bool isArray(Kind k) {
    return k == Kind::Array;
}

MemoryBlockHandle* asMemoryBlock(const void* address, const char* service) {
    return static_cast<MemoryBlockHandle*>(Accounts::check(address, service, isMemoryBlock));
}

namespace {

REALmemoryBlock newMemoryBlock(int32_t size) {
    return guarded<REALmemoryBlock>("newMemoryBlock", nullptr, [&]() -> REALmemoryBlock {
        if (size < 0 || injectFailure("memoryblock")) return nullptr;
        auto* mb = makeHandle<MemoryBlockHandle>(size);
        Accounts::give(mb);
        return static_cast<REALmemoryBlock>(mb->address());
    });
}

void* memoryBlockGetPtr(REALmemoryBlock mb) {
    auto* h = asMemoryBlock(mb, "memoryBlockGetPtr");
    return h ? h->data() : nullptr;
}

int32_t memoryBlockGetSize(REALmemoryBlock mb) {
    auto* h = asMemoryBlock(mb, "memoryBlockGetSize");
    return h ? h->size() : 0;
}

REALmemoryBlock PtrToMemoryBlock(const void* data) {
    return guarded<REALmemoryBlock>("PtrToMemoryBlock", nullptr, [&]() -> REALmemoryBlock {
        if (!data) return nullptr;
        auto* mb = makeHandle<MemoryBlockHandle>(data);
        Accounts::give(mb);
        return static_cast<REALmemoryBlock>(mb->address());
    });
}

ArrayHandle* asArray(REALarray a, const char* service) {
    return static_cast<ArrayHandle*>(Accounts::check(a, service, isArray));
}

int32_t RuntimeUBound(REALarray a) {
    auto* h = asArray(a, "RuntimeUBound");
    return h ? static_cast<int32_t>(h->values.size()) - 1 : -1;
}

int32_t RuntimeDirectReadIntArray(REALarray a, int32_t index) {
    auto* h = asArray(a, "RuntimeDirectReadIntArray");
    if (!h) return 0;
    if (index < 0 || static_cast<size_t>(index) >= h->values.size()) {
        Accounts::error("RuntimeDirectReadIntArray: index " + std::to_string(index) + " out of bounds");
        return 0;
    }
    return h->values[static_cast<size_t>(index)];
}

}  // namespace

void addMemoryServices(ServiceTable& t) {
    t["newMemoryBlock"] = service(&newMemoryBlock);
    t["memoryBlockGetPtr"] = service(&memoryBlockGetPtr);
    t["memoryBlockGetSize"] = service(&memoryBlockGetSize);
    t["PtrToMemoryBlock"] = service(&PtrToMemoryBlock);
    t["RuntimeUBound"] = service(&RuntimeUBound);
    t["RuntimeDirectReadIntArray"] = service(&RuntimeDirectReadIntArray);
}

}  // namespace tqvhost
