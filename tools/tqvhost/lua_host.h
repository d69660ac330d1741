// The Lua surface of tqvhost: host values as Lua values, plugin classes as constructors.
#ifndef TQVHOST_TOOL_LUA_HOST_H
#define TQVHOST_TOOL_LUA_HOST_H

#include <lua.hpp>
#include <string>

#include "tqvhost/handles.h"
#include "tqvhost/invoke.h"

namespace tqvhost::lua {

// A failure of a Lua entry, raised as a Lua error once every C++ object is gone.
struct Failure {
    std::string message;   // a plain error
    bool pending = false;  // a Lua error value or host exception is waiting (see raisePending)
    explicit operator bool() const { return pending || !message.empty(); }
};

// Wraps a C++ body as a lua_CFunction: exceptions and failures become Lua errors without
// unwinding C++ frames through longjmp.
using Body = int (*)(lua_State*, Failure&);
int entry(lua_State* L, Body body);
#define TQV_LUA_ENTRY(fn) [](lua_State* L) { return ::tqvhost::lua::entry(L, fn); }

// Pushes a host handle (nil for nullptr); the wrapper holds its own host lock. One wrapper per
// handle while it is reachable from Lua, so that event handlers stay with their object.
void pushHandle(lua_State* L, Handle* h);
// The handle of a wrapper at idx, or nullptr.
Handle* toHandle(lua_State* L, int idx);
// The wrapper of h if Lua still holds one (pushed), else nothing pushed and false.
bool pushExistingWrapper(lua_State* L, Handle* h);

void pushValue(lua_State* L, const Value& v);
// Whether the Lua value at idx can be passed as `param` (by value or, for byref, inside a Ref).
bool matches(lua_State* L, int idx, const Param& param);
bool matchesType(lua_State* L, int idx, const Type& type, bool array);
Value toValue(lua_State* L, int idx, const Type& type, bool array);

bool isRef(lua_State* L, int idx);

// After a plugin call: a Lua error from a handler or a host exception, if any, is pushed and
// true returned.
bool pushPending(lua_State* L);
void setPendingLuaError(lua_State* L);  // pops the error value

void installValues(lua_State* L);  // String, Ref, FolderItem, MemoryBlock, pictures, host.*
void installPlugin(lua_State* L);  // registered classes, globals, assign, events

int pluginObjectIndex(lua_State* L, Handle* h, const char* key, Failure& f);  // pushes 1 value or returns 0
bool pluginObjectNewIndex(lua_State* L, Handle* h, const char* key, int valueIdx, Failure& f);
int extensionMethod(lua_State* L, Handle* h, const char* key);  // pushes a method or returns 0

lua_State* state();

}  // namespace tqvhost::lua

#endif  // TQVHOST_TOOL_LUA_HOST_H
