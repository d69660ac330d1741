// The plugin's vocabulary in Lua: class constructors, methods with overloads, properties,
// constants, events, global methods and assignable rows.
#include <ffi.h>

#include <cctype>
#include <cstring>

#include "lua_host.h"
#include "tqvhost/registry.h"
#include "tqvhost/strings.h"

namespace tqvhost::lua {
namespace {

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

// ---- Overloads ------------------------------------------------------------------------------

bool argsMatch(lua_State* L, int first, int count, const Declaration& d) {
    if (count > static_cast<int>(d.params.size()) || count < static_cast<int>(d.requiredParams()))
        return false;
    for (int i = 0; i < count; ++i)
        if (!matches(L, first + i, d.params[static_cast<size_t>(i)])) return false;
    return true;
}

Value defaultValue(const Param& p) {
    Value v;
    v.kind = p.type.kind;
    const std::string& text = *p.defaultText;
    switch (p.type.kind) {
        case TypeKind::Integer:
        case TypeKind::Color:
            v.i = integerLiteral(text, p.type.kind).value_or(0);  // checked at registration
            break;
        case TypeKind::Single:
        case TypeKind::Double:
            v.d = std::stod(text);
            break;
        case TypeKind::Boolean:
            v.b = equalsIgnoringCase(text, "true");
            break;
        case TypeKind::String: {
            std::string bytes =
                text.size() >= 2 && text.front() == '"' ? text.substr(1, text.size() - 2) : "";
            v.handle = HostRef(newString(bytes, kREALTextEncodingUTF8));
            break;
        }
        default:
            break;  // handles default to nil
    }
    return v;
}

// The index of the first earlier byref parameter given the same Ref as the one at idx, or -1.
int earlierRef(lua_State* L, int first, int idx, const Declaration& d) {
    for (int j = first; j < idx; ++j)
        if (d.params[static_cast<size_t>(j - first)].byref && lua_rawequal(L, j, idx)) return j - first;
    return -1;
}

std::vector<Arg> collectArgs(lua_State* L, int first, int count, const Declaration& d) {
    std::vector<Arg> args;
    for (size_t i = 0; i < d.params.size(); ++i) {
        const Param& p = d.params[i];
        int idx = first + static_cast<int>(i);
        if (static_cast<int>(i) >= count) {
            args.push_back(Arg{defaultValue(p), false});
        } else if (p.byref) {
            lua_getfield(L, idx, "value");
            args.push_back(Arg{toValue(L, -1, p.type, p.array), true});
            lua_pop(L, 1);
            args.back().sameVariableAs = earlierRef(L, first, idx, d);
        } else {
            args.push_back(Arg{toValue(L, idx, p.type, p.array), false});
        }
    }
    return args;
}

void writeBackRefs(lua_State* L, int first, int count, const std::vector<Arg>& args) {
    for (int i = 0; i < count; ++i) {
        const Arg& a = args[static_cast<size_t>(i)];
        if (!a.byref || a.sameVariableAs >= 0) continue;
        pushValue(L, a.value);
        lua_setfield(L, first + i, "value");
    }
}

// The first row that takes the arguments among those offered to the application; nullptr when
// there is none, with *refused set when a row the application is not offered takes them.
template <class Takes>
const Method* chooseRow(const std::vector<const Method*>& rows, Takes takes, bool* refused) {
    for (const Method* m : rows) {
        if (!takes(m->decl)) continue;
        if (offeredToApplication(m->flags)) return m;
        *refused = true;
    }
    return nullptr;
}

// Calls the first row whose parameters take the Lua arguments first..top; pushes the result.
int callOverload(lua_State* L, const std::vector<const Method*>& rows, void* self, int first, Failure& f,
                 const std::string& name) {
    int count = lua_gettop(L) - first + 1;
    bool refused = false;
    const Method* chosen = chooseRow(
        rows, [&](const Declaration& d) { return argsMatch(L, first, count, d); }, &refused);
    if (!chosen && refused) return f.message = notOfferedMessage(name), 0;
    if (!chosen)
        return f.message = "no form of " + name + " takes these " + std::to_string(count) + " arguments", 0;
    Value result;
    {
        std::vector<Arg> args = collectArgs(L, first, count, chosen->decl);
        result = callDeclared(chosen->function, chosen->decl, self, args);
        writeBackRefs(L, first, count, args);
    }
    if (pushPending(L)) return f.pending = true, 0;
    if (chosen->decl.result.kind == TypeKind::None) return 0;
    pushValue(L, result);
    return 1;
}

std::vector<const Method*> rowsNamed(const std::vector<Method>& methods, std::string_view name,
                                     bool setters) {
    std::vector<const Method*> rows;
    for (const Method& m : methods)
        if (equalsIgnoringCase(m.decl.name, name) && (!setters || m.setter)) rows.push_back(&m);
    return rows;
}

// The host class whose extension methods a handle of this kind has.
const char* builtinClassOf(Kind kind) {
    static const char* const kClassOfKind[] = {nullptr,      nullptr,    "MemoryBlock", "Picture",
                                               "FolderItem", "Graphics", nullptr};
    return kClassOfKind[static_cast<int>(kind)];
}

// A method fetched from one value can be called on another: the plugin reads its object as an
// instance of the method's class, so anything else must stop here.
bool isInstanceOf(Handle* h, const Class* cls) {
    if (h->kind() == Kind::Object) return static_cast<ObjectHandle*>(h)->cls() == cls;
    const char* builtin = builtinClassOf(h->kind());
    return builtin && equalsIgnoringCase(builtin, cls->name);
}

// upvalues: class (light userdata, or nil for globals), name
int methodCall(lua_State* L, Failure& f) {
    auto* cls = static_cast<Class*>(lua_touserdata(L, lua_upvalueindex(1)));
    std::string name = lua_tostring(L, lua_upvalueindex(2));
    if (!cls) return callOverload(L, rowsNamed(registry().globals, name, false), nullptr, 1, f, name);
    Handle* self = toHandle(L, 1);
    if (!self || self->dead() || !isInstanceOf(self, cls))
        return f.message = name + ": call it with ':' on a live " + cls->name, 0;
    return callOverload(L, rowsNamed(cls->methods, name, false), self->address(), 2, f, name);
}

void pushMethod(lua_State* L, Class* cls, const std::string& name) {
    if (cls)
        lua_pushlightuserdata(L, cls);
    else
        lua_pushnil(L);
    lua_pushstring(L, name.c_str());
    lua_pushcclosure(L, TQV_LUA_ENTRY(methodCall), 2);
}

// ---- Constants ------------------------------------------------------------------------------

void pushConstant(lua_State* L, const Constant& k) {
    const std::string& t = k.valueText;
    if (t.size() >= 2 && t.front() == '"') return (void)lua_pushlstring(L, t.data() + 1, t.size() - 2);
    if (equalsIgnoringCase(t, "true") || equalsIgnoringCase(t, "false"))
        return lua_pushboolean(L, t[0] == 't' || t[0] == 'T');
    if (lua_stringtonumber(L, t.c_str()) == 0) lua_pushstring(L, t.c_str());
}

// ---- Classes --------------------------------------------------------------------------------

int construct(lua_State* L, Failure& f) {
    auto* cls = static_cast<Class*>(lua_touserdata(L, lua_upvalueindex(1)));
    ObjectHandle* o = newObject(cls, false);
    HostRef keep = HostRef::adopt(o);  // the lock newObject gave the host
    if (pushPending(L)) return f.pending = true, 0;
    pushHandle(L, o);
    return 1;
}

int classIndex(lua_State* L, Failure&) {
    auto* cls = static_cast<Class*>(lua_touserdata(L, lua_upvalueindex(1)));
    const char* key = lua_tostring(L, 2);
    const Constant* k = key ? cls->findConstant(key) : nullptr;
    if (k)
        pushConstant(L, *k);
    else
        lua_pushnil(L);
    return 1;
}

void installClass(lua_State* L, Class* cls) {
    lua_newtable(L);
    lua_createtable(L, 0, 2);
    lua_pushlightuserdata(L, cls);
    lua_pushcclosure(L, TQV_LUA_ENTRY(construct), 1);
    lua_setfield(L, -2, "__call");
    lua_pushlightuserdata(L, cls);
    lua_pushcclosure(L, TQV_LUA_ENTRY(classIndex), 1);
    lua_setfield(L, -2, "__index");
    lua_setmetatable(L, -2);
    lua_setglobal(L, cls->name.c_str());
}

// ---- assign(object, name, value, args...) ---------------------------------------------------

int assign(lua_State* L, Failure& f) {
    // Only a plugin object is an ObjectHandle: the kind is asked before the cast.
    Handle* h = toHandle(L, 1);
    auto* o = h && h->kind() == Kind::Object ? static_cast<ObjectHandle*>(h) : nullptr;
    const char* name = lua_tostring(L, 2);
    if (!o || o->dead() || !name) return f.message = "assign(object, name, value, ...) expected", 0;
    int count = lua_gettop(L) - 3;
    bool refused = false;
    const Method* chosen = chooseRow(
        rowsNamed(o->cls()->methods, name, true),
        [&](const Declaration& d) { return argsMatch(L, 4, count, d) && matchesType(L, 3, d.result, false); },
        &refused);
    if (!chosen && refused) return f.message = notOfferedMessage(name), 0;
    if (!chosen)
        return f.message = std::string("no assignable form of ") + name + " takes these arguments", 0;
    {
        std::vector<Arg> args = collectArgs(L, 4, count, chosen->decl);
        Value assigned = toValue(L, 3, chosen->decl.result, false);
        callDeclared(chosen->setter, chosen->decl, o->address(), args, &assigned);
        writeBackRefs(L, 4, count, args);
    }
    if (pushPending(L)) return f.pending = true, 0;
    return 0;
}

// ---- Events ---------------------------------------------------------------------------------

// Pushes the handlers table of o's wrapper; false (nothing pushed) when Lua holds no wrapper.
bool pushHandlers(lua_State* L, Handle* o) {
    if (!pushExistingWrapper(L, o)) return false;
    lua_getiuservalue(L, -1, 1);
    lua_remove(L, -2);
    return true;
}

bool hasHandler(ObjectHandle* o, const Event& e) {
    lua_State* L = state();
    if (!pushHandlers(L, o)) return false;
    lua_getfield(L, -1, lower(e.decl.name).c_str());
    bool set = lua_isfunction(L, -1);
    lua_pop(L, 2);
    return set;
}

void pushEventArg(lua_State* L, const Param& p, void* arg) {
    if (p.byref || p.array) return lua_pushnil(L);  // not offered to handlers
    switch (p.type.kind) {
        case TypeKind::Integer:
            return lua_pushinteger(L, *static_cast<int32_t*>(arg));
        case TypeKind::Color:
            return lua_pushinteger(L, *static_cast<uint32_t*>(arg));
        case TypeKind::Boolean:
            return lua_pushboolean(L, *static_cast<uint8_t*>(arg) != 0);
        case TypeKind::Single:
            return lua_pushnumber(L, *static_cast<float*>(arg));
        case TypeKind::Double:
            return lua_pushnumber(L, *static_cast<double*>(arg));
        default:
            break;
    }
    void* address = *static_cast<void**>(arg);
    pushHandle(L, address ? Accounts::check(address, "event argument", nullptr) : nullptr);
}

void storeEventResult(lua_State* L, const Type& t, void* ret) {
    ffi_arg wide = 0;
    if (t.kind == TypeKind::Boolean)
        wide = lua_toboolean(L, -1);
    else if (t.kind == TypeKind::Integer || t.kind == TypeKind::Color)
        wide = static_cast<ffi_arg>(lua_tointeger(L, -1));
    else if (t.kind == TypeKind::Double)
        return (void)(*static_cast<double*>(ret) = lua_tonumber(L, -1));
    else if (t.kind == TypeKind::Single)
        return (void)(*static_cast<float*>(ret) = static_cast<float>(lua_tonumber(L, -1)));
    else
        return;  // handle results are not supported: the plugin gets nil
    std::memcpy(ret, &wide, sizeof wide);
}

void runHandler(ObjectHandle* o, const Event& e, void** args, void* ret) {
    lua_State* L = state();
    int top = lua_gettop(L);
    if (!pushHandlers(L, o)) return;
    lua_getfield(L, -1, lower(e.decl.name).c_str());
    pushExistingWrapper(L, o);
    for (size_t i = 0; i < e.decl.params.size(); ++i) pushEventArg(L, e.decl.params[i], args[i + 1]);
    if (lua_pcall(L, static_cast<int>(e.decl.params.size()) + 1, 1, 0) != LUA_OK)
        setPendingLuaError(L);
    else
        storeEventResult(L, e.decl.result, ret);
    lua_settop(L, top);
}

}  // namespace

// ---- Members of plugin objects --------------------------------------------------------------

int pluginObjectIndex(lua_State* L, Handle* h, const char* key, Failure& f) {
    auto* o = static_cast<ObjectHandle*>(h);
    Class* cls = o->cls();
    if (cls->origin == ClassOrigin::HostException && equalsIgnoringCase(key, "Message")) {
        auto it = o->stringProps.find("message");
        pushHandle(L, it == o->stringProps.end() ? nullptr : it->second.get());
        return 1;
    }
    if (const Property* p = cls->findProperty(key)) {
        if (!offeredToApplication(p->flags)) return f.message = notOfferedMessage(p->name), 0;
        Value v = getProperty(o, *p);
        if (pushPending(L)) return f.pending = true, 0;
        pushValue(L, v);
        return 1;
    }
    if (!rowsNamed(cls->methods, key, false).empty())
        return pushMethod(L, cls, rowsNamed(cls->methods, key, false)[0]->decl.name), 1;
    if (const Constant* k = cls->findConstant(key)) return pushConstant(L, *k), 1;
    if (const Event* e = cls->findEvent(key)) {
        if (!pushHandlers(L, o)) return 0;
        lua_getfield(L, -1, lower(e->decl.name).c_str());
        lua_remove(L, -2);
        return 1;
    }
    return 0;
}

bool pluginObjectNewIndex(lua_State* L, Handle* h, const char* key, int valueIdx, Failure& f) {
    auto* o = static_cast<ObjectHandle*>(h);
    if (o->dead()) return false;
    Class* cls = o->cls();
    if (const Event* e = cls->findEvent(key)) {
        if (!lua_isnil(L, valueIdx) && !lua_isfunction(L, valueIdx))
            return f.message = "an event handler must be a function", false;
        if (!pushHandlers(L, o)) return false;
        lua_pushvalue(L, valueIdx);
        lua_setfield(L, -2, lower(e->decl.name).c_str());
        lua_pop(L, 1);
        return true;
    }
    const Property* p = cls->findProperty(key);
    if (!p) return false;
    if (!offeredToApplication(p->flags)) return f.message = notOfferedMessage(p->name), false;
    if (!matchesType(L, valueIdx, p->type, false))
        return f.message = std::string(key) + ": value of type " + typeName(p->type) + " expected", false;
    if (!p->field() && !p->setter) return f.message = std::string(key) + " is read-only", false;
    setProperty(o, *p, toValue(L, valueIdx, p->type, false));
    if (pushPending(L)) f.pending = true;
    return true;
}

int extensionMethod(lua_State* L, Handle* h, const char* key) {
    const char* className = builtinClassOf(h->kind());
    Class* cls = className ? registry().find(className) : nullptr;
    if (!cls) return 0;
    auto rows = rowsNamed(cls->methods, key, false);
    if (rows.empty()) return 0;
    pushMethod(L, cls, rows[0]->decl.name);
    return 1;
}

void installPlugin(lua_State* L) {
    for (const auto& cls : registry().classes)
        if (cls->origin == ClassOrigin::Plugin) installClass(L, cls.get());
    for (const Method& m : registry().globals) {
        pushMethod(L, nullptr, m.decl.name);
        lua_setglobal(L, m.decl.name.c_str());
    }
    lua_pushcfunction(L, TQV_LUA_ENTRY(assign));
    lua_setglobal(L, "assign");
    embedding().hasHandler = hasHandler;
    embedding().runHandler = runHandler;
}

}  // namespace tqvhost::lua
