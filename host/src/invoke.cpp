#include "tqvhost/invoke.h"

#include <ffi.h>

#include <cstring>
#include <deque>
#include <stdexcept>

#include "services.h"
#include "tqvhost/values.h"

namespace tqvhost {
namespace {

union Raw {
    int32_t i;
    bool b;
    float f;
    double d;
    uint32_t c;
    void* p;
    intptr_t word;
};

ffi_type* ffiWord() {
    return sizeof(intptr_t) == 8 ? &ffi_type_sint64 : &ffi_type_sint32;
}

// Argument list under construction: types plus stable storage for the values.
struct Frame {
    std::vector<ffi_type*> types;
    std::deque<Raw> slots;      // stable addresses
    std::vector<void*> values;  // pointers into slots
    std::vector<HostRef> keepAlive;

    Raw& push(ffi_type* type) {
        Raw& r = slots.emplace_back();
        std::memset(&r, 0, sizeof r);
        types.push_back(type);
        values.push_back(&r);
        return r;
    }
};

Raw rawOf(TypeKind kind, const Value& v, Frame& f, bool array) {
    Raw r;
    std::memset(&r, 0, sizeof r);
    if (array) {
        auto* a = makeHandle<ArrayHandle>(v.array);
        f.keepAlive.emplace_back(a);
        r.p = a->address();
        return r;
    }
    switch (kind) {
        case TypeKind::Integer:
            r.i = static_cast<int32_t>(v.i);
            break;
        case TypeKind::Boolean:
            r.b = v.b;
            break;
        case TypeKind::Single:
            r.f = static_cast<float>(v.d);
            break;
        case TypeKind::Double:
            r.d = v.d;
            break;
        case TypeKind::Color:
            r.c = static_cast<uint32_t>(v.i);
            break;
        case TypeKind::None:
            break;
        default:
            r.p = v.handle.address();
            break;
    }
    return r;
}

// A handle the plugin hands back (result or byref slot): its lock moves to the host.
Value valueOfHandle(TypeKind kind, void* p, const char* what) {
    Value v;
    v.kind = kind;
    if (!p) return v;
    // A plugin that answers "as memoryblock" with a string would have the runtime use the string
    // as a block.
    Handle* h = Accounts::check(p, what, handleKindOf(kind));
    if (h) {
        Accounts::takeBack(h, what);
        v.handle = HostRef::adopt(h);
    }
    return v;
}

Value valueOf(TypeKind kind, const Raw& r, const char* what) {
    switch (kind) {
        case TypeKind::None:
            return Value{};
        case TypeKind::Integer:
            return Value::integer(kind, r.i);
        case TypeKind::Color:
            return Value::integer(kind, r.c);
        case TypeKind::Boolean: {
            Value v;
            v.kind = kind;
            v.b = r.b;
            return v;
        }
        case TypeKind::Single:
        case TypeKind::Double: {
            Value v;
            v.kind = kind;
            v.d = kind == TypeKind::Single ? r.f : r.d;
            return v;
        }
        default:
            return valueOfHandle(kind, r.p, what);
    }
}

// Reads a libffi return buffer: integer results smaller than a word come widened to ffi_arg.
Raw fromReturn(TypeKind kind, const void* buffer) {
    Raw r;
    std::memset(&r, 0, sizeof r);
    ffi_arg wide;
    switch (kind) {
        case TypeKind::Integer:
            std::memcpy(&wide, buffer, sizeof wide);
            r.i = static_cast<int32_t>(wide);
            break;
        case TypeKind::Boolean:
            std::memcpy(&wide, buffer, sizeof wide);
            r.b = (wide & 0xFF) != 0;
            break;
        case TypeKind::Color:
            std::memcpy(&wide, buffer, sizeof wide);
            r.c = static_cast<uint32_t>(wide);
            break;
        case TypeKind::Single:
            std::memcpy(&r.f, buffer, sizeof r.f);
            break;
        case TypeKind::Double:
            std::memcpy(&r.d, buffer, sizeof r.d);
            break;
        case TypeKind::None:
            break;
        default:
            std::memcpy(&r.p, buffer, sizeof r.p);
            break;
    }
    return r;
}

Raw callFrame(void* fn, Frame& f, TypeKind result) {
    ffi_cif cif;
    if (ffi_prep_cif(&cif, FFI_DEFAULT_ABI, static_cast<unsigned>(f.types.size()), ffiTypeOf(result),
                     f.types.data()) != FFI_OK)
        throw std::runtime_error("ffi_prep_cif failed");
    alignas(16) unsigned char buffer[16] = {};
    ffi_call(&cif, reinterpret_cast<void (*)()>(fn), buffer, f.values.data());
    return fromReturn(result, buffer);
}

void checkField(ObjectHandle* object, const Property& property) {
    if (property.param < 0 || static_cast<uint64_t>(property.param) + 4 > object->cls()->dataSize)
        throw std::runtime_error(property.name + ": field offset outside the instance data");
}

// Integer and Color arguments are 32 bits: a wider value would reach the plugin cut short.
void checkRange(TypeKind kind, const Value& v, const std::string& what) {
    if ((kind == TypeKind::Integer || kind == TypeKind::Color) && !integerFits(kind, v.i))
        throw std::runtime_error(what + ": " + std::to_string(v.i) + " is out of the range of " +
                                 typeName(Type{kind, {}}));
}

bool sameType(const Param& a, const Param& b) {
    return a.type.kind == b.type.kind && a.array == b.array &&
           equalsIgnoringCase(a.type.className, b.type.className);
}

// Checked before any handle is lent, so that a refused call leaves no lock behind.
void checkSharedVariables(const Declaration& decl, const std::vector<Arg>& args) {
    for (size_t i = 0; i < args.size() && i < decl.params.size(); ++i) {
        int j = args[i].sameVariableAs;
        if (j < 0) continue;
        auto first = static_cast<size_t>(j);
        if (first >= i || !decl.params[i].byref || !decl.params[first].byref ||
            args[first].sameVariableAs >= 0)
            throw std::runtime_error(decl.name + ": argument " + std::to_string(i + 1) +
                                     " shares a variable with no earlier byref argument");
        if (!sameType(decl.params[first], decl.params[i]))
            throw std::runtime_error(decl.name + ": one variable passed byref as " +
                                     typeName(decl.params[first].type) + " and as " +
                                     typeName(decl.params[i].type));
    }
}

}  // namespace

ffi_type* ffiTypeOf(TypeKind k) {
    switch (k) {
        case TypeKind::None:
            return &ffi_type_void;
        case TypeKind::Integer:
            return &ffi_type_sint32;
        case TypeKind::Boolean:
            return &ffi_type_uint8;
        case TypeKind::Single:
            return &ffi_type_float;
        case TypeKind::Double:
            return &ffi_type_double;
        case TypeKind::Color:
            return &ffi_type_uint32;
        default:
            return &ffi_type_pointer;
    }
}

Value callDeclared(void* fn, const Declaration& decl, void* self, std::vector<Arg>& args,
                   const Value* assigned) {
    if (!fn) throw std::runtime_error(decl.name + ": no implementing function");
    for (size_t i = 0; i < args.size() && i < decl.params.size(); ++i)
        if (!decl.params[i].array) checkRange(decl.params[i].type.kind, args[i].value, decl.name);
    if (assigned) checkRange(decl.result.kind, *assigned, decl.name);
    checkSharedVariables(decl, args);
    Frame f;
    if (self) f.push(&ffi_type_pointer).p = self;
    std::vector<Raw*> byrefSlots(args.size(), nullptr);
    for (size_t i = 0; i < args.size() && i < decl.params.size(); ++i) {
        const Param& p = decl.params[i];
        if (args[i].sameVariableAs >= 0) {
            // The first argument's slot: its handle is lent once and taken back once.
            f.push(&ffi_type_pointer).p = byrefSlots[static_cast<size_t>(args[i].sameVariableAs)];
            continue;
        }
        Raw value = rawOf(p.type.kind, args[i].value, f, p.array);
        if (!p.byref) {
            f.push(p.array ? &ffi_type_pointer : ffiTypeOf(p.type.kind)) = value;
            continue;
        }
        // The slot's handle is lent to the plugin for the call.
        Raw& slot = f.slots.emplace_back(value);
        if (p.type.isHandle() && args[i].value.handle) Accounts::give(args[i].value.handle.get());
        byrefSlots[i] = &slot;
        f.push(&ffi_type_pointer).p = &slot;
    }
    if (assigned) f.push(ffiTypeOf(decl.result.kind)) = rawOf(decl.result.kind, *assigned, f, false);
    Raw r = callFrame(fn, f, assigned ? TypeKind::None : decl.result.kind);
    for (size_t i = 0; i < args.size(); ++i) {
        if (byrefSlots[i]) args[i].value = valueOf(decl.params[i].type.kind, *byrefSlots[i], "byref slot");
        if (args[i].sameVariableAs >= 0)
            args[i].value = args[static_cast<size_t>(args[i].sameVariableAs)].value;
    }
    return assigned ? Value{} : valueOf(decl.result.kind, r, "result");
}

Kind handleKindOf(TypeKind kind) {
    switch (kind) {
        case TypeKind::String:
            return Kind::String;
        case TypeKind::MemoryBlock:
            return Kind::MemoryBlock;
        case TypeKind::Picture:
            return Kind::Picture;
        case TypeKind::FolderItem:
            return Kind::FolderItem;
        case TypeKind::Graphics:
            return Kind::Graphics;
        default:
            return Kind::Object;
    }
}

Value getProperty(ObjectHandle* object, const Property& property) {
    if (property.field()) {
        checkField(object, property);
        int32_t v;
        std::memcpy(&v, object->data() + property.param, sizeof v);
        return Value::integer(TypeKind::Integer, v);
    }
    if (!property.getter) throw std::runtime_error(property.name + " cannot be read");
    Frame f;
    f.push(&ffi_type_pointer).p = object->address();
    f.push(ffiWord()).word = property.param;
    return valueOf(property.type.kind, callFrame(property.getter, f, property.type.kind), "property");
}

void setProperty(ObjectHandle* object, const Property& property, const Value& value) {
    checkRange(property.type.kind, value, property.name);
    if (property.field()) {
        checkField(object, property);
        int32_t v = static_cast<int32_t>(value.i);
        std::memcpy(object->data() + property.param, &v, sizeof v);
        return;
    }
    if (!property.setter) throw std::runtime_error(property.name + " is read-only");
    Frame f;
    f.push(&ffi_type_pointer).p = object->address();
    f.push(ffiWord()).word = property.param;
    f.push(ffiTypeOf(property.type.kind)) = rawOf(property.type.kind, value, f, false);
    callFrame(property.setter, f, TypeKind::None);
}

}  // namespace tqvhost
