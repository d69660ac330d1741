// Host memory blocks, integer arrays and folder items.
#ifndef TQVHOST_VALUES_H
#define TQVHOST_VALUES_H

#include <cstdint>
#include <string>
#include <vector>

#include "tqvhost/handles.h"

namespace tqvhost {

class MemoryBlockHandle : public Handle {
  public:
    explicit MemoryBlockHandle(int32_t size);         // zero-filled, owned bytes
    explicit MemoryBlockHandle(const void* foreign);  // wraps foreign bytes of unknown size
    uint8_t* data() { return foreign_ ? foreign_ : owned_.data(); }
    int32_t size() const;  // REAL_MEMORYBLOCK_UNKNOWN_SIZE for a foreign block
    bool foreign() const { return foreign_ != nullptr; }

  protected:
    void destroy() override { std::vector<uint8_t>().swap(owned_); }

  private:
    std::vector<uint8_t> owned_;  // one spare byte so that data() of an empty block is not null
    uint8_t* foreign_ = nullptr;
};

class ArrayHandle : public Handle {
  public:
    explicit ArrayHandle(std::vector<int32_t> values) : Handle(Kind::Array), values(std::move(values)) {}
    std::vector<int32_t> values;
};

// An absolute path that may not exist yet.
class FolderItemHandle : public Handle {
  public:
    explicit FolderItemHandle(std::string path);
    const std::string& path() const { return path_; }
    bool exists() const;

  private:
    std::string path_;
};

MemoryBlockHandle* asMemoryBlock(const void* address, const char* service);
FolderItemHandle* asFolderItem(const void* address, const char* service);

}  // namespace tqvhost

#endif  // TQVHOST_VALUES_H
