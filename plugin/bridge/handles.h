// Owning wrappers of host handles.
//
// A wrapper holds exactly one lock on its handle. It is made either by Borrow (take a new lock on
// a handle someone else owns) or by Steal (adopt the lock the host already gave us, as with every
// handle a service returns), so every call site says who owns what. On a host without the lock
// service Borrow holds nothing (it could not keep the handle alive), so nothing is ever given back
// that was not taken. Copying takes a lock, moving hands the lock over, assignment locks the new
// handle before it unlocks the old one (assigning a handle to itself is safe). Release() gives the
// lock away, for results returned to the host.
#ifndef TQV_BRIDGE_HANDLES_H
#define TQV_BRIDGE_HANDLES_H

#include <tqv/plugin_abi.h>

#include <utility>

namespace tqv {

// Lock answers whether a lock was taken: false when the host has no lock service.
struct ObjectLocks {
    static bool Lock(void* handle);
    static void Unlock(void* handle);
};
struct StringLocks {
    static bool Lock(void* handle);
    static void Unlock(void* handle);
};

template <typename T, typename Locks>
class HostRef {
  public:
    HostRef() noexcept = default;
    static HostRef Borrow(T handle) noexcept {
        if (handle == nullptr || !Locks::Lock(handle)) return HostRef();
        return HostRef(handle);
    }
    static HostRef Steal(T handle) noexcept { return HostRef(handle); }

    HostRef(const HostRef& other) noexcept : HostRef(Borrow(other.handle_).Release()) {}
    HostRef(HostRef&& other) noexcept : handle_(other.Release()) {}
    HostRef& operator=(const HostRef& other) noexcept {
        Reset(other.handle_);
        return *this;
    }
    HostRef& operator=(HostRef&& other) noexcept {
        if (this != &other) {
            Unlock(std::exchange(handle_, other.Release()));
        }
        return *this;
    }
    ~HostRef() { Unlock(handle_); }

    T get() const noexcept { return handle_; }
    explicit operator bool() const noexcept { return handle_ != nullptr; }
    // Gives up ownership of the lock without unlocking.
    T Release() noexcept { return std::exchange(handle_, nullptr); }
    // Holds a new lock on `handle` (borrowed) and drops the old one.
    void Reset(T handle = nullptr) noexcept {
        if (handle != nullptr && !Locks::Lock(handle)) handle = nullptr;
        Unlock(std::exchange(handle_, handle));
    }

  private:
    explicit HostRef(T handle) noexcept : handle_(handle) {}
    static void Unlock(T handle) noexcept {
        if (handle != nullptr) Locks::Unlock(handle);
    }
    T handle_ = nullptr;
};

using ObjectRef = HostRef<REALobject, ObjectLocks>;
using PictureRef = HostRef<REALpicture, ObjectLocks>;
using MemoryBlockRef = HostRef<REALmemoryBlock, ObjectLocks>;
using FolderItemRef = HostRef<REALfolderItem, ObjectLocks>;
using StringRef = HostRef<REALstring, StringLocks>;

}  // namespace tqv

#endif  // TQV_BRIDGE_HANDLES_H
