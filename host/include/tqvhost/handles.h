// Host handles and their reference accounting.
//
// Every handle the plugin can see is a Handle registered under the address the plugin gets. Locks
// are counted on two accounts: the host's (Lua wrappers, pictures holding masks, calls in flight)
// and the plugin's. A handle dies when both reach zero; its header stays allocated until the
// process ends so that a late unlock is reported instead of touching freed memory.
#ifndef TQVHOST_HANDLES_H
#define TQVHOST_HANDLES_H

#include <cstdint>
#include <string>
#include <utility>

namespace tqvhost {

enum class Kind { Object, String, MemoryBlock, Picture, FolderItem, Graphics, Array };
const char* kindName(Kind kind);

class Handle {
  public:
    explicit Handle(Kind kind) : kind_(kind) {}
    virtual ~Handle() = default;
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    Kind kind() const { return kind_; }
    // The address the plugin sees for this handle.
    virtual void* address() { return this; }
    bool dead() const { return dead_; }
    // Dead, with its destructor still running: the plugin may still be working on it.
    bool dying() const { return dying_; }
    int64_t hostLocks() const { return hostLocks_; }
    int64_t pluginLocks() const { return pluginLocks_; }

  protected:
    // Runs once when the last lock goes: frees the payload (the header stays).
    virtual void destroy() {}

  private:
    friend class Accounts;
    Kind kind_;
    int64_t hostLocks_ = 0;
    int64_t pluginLocks_ = 0;
    bool dead_ = false;
    bool dying_ = false;
};

// Makes T (a Handle) and registers it under its address. The caller gets no lock: give one
// to the plugin (Accounts::give) or the host (HostRef::adopt / HostRef(h)).
template <class T, class... A>
T* makeHandle(A&&... args);

class Accounts {
  public:
    // The live or dead handle registered at `address`, or nullptr.
    static Handle* find(const void* address);
    // Like find(), but reports unknown, dead or wrong-kind handles (as `service`) and answers nullptr.
    static Handle* check(const void* address, const char* service, bool (*kindOk)(Kind));
    // The same, for a handle that must be of kind `expected`.
    static Handle* check(const void* address, const char* service, Kind expected);
    static void registerHandle(Handle* h);

    static void hostLock(Handle* h);
    static void hostUnlock(Handle* h);
    // The plugin's account: a service hands `h` out, or the plugin locks/unlocks it.
    static void give(Handle* h);
    static void pluginLock(Handle* h, const char* service);
    static void pluginUnlock(Handle* h, const char* service);
    // The plugin hands a handle back as a result (or in a byref slot): its lock moves to the host.
    static void takeBack(Handle* h, const char* what);

    // Private copies a service hands out as plain memory, to be given back by address (the bytes
    // of "PluginGetStringData"): counted in live() under `kind` until given back.
    static void giveCopy(const void* copy, const char* kind);
    // False, with an accounting error, for an address not handed out or already given back.
    static bool takeBackCopy(const void* copy, const char* service);

    static void error(const std::string& message);

  private:
    static void settle(Handle* h);  // kills h when no lock is left
};

// An owning host reference: copy locks, move steals, destruction unlocks.
class HostRef {
  public:
    HostRef() = default;
    explicit HostRef(Handle* h) : h_(h) {
        if (h_) Accounts::hostLock(h_);
    }
    static HostRef adopt(Handle* h) {
        HostRef r;
        r.h_ = h;
        return r;
    }
    HostRef(const HostRef& o) : HostRef(o.h_) {}
    HostRef(HostRef&& o) noexcept : h_(std::exchange(o.h_, nullptr)) {}
    HostRef& operator=(HostRef o) noexcept {
        std::swap(h_, o.h_);
        return *this;
    }
    ~HostRef() {
        if (h_) Accounts::hostUnlock(h_);
    }
    Handle* get() const { return h_; }
    template <class T>
    T* as() const {
        return static_cast<T*>(h_);
    }
    void* address() const { return h_ ? h_->address() : nullptr; }
    explicit operator bool() const { return h_ != nullptr; }

  private:
    Handle* h_ = nullptr;
};

template <class T, class... A>
T* makeHandle(A&&... args) {
    T* h = new T(std::forward<A>(args)...);
    Accounts::registerHandle(h);
    return h;
}

// Kind predicates for Accounts::check.
bool isObjectLike(Kind k);  // everything REALLockObject accepts
bool isString(Kind k);

}  // namespace tqvhost

#endif  // TQVHOST_HANDLES_H
