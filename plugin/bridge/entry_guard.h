// The trampoline between the host's C calls and the plugin's C++ implementations.
//
// Every registered function is reached through Entry<&Implementation>::Call, which catches
// everything so that no C++ exception crosses into the host; a function that threw returns its
// failure value (false, 0, nil).
#ifndef TQV_BRIDGE_ENTRY_GUARD_H
#define TQV_BRIDGE_ENTRY_GUARD_H

namespace tqv {

template <auto Function>
struct Entry;

template <typename R, typename... A, R (*Function)(A...)>
struct Entry<Function> {
    static R Call(A... args) noexcept {
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
