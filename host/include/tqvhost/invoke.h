// Calls into the plugin through libffi, with the reference accounting of arguments and results:
// by-value handles are borrowed, byref slots lend their handle to the plugin for the call, and
// handles the plugin returns bring their lock to the host.
#ifndef TQVHOST_INVOKE_H
#define TQVHOST_INVOKE_H

#include <cstdint>
#include <vector>

#include "tqvhost/declaration.h"
#include "tqvhost/handles.h"
#include "tqvhost/registry.h"

namespace tqvhost {

// A host value typed by the declaration it is passed to or returned from.
struct Value {
    TypeKind kind = TypeKind::None;  // None: no value (nil)
    int64_t i = 0;                   // Integer, Color
    double d = 0;                    // Single, Double
    bool b = false;                  // Boolean
    HostRef handle;                  // String, MemoryBlock, Picture, FolderItem, Graphics, Object
    std::vector<int32_t> array;      // array parameters

    static Value integer(TypeKind k, int64_t v) {
        Value x;
        x.kind = k;
        x.i = v;
        return x;
    }
};

// One argument; a byref argument's value is replaced by the slot's content after the call.
// A variable passed to several byref parameters is one slot, as in the runtime: the later
// arguments name the first (`sameVariableAs`, its index) and must be declared with its type;
// the plugin gets one address for all of them, and after the call they all hold the slot's content.
struct Arg {
    Value value;
    bool byref = false;
    int sameVariableAs = -1;
};

// Calls fn(self?, args...) as declared. `self` is the object address (nullptr for a global);
// `assigned`, when given, is appended as the setter's value of an assignable row.
Value callDeclared(void* fn, const Declaration& decl, void* self, std::vector<Arg>& args,
                   const Value* assigned = nullptr);

// The kind of handle a declared type holds (Object for the types that hold none).
Kind handleKindOf(TypeKind kind);

Value getProperty(ObjectHandle* object, const Property& property);
void setProperty(ObjectHandle* object, const Property& property, const Value& value);

}  // namespace tqvhost

#endif  // TQVHOST_INVOKE_H
