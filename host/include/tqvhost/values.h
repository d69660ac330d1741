// Host memory blocks, integer arrays and folder items.
#ifndef TQVHOST_VALUES_H
#define TQVHOST_VALUES_H

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "tqvhost/handles.h"

namespace tqvhost {

class MemoryBlockHandle : public Handle {
  public:
    explicit MemoryBlockHandle(int32_t size);         // zero-filled, owned bytes
    explicit MemoryBlockHandle(const void* foreign);  // wraps foreign bytes of unknown size
    uint8_t* data() { return foreign_ ? foreign_ : owned_.get(); }
    int32_t size() const;  // REAL_MEMORYBLOCK_UNKNOWN_SIZE for a foreign block
    bool foreign() const { return foreign_ != nullptr; }

  protected:
    void destroy() override {
        owned_.reset();
        size_ = 0;
    }

  private:
    struct Free {
        void operator()(uint8_t* p) const { std::free(p); }
    };
    // Zero-filled by calloc, so that a large block costs nothing until it is written (as the
    // plugin's RGBA blocks are, whole), with one spare byte so that data() of an empty block is
    // not null.
    std::unique_ptr<uint8_t, Free> owned_;
    int32_t size_ = 0;
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
