// Host values in Lua: handle wrappers, conversions, and the host built-ins.
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <type_traits>

#include "lua_host.h"
#include "tqvhost/host.h"
#include "tqvhost/picture.h"
#include "tqvhost/registry.h"
#include "tqvhost/strings.h"
#include "tqvhost/values.h"

namespace tqvhost::lua {
namespace {

constexpr const char* kHandleMeta = "tqv.handle";
constexpr const char* kRefMeta = "tqv.Ref";
constexpr const char* kCache = "tqv.cache";
constexpr const char* kPending = "tqv.pending";

struct Wrapper {
    HostRef ref;
};

// An integer argument of a built-in, held to the rule of the plugin's Integer parameters: a
// number with an integral value (5.0 counts) from lo to hi. An absent or nil argument gives
// `fallback` when there is one. Anything else sets a failure naming `what` and gives nullopt:
// read as 0 or the fallback, a wrong argument would read or write another place or value
// without a word. (luaL_checkinteger would longjmp past C++ objects alive in the body.)
std::optional<lua_Integer> integerArg(lua_State* L, int idx, const char* what, Failure& f,
                                      std::optional<lua_Integer> fallback = std::nullopt,
                                      lua_Integer lo = LUA_MININTEGER, lua_Integer hi = LUA_MAXINTEGER) {
    if (fallback && lua_isnoneornil(L, idx)) return fallback;
    int isInteger = 0;
    const lua_Integer v = lua_tointegerx(L, idx, &isInteger);
    if (lua_type(L, idx) != LUA_TNUMBER || !isInteger) {
        std::string got = luaL_typename(L, idx);
        if (lua_type(L, idx) == LUA_TNUMBER) {
            lua_pushvalue(L, idx);
            got = lua_tostring(L, -1);
            lua_pop(L, 1);
        }
        f.message = std::string(what) + ": an integer expected, got " + got;
        return std::nullopt;
    }
    if (v < lo || v > hi) {
        f.message = std::string(what) + ": " + std::to_string(v) + " is outside " + std::to_string(lo) +
                    " to " + std::to_string(hi);
        return std::nullopt;
    }
    return v;
}

// A path argument: a Lua string without NUL bytes (the file system would see only the bytes
// before the first one, and act on another file). nullptr with a failure naming `what` otherwise.
const char* pathArg(lua_State* L, int idx, const char* what, Failure& f) {
    size_t n = 0;
    const char* path = lua_type(L, idx) == LUA_TSTRING ? lua_tolstring(L, idx, &n) : nullptr;
    if (!path) return f.message = std::string(what) + " expected", nullptr;
    if (std::strlen(path) != n)
        return f.message = std::string(what) + ": the path contains a NUL byte", nullptr;
    return path;
}

Wrapper* toWrapper(lua_State* L, int idx) {
    return static_cast<Wrapper*>(luaL_testudata(L, idx, kHandleMeta));
}

template <class T>
T* handleOf(lua_State* L, int idx, Kind kind) {
    Handle* h = toHandle(L, idx);
    return h && h->kind() == kind ? static_cast<T*>(h) : nullptr;
}

}  // namespace

lua_State*& stateSlot() {
    static lua_State* L = nullptr;
    return L;
}
lua_State* state() {
    return stateSlot();
}

int entry(lua_State* L, Body body) {
    int results = 0;
    bool failed = false;
    {
        RaiseScope ownExceptions;
        Failure f;
        try {
            results = body(L, f);
        } catch (const std::exception& e) {
            f.message = e.what();
        }
        if (f) {
            failed = true;
            if (!f.pending) lua_pushstring(L, f.message.c_str());
        }
    }
    if (failed) return lua_error(L);
    return results;
}

// ---- Wrappers -------------------------------------------------------------------------------

Handle* toHandle(lua_State* L, int idx) {
    Wrapper* w = toWrapper(L, idx);
    return w ? w->ref.get() : nullptr;
}

bool pushExistingWrapper(lua_State* L, Handle* h) {
    lua_getfield(L, LUA_REGISTRYINDEX, kCache);
    lua_rawgetp(L, -1, h->address());
    lua_remove(L, -2);
    if (!lua_isnil(L, -1)) return true;
    lua_pop(L, 1);
    return false;
}

void pushHandle(lua_State* L, Handle* h) {
    if (!h) return lua_pushnil(L);
    if (pushExistingWrapper(L, h)) return;
    auto* w = static_cast<Wrapper*>(lua_newuserdatauv(L, sizeof(Wrapper), 1));
    new (w) Wrapper{HostRef(h)};
    luaL_setmetatable(L, kHandleMeta);
    lua_newtable(L);  // event handlers of an object
    lua_setiuservalue(L, -2, 1);
    lua_getfield(L, LUA_REGISTRYINDEX, kCache);
    lua_pushvalue(L, -2);
    lua_rawsetp(L, -2, h->address());
    lua_pop(L, 1);
}

bool isRef(lua_State* L, int idx) {
    return luaL_testudata(L, idx, kRefMeta) || [&] {
        if (!lua_istable(L, idx) || !lua_getmetatable(L, idx)) return false;
        luaL_getmetatable(L, kRefMeta);
        bool same = lua_rawequal(L, -1, -2);
        lua_pop(L, 2);
        return same;
    }();
}

// ---- Conversions ----------------------------------------------------------------------------

void pushValue(lua_State* L, const Value& v) {
    switch (v.kind) {
        case TypeKind::None:
            lua_pushnil(L);
            break;
        case TypeKind::Integer:
        case TypeKind::Color:
            lua_pushinteger(L, v.i);
            break;
        case TypeKind::Boolean:
            lua_pushboolean(L, v.b);
            break;
        case TypeKind::Single:
        case TypeKind::Double:
            lua_pushnumber(L, v.d);
            break;
        default:
            pushHandle(L, v.handle.get());
            break;
    }
}

// A number with an integral value (5.0 counts) within the range of Integer or Color.
static bool fitsInteger(lua_State* L, int idx, TypeKind kind) {
    int isInteger = 0;
    lua_Integer v = lua_tointegerx(L, idx, &isInteger);
    return lua_type(L, idx) == LUA_TNUMBER && isInteger && integerFits(kind, v);
}

// Host arrays hold Integer or Color elements; every element must be one.
static bool fitsArray(lua_State* L, int idx, TypeKind kind) {
    if (kind != TypeKind::Integer && kind != TypeKind::Color) return false;
    auto n = static_cast<lua_Integer>(lua_rawlen(L, idx));
    for (lua_Integer i = 1; i <= n; ++i) {
        lua_geti(L, idx, i);
        bool fits = fitsInteger(L, -1, kind);
        lua_pop(L, 1);
        if (!fits) return false;
    }
    return true;
}

bool matchesType(lua_State* L, int idx, const Type& type, bool array) {
    int lt = lua_type(L, idx);
    if (array) return lt == LUA_TTABLE && !isRef(L, idx) && fitsArray(L, idx, type.kind);
    switch (type.kind) {
        case TypeKind::Integer:
        case TypeKind::Color:
            return fitsInteger(L, idx, type.kind);
        case TypeKind::Single:
        case TypeKind::Double:
            return lt == LUA_TNUMBER;
        case TypeKind::Boolean:
            return lt == LUA_TBOOLEAN;
        case TypeKind::None:
            return false;
        default:
            break;
    }
    if (lt == LUA_TNIL) return true;
    if (type.kind == TypeKind::String && lt == LUA_TSTRING) return true;
    Handle* h = toHandle(L, idx);
    if (!h || h->kind() != handleKindOf(type.kind)) return false;
    if (type.kind != TypeKind::Object) return true;
    return equalsIgnoringCase(static_cast<ObjectHandle*>(h)->cls()->name, type.className);
}

bool matches(lua_State* L, int idx, const Param& param) {
    if (!param.byref) return matchesType(L, idx, param.type, param.array);
    if (!isRef(L, idx)) return false;
    lua_getfield(L, idx, "value");
    bool ok = matchesType(L, -1, param.type, param.array);
    lua_pop(L, 1);
    return ok;
}

Value toValue(lua_State* L, int idx, const Type& type, bool array) {
    Value v;
    v.kind = type.kind;
    if (array) {
        auto n = static_cast<lua_Integer>(lua_rawlen(L, idx));
        for (lua_Integer i = 1; i <= n; ++i) {
            lua_geti(L, idx, i);
            v.array.push_back(static_cast<int32_t>(lua_tointeger(L, -1)));
            lua_pop(L, 1);
        }
        return v;
    }
    switch (type.kind) {
        case TypeKind::Integer:
        case TypeKind::Color:
            v.i = lua_tointeger(L, idx);
            return v;
        case TypeKind::Single:
        case TypeKind::Double:
            v.d = lua_tonumber(L, idx);
            return v;
        case TypeKind::Boolean:
            v.b = lua_toboolean(L, idx);
            return v;
        default:
            break;
    }
    if (lua_type(L, idx) == LUA_TSTRING) {
        size_t n;
        const char* s = lua_tolstring(L, idx, &n);
        v.handle = HostRef(newString(std::string_view(s, n), kREALTextEncodingUTF8));
    } else {
        v.handle = HostRef(toHandle(L, idx));
    }
    return v;
}

// ---- Pending errors -------------------------------------------------------------------------

void setPendingLuaError(lua_State* L) {
    lua_getfield(L, LUA_REGISTRYINDEX, kPending);
    bool already = !lua_isnil(L, -1);
    lua_pop(L, 1);
    if (already) return lua_pop(L, 1);  // the first error wins
    lua_setfield(L, LUA_REGISTRYINDEX, kPending);
}

bool pushPending(lua_State* L) {
    lua_getfield(L, LUA_REGISTRYINDEX, kPending);
    if (!lua_isnil(L, -1)) {
        lua_pushnil(L);
        lua_setfield(L, LUA_REGISTRYINDEX, kPending);
        takeRaisedException();  // the Lua error is the one to report
        return true;
    }
    lua_pop(L, 1);
    auto e = takeRaisedException();
    if (!e) return false;
    lua_createtable(L, 0, 2);
    lua_pushstring(L, e->className.c_str());
    lua_setfield(L, -2, "class");
    lua_pushstring(L, e->message.c_str());
    lua_setfield(L, -2, "message");
    return true;
}

namespace {

// ---- Per-kind members -----------------------------------------------------------------------

size_t checkedRange(MemoryBlockHandle* mb, lua_Integer offset, lua_Integer length, Failure& f) {
    // Compared without adding: offset and length come from the program and may be anything.
    if (offset < 0 || length < 0 ||
        (!mb->foreign() && (offset > mb->size() || length > mb->size() - offset))) {
        f.message = "MemoryBlock: offset " + std::to_string(offset) + " + " + std::to_string(length) +
                    " outside the block of " + std::to_string(mb->size()) + " bytes";
        return 0;
    }
    return static_cast<size_t>(offset);
}

template <class T>
int readScalar(lua_State* L, Failure& f) {
    auto* mb = handleOf<MemoryBlockHandle>(L, 1, Kind::MemoryBlock);
    if (!mb) return f.message = "MemoryBlock expected", 0;
    const auto offset = integerArg(L, 2, "MemoryBlock: offset", f, 0);
    if (!offset) return 0;
    size_t at = checkedRange(mb, *offset, sizeof(T), f);
    if (f) return 0;
    T v;
    std::memcpy(&v, mb->data() + at, sizeof v);
    lua_pushinteger(L, v);
    return 1;
}

template <class T>
int writeScalar(lua_State* L, Failure& f) {
    auto* mb = handleOf<MemoryBlockHandle>(L, 1, Kind::MemoryBlock);
    if (!mb) return f.message = "MemoryBlock expected", 0;
    const auto offset = integerArg(L, 2, "MemoryBlock: offset", f, 0);
    if (!offset) return 0;
    size_t at = checkedRange(mb, *offset, sizeof(T), f);
    if (f) return 0;
    // Only what the field holds, unsigned or as its signed counterpart (-1 stores all bits set, as
    // programs have written it): cut to its low bits, another value would be stored unannounced.
    const auto value = integerArg(L, 3, "MemoryBlock: value", f, 0,
                                  lua_Integer{std::numeric_limits<std::make_signed_t<T>>::min()},
                                  lua_Integer{std::numeric_limits<T>::max()});
    if (!value) return 0;
    T v = static_cast<T>(*value);
    std::memcpy(mb->data() + at, &v, sizeof v);
    return 0;
}

int mbBytes(lua_State* L, Failure& f) {
    auto* mb = handleOf<MemoryBlockHandle>(L, 1, Kind::MemoryBlock);
    if (!mb) return f.message = "MemoryBlock expected", 0;
    const auto given = integerArg(L, 2, "MemoryBlock: offset", f, 0);
    if (!given) return 0;
    const lua_Integer offset = *given;
    // The rest of the block only from an offset not below 0: the size less an offset far below 0
    // overflows. A negative offset is refused below.
    const auto length = integerArg(L, 3, "MemoryBlock: length", f, offset < 0 ? 0 : mb->size() - offset);
    if (!length) return 0;
    size_t at = checkedRange(mb, offset, *length, f);
    if (f) return 0;
    lua_pushlstring(L, reinterpret_cast<const char*>(mb->data() + at), static_cast<size_t>(*length));
    return 1;
}

int mbSetBytes(lua_State* L, Failure& f) {
    auto* mb = handleOf<MemoryBlockHandle>(L, 1, Kind::MemoryBlock);
    size_t n = 0;
    const char* bytes = lua_tolstring(L, 3, &n);
    if (!mb || !bytes) return f.message = "MemoryBlock:SetBytes(offset, bytes) expected", 0;
    const auto offset = integerArg(L, 2, "MemoryBlock: offset", f, 0);
    if (!offset) return 0;
    size_t at = checkedRange(mb, *offset, static_cast<lua_Integer>(n), f);
    if (f) return 0;
    std::memcpy(mb->data() + at, bytes, n);
    return 0;
}

PictureHandle* pictureArg(lua_State* L, Failure& f, int32_t* x, int32_t* y) {
    auto* p = handleOf<PictureHandle>(L, 1, Kind::Picture);
    if (!p) return f.message = "Picture expected", nullptr;
    const auto givenX = integerArg(L, 2, "Picture: x", f);
    const auto givenY = givenX ? integerArg(L, 3, "Picture: y", f) : std::nullopt;
    if (!givenY) return nullptr;
    const lua_Integer px = *givenX, py = *givenY;
    if (p->dead() || px < 0 || py < 0 || px >= p->width() || py >= p->height()) {
        f.message =
            "Picture: pixel (" + std::to_string(px) + ", " + std::to_string(py) + ") outside the picture";
        return nullptr;
    }
    *x = static_cast<int32_t>(px), *y = static_cast<int32_t>(py);
    return p;
}

int picPixel(lua_State* L, Failure& f) {
    int32_t x, y;
    PictureHandle* p = pictureArg(L, f, &x, &y);
    if (!p) return 0;
    uint32_t rgb = p->pixel(x, y);
    lua_pushinteger(L, (rgb >> 16) & 0xFF);
    lua_pushinteger(L, (rgb >> 8) & 0xFF);
    lua_pushinteger(L, rgb & 0xFF);
    return 3;
}

int picSetPixel(lua_State* L, Failure& f) {
    int32_t x, y;
    PictureHandle* p = pictureArg(L, f, &x, &y);
    if (!p) return 0;
    uint32_t rgb = 0;
    for (int i = 4; i <= 6; ++i) {
        const auto channel = integerArg(L, i, "Picture: colour", f, std::nullopt, 0, 255);
        if (!channel) return 0;
        rgb = rgb << 8 | static_cast<uint32_t>(*channel);
    }
    p->setPixel(x, y, rgb);
    return 0;
}

int picSave(lua_State* L, Failure& f) {
    auto* p = handleOf<PictureHandle>(L, 1, Kind::Picture);
    if (!p) return f.message = "Picture:Save(path) expected", 0;
    const char* path = pathArg(L, 2, "Picture:Save(path)", f);
    if (!path) return 0;
    std::string error;
    if (!savePng(p, path, &error)) return f.message = std::string("Save: ") + path + ": " + error, 0;
    return 0;
}

struct Member {
    const char* name;
    Body body;
};

const Member kMemoryBlockMethods[] = {
    {"Byte", readScalar<uint8_t>},
    {"UInt16", readScalar<uint16_t>},
    {"UInt32", readScalar<uint32_t>},
    {"SetByte", writeScalar<uint8_t>},
    {"SetUInt16", writeScalar<uint16_t>},
    {"SetUInt32", writeScalar<uint32_t>},
    {"Bytes", mbBytes},
    {"SetBytes", mbSetBytes},
};
const Member kPictureMethods[] = {{"Pixel", picPixel}, {"SetPixel", picSetPixel}, {"Save", picSave}};

template <size_t N>
bool pushMember(lua_State* L, const Member (&members)[N], const char* key) {
    for (const auto& m : members) {
        if (!equalsIgnoringCase(m.name, key)) continue;
        lua_pushlightuserdata(L, reinterpret_cast<void*>(m.body));
        lua_pushcclosure(
            L,
            [](lua_State* L) {
                auto body = reinterpret_cast<Body>(lua_touserdata(L, lua_upvalueindex(1)));
                return entry(L, body);
            },
            1);
        return true;
    }
    return false;
}

int indexString(lua_State* L, StringHandle* s, const char* key) {
    if (equalsIgnoringCase(key, "encoding")) return lua_pushinteger(L, s->encoding()), 1;
    if (equalsIgnoringCase(key, "length"))
        return lua_pushinteger(L, static_cast<lua_Integer>(s->bytes().size())), 1;
    return 0;
}

int indexMemoryBlock(lua_State* L, MemoryBlockHandle* mb, const char* key) {
    if (equalsIgnoringCase(key, "Size")) return lua_pushinteger(L, mb->size()), 1;
    return pushMember(L, kMemoryBlockMethods, key) ? 1 : 0;
}

int indexFolderItem(lua_State* L, FolderItemHandle* fi, const char* key) {
    if (equalsIgnoringCase(key, "Path")) return lua_pushstring(L, fi->path().c_str()), 1;
    if (equalsIgnoringCase(key, "Exists")) return lua_pushboolean(L, fi->exists()), 1;
    return 0;
}

int indexPicture(lua_State* L, PictureHandle* p, const char* key) {
    if (equalsIgnoringCase(key, "Width")) return lua_pushinteger(L, p->width()), 1;
    if (equalsIgnoringCase(key, "Height")) return lua_pushinteger(L, p->height()), 1;
    if (equalsIgnoringCase(key, "Depth")) return lua_pushinteger(L, p->depth()), 1;
    if (equalsIgnoringCase(key, "CacheClears")) return lua_pushinteger(L, p->cacheClears), 1;
    if (equalsIgnoringCase(key, "DescriptionLocks")) return lua_pushinteger(L, p->descriptionLocks), 1;
    if (equalsIgnoringCase(key, "PixelLocks")) return lua_pushinteger(L, p->pixelLocks()), 1;
    if (equalsIgnoringCase(key, "Mask")) return pushHandle(L, p->mask.get()), 1;
    return pushMember(L, kPictureMethods, key) ? 1 : 0;
}

int indexHandle(lua_State* L, Handle* h, const char* key, Failure& f) {
    if (h->dead()) return 0;
    switch (h->kind()) {
        case Kind::String:
            return indexString(L, static_cast<StringHandle*>(h), key);
        case Kind::MemoryBlock:
            return indexMemoryBlock(L, static_cast<MemoryBlockHandle*>(h), key);
        case Kind::FolderItem:
            return indexFolderItem(L, static_cast<FolderItemHandle*>(h), key);
        case Kind::Picture:
            return indexPicture(L, static_cast<PictureHandle*>(h), key);
        case Kind::Object:
            return pluginObjectIndex(L, h, key, f);
        default:
            return 0;
    }
}

int handleIndex(lua_State* L, Failure& f) {
    Handle* h = toHandle(L, 1);
    const char* key = lua_tostring(L, 2);
    if (!h || !key) return lua_pushnil(L), 1;
    if (int n = indexHandle(L, h, key, f)) return n;
    if (f) return 0;
    if (extensionMethod(L, h, key)) return 1;
    lua_pushnil(L);
    return 1;
}

int handleNewIndex(lua_State* L, Failure& f) {
    Handle* h = toHandle(L, 1);
    const char* key = lua_tostring(L, 2);
    if (h && key && h->kind() == Kind::Object && pluginObjectNewIndex(L, h, key, 3, f)) return 0;
    if (!f)
        f.message = std::string("cannot assign ") + (key ? key : "?") + " of a " +
                    kindName(h ? h->kind() : Kind::Object);
    return 0;
}

int handleGc(lua_State* L) {
    Wrapper* w = toWrapper(L, 1);
    if (!w) return 0;
    // A destructor run by the collector belongs to no call of the program: what it raises has
    // nowhere to go.
    RaiseScope noCall;
    w->~Wrapper();
    if (auto e = takeRaisedException())
        std::fprintf(stderr, "tqvhost: %s raised by a destructor run at collection, dropped: %s\n",
                     e->className.c_str(), e->message.c_str());
    return 0;
}

int handleToString(lua_State* L, Failure&) {
    Handle* h = toHandle(L, 1);
    if (h && h->kind() == Kind::String) {
        auto bytes = static_cast<StringHandle*>(h)->bytes();
        lua_pushlstring(L, bytes.data(), bytes.size());
    } else if (h && h->kind() == Kind::Object) {
        lua_pushfstring(L, "%s: %p", static_cast<ObjectHandle*>(h)->cls()->name.c_str(), h->address());
    } else {
        lua_pushfstring(L, "%s: %p", h ? kindName(h->kind()) : "handle", h ? h->address() : nullptr);
    }
    return 1;
}

int handleLen(lua_State* L, Failure& f) {
    Handle* h = toHandle(L, 1);
    if (h && h->kind() == Kind::String)
        return lua_pushinteger(L, static_cast<lua_Integer>(static_cast<StringHandle*>(h)->bytes().size())), 1;
    if (h && h->kind() == Kind::MemoryBlock)
        return lua_pushinteger(L, static_cast<MemoryBlockHandle*>(h)->size()), 1;
    return f.message = "no length", 0;
}

int handleEq(lua_State* L) {
    Handle* a = toHandle(L, 1);
    lua_pushboolean(L, a && a == toHandle(L, 2));
    return 1;
}

int handleConcat(lua_State* L, Failure& f) {
    std::string out;
    for (int i = 1; i <= 2; ++i) {
        Handle* h = toHandle(L, i);
        size_t n;
        const char* s = lua_type(L, i) == LUA_TSTRING || lua_type(L, i) == LUA_TNUMBER
                            ? lua_tolstring(L, i, &n)
                            : nullptr;
        if (h && h->kind() == Kind::String)
            out += static_cast<StringHandle*>(h)->bytes();
        else if (s)
            out.append(s, n);
        else
            return f.message = "cannot concatenate that value", 0;
    }
    lua_pushlstring(L, out.data(), out.size());
    return 1;
}

// ---- Constructors and host.* ---------------------------------------------------------------

int newRef(lua_State* L) {
    lua_settop(L, 1);
    lua_createtable(L, 0, 1);
    lua_pushvalue(L, 1);
    lua_setfield(L, -2, "value");
    luaL_setmetatable(L, kRefMeta);
    return 1;
}

int newString(lua_State* L, Failure& f) {
    size_t n;
    const char* bytes = lua_tolstring(L, 1, &n);
    if (!bytes) return f.message = "String(bytes, encoding) expected", 0;
    const auto encoding = integerArg(L, 2, "String: encoding", f, kREALTextEncodingUTF8, 0, UINT32_MAX);
    if (!encoding) return 0;
    pushHandle(L, tqvhost::newString(std::string_view(bytes, n), static_cast<uint32_t>(*encoding)));
    return 1;
}

int newFolderItem(lua_State* L, Failure& f) {
    const char* path = pathArg(L, 1, "FolderItem(path)", f);
    if (!path) return 0;
    std::string full = path;
    if (full.empty() || full[0] != '/') {
        char cwd[PATH_MAX];
        if (getcwd(cwd, sizeof cwd)) full = std::string(cwd) + "/" + full;
    }
    pushHandle(L, makeHandle<FolderItemHandle>(full));
    return 1;
}

int newMemoryBlock(lua_State* L, Failure& f) {
    const auto size = integerArg(L, 1, "MemoryBlock(size)", f, std::nullopt, 0, INT32_MAX - 1);
    if (!size) return 0;
    pushHandle(L, makeHandle<MemoryBlockHandle>(static_cast<int32_t>(*size)));
    return 1;
}

int newPicture(lua_State* L, Failure& f) {
    const auto w = integerArg(L, 1, "NewPicture: width", f, std::nullopt, 1, INT32_MAX);
    const auto h = w ? integerArg(L, 2, "NewPicture: height", f, std::nullopt, 1, INT32_MAX) : std::nullopt;
    const auto d = h ? integerArg(L, 3, "NewPicture: depth", f, 32, 1, 32) : std::nullopt;
    if (!d) return 0;
    PictureHandle* p =
        makePicture(static_cast<int32_t>(*w), static_cast<int32_t>(*h), static_cast<int32_t>(*d));
    if (!p) return f.message = "NewPicture: the host cannot make that picture", 0;
    pushHandle(L, p);
    return 1;
}

int loadPicture(lua_State* L, Failure& f) {
    const char* path = pathArg(L, 1, "LoadPicture(path)", f);
    if (!path) return 0;
    std::string error;
    PictureHandle* p = loadPng(path, &error);
    if (!p) return lua_pushnil(L), lua_pushstring(L, error.c_str()), 2;
    pushHandle(L, p);
    return 1;
}

int hostLive(lua_State* L, Failure&) {
    Live l = live();
    lua_pushinteger(L, l.total);
    lua_newtable(L);
    for (const char* kind : {"object", "string", "memoryblock", "picture", "folderitem", "graphics",
                             "stringdata", "description", "pixels"}) {
        lua_pushinteger(L, l.byKind.count(kind) ? l.byKind[kind] : 0);
        lua_setfield(L, -2, kind);
    }
    return 2;
}

int hostAccountingErrors(lua_State* L, Failure&) {
    auto errors = takeAccountingErrors();
    lua_createtable(L, static_cast<int>(errors.size()), 0);
    for (size_t i = 0; i < errors.size(); ++i) {
        lua_pushstring(L, errors[i].c_str());
        lua_rawseti(L, -2, static_cast<lua_Integer>(i + 1));
    }
    return 1;
}

int hostConfig(lua_State* L, Failure&) {
    static const char* const kApps[] = {"desktop", "console", "web", "none"};
    const Config& c = config();
    lua_newtable(L);
    lua_pushnumber(L, c.version);
    lua_setfield(L, -2, "version");
    lua_pushstring(L, kApps[static_cast<int>(c.app)]);
    lua_setfield(L, -2, "app");
    lua_pushinteger(L, c.desktopDepth);
    lua_setfield(L, -2, "desktopDepth");
    lua_pushstring(L, c.frameworksDir.c_str());
    lua_setfield(L, -2, "frameworks");
    lua_newtable(L);
    lua_Integer i = 0;
    for (const auto& name : c.withheld) lua_pushstring(L, name.c_str()), lua_rawseti(L, -2, ++i);
    lua_setfield(L, -2, "withheld");
    lua_pushinteger(L, registry().pluginVersion);
    lua_setfield(L, -2, "pluginVersion");
    return 1;
}

int hostFailAfter(lua_State* L, Failure& f) {
    // No luaL_check*: their longjmp would skip the destructors of entry()'s frame.
    const char* kind = lua_type(L, 1) == LUA_TSTRING ? lua_tostring(L, 1) : "";
    int isInteger = 0;
    const lua_Integer n = lua_tointegerx(L, 2, &isInteger);
    if (!isInteger || !failAllocation(kind, n))
        return f.message = std::string("host.failAfter(kind, n): unknown kind or bad count: ") + kind, 0;
    return 0;
}

int hostOnYield(lua_State* L) {
    // Not an entry() body: nothing of C++ lives here for the error's longjmp to skip.
    if (!lua_isnoneornil(L, 1) && !lua_isfunction(L, 1))
        return luaL_error(L, "host.onYield(fn): a function or nil expected");
    lua_settop(L, 1);
    lua_setfield(L, LUA_REGISTRYINDEX, "tqv.onYield");
    return 0;
}

void runYieldHandler() {
    lua_State* L = state();
    lua_getfield(L, LUA_REGISTRYINDEX, "tqv.onYield");
    if (!lua_isfunction(L, -1)) return lua_pop(L, 1);
    if (lua_pcall(L, 0, 0, 0) != LUA_OK) setPendingLuaError(L);
}

void installHandleMeta(lua_State* L) {
    luaL_newmetatable(L, kHandleMeta);
    const luaL_Reg meta[] = {
        {"__index", TQV_LUA_ENTRY(handleIndex)},
        {"__newindex", TQV_LUA_ENTRY(handleNewIndex)},
        {"__tostring", TQV_LUA_ENTRY(handleToString)},
        {"__len", TQV_LUA_ENTRY(handleLen)},
        {"__concat", TQV_LUA_ENTRY(handleConcat)},
        {"__eq", handleEq},
        {"__gc", handleGc},
        {nullptr, nullptr},
    };
    luaL_setfuncs(L, meta, 0);
    lua_pop(L, 1);
    luaL_newmetatable(L, kRefMeta);
    lua_pop(L, 1);
    lua_newtable(L);  // wrapper cache, weak values
    lua_createtable(L, 0, 1);
    lua_pushstring(L, "v");
    lua_setfield(L, -2, "__mode");
    lua_setmetatable(L, -2);
    lua_setfield(L, LUA_REGISTRYINDEX, kCache);
}

}  // namespace

void installValues(lua_State* L) {
    stateSlot() = L;
    installHandleMeta(L);
    const luaL_Reg globals[] = {
        {"Ref", newRef},
        {"String", TQV_LUA_ENTRY(newString)},
        {"FolderItem", TQV_LUA_ENTRY(newFolderItem)},
        {"MemoryBlock", TQV_LUA_ENTRY(newMemoryBlock)},
        {"NewPicture", TQV_LUA_ENTRY(newPicture)},
        {"LoadPicture", TQV_LUA_ENTRY(loadPicture)},
        {nullptr, nullptr},
    };
    lua_pushglobaltable(L);
    luaL_setfuncs(L, globals, 0);
    lua_pop(L, 1);
    const luaL_Reg hostFns[] = {
        {"live", TQV_LUA_ENTRY(hostLive)},
        {"ticks", [](lua_State* L) { return lua_pushinteger(L, ticks()), 1; }},
        {"yields", [](lua_State* L) { return lua_pushinteger(L, yields()), 1; }},
        {"cacheClears", [](lua_State* L) { return lua_pushinteger(L, pictureCacheClears()), 1; }},
        {"onYield", hostOnYield},
        {"accountingErrors", TQV_LUA_ENTRY(hostAccountingErrors)},
        {"config", TQV_LUA_ENTRY(hostConfig)},
        {"failAfter", TQV_LUA_ENTRY(hostFailAfter)},
        {"failArmed",
         [](lua_State* L) {
             const char* kind = lua_type(L, 1) == LUA_TSTRING ? lua_tostring(L, 1) : "";
             return lua_pushboolean(L, allocationFailureArmed(kind)), 1;
         }},
        {"injectedFailures", [](lua_State* L) { return lua_pushinteger(L, injectedFailures()), 1; }},
        {nullptr, nullptr},
    };
    luaL_newlib(L, hostFns);
    lua_setglobal(L, "host");
    embedding().onYield = runYieldHandler;
}

}  // namespace tqvhost::lua
