// The trampoline between the host's C calls and the plugin's C++ implementations.
//
// Every registered function is reached through Entry<&Implementation>::Call, which catches
// everything so that no C++ exception crosses into the host; a function that threw returns its
// failure value (false, 0, nil).
//
// While an Error or Warning handler runs, libtiff is in the middle of a call on some handle: its
// codec state, strip buffers and the JPEG codec's jump buffer belong to that call, and host code
// run by the handler must not reach libtiff (a nested decode, a directory change or a close would
// pull them away). Registered functions then give their failure value at once; only those marked
// with kRunsDuringMessages run (construction, destruction, and Close, which puts the real close
// off until the outermost plugin call returns).
#ifndef TQV_BRIDGE_ENTRY_GUARD_H
#define TQV_BRIDGE_ENTRY_GUARD_H

#include <utility>
#include <vector>

namespace tqv {

// Error and Warning handlers running now (messages.cpp counts them).
inline int gMessageHandlerDepth = 0;
// Registered calls in progress, nested ones included.
inline int gEntryDepth = 0;

// Work put off until no registered call is in progress.
struct DeferredWork {
    void (*run)(void* subject) = nullptr;
    void* subject = nullptr;
    const void* owner = nullptr;  // whose work it is (a session record)
};
inline std::vector<DeferredWork> gDeferredWork;

// Runs the owner's deferred work now (nullptr: everyone's).
inline void RunDeferredWork(const void* owner) noexcept {
    std::vector<DeferredWork> due;
    std::vector<DeferredWork> kept;
    for (DeferredWork& w : gDeferredWork) (owner == nullptr || w.owner == owner ? due : kept).push_back(w);
    gDeferredWork = std::move(kept);
    for (const DeferredWork& w : due) w.run(w.subject);
}

template <auto Function>
inline constexpr bool kRunsDuringMessages = false;

template <auto Function>
struct Entry;

// Counts a registered call in progress; the outermost one runs the deferred work as it returns.
struct EntryScope {
    EntryScope() noexcept { ++gEntryDepth; }
    ~EntryScope() {
        if (--gEntryDepth == 0 && !gDeferredWork.empty()) RunDeferredWork(nullptr);
    }
    EntryScope(const EntryScope&) = delete;
    EntryScope& operator=(const EntryScope&) = delete;
};

template <typename R, typename... A, R (*Function)(A...)>
struct Entry<Function> {
    static R Call(A... args) noexcept {
        if (gMessageHandlerDepth > 0 && !kRunsDuringMessages<Function>) return R();
        const EntryScope scope;
        try {
            return Function(args...);
        } catch (...) {
            return R();
        }
    }
};

// The trampoline's address in the generic shape the registration records hold.
template <auto Function>
void (*EntryMethod())() {
    return reinterpret_cast<void (*)()>(&Entry<Function>::Call);
}

// The trampoline as a typed pointer (constructors, destructors).
template <typename Proc, auto Function>
Proc EntryMethodAs() {
    return &Entry<Function>::Call;
}

template <auto Function>
void* EntryAccessor() {
    return reinterpret_cast<void*>(&Entry<Function>::Call);
}

}  // namespace tqv

#endif  // TQV_BRIDGE_ENTRY_GUARD_H
