// Classes (the host's own and those a plugin registers), their objects, the global methods, and
// the registration record kept in order for `describe`.
#ifndef TQVHOST_REGISTRY_H
#define TQVHOST_REGISTRY_H

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tqv/plugin_abi.h"
#include "tqvhost/declaration.h"
#include "tqvhost/handles.h"
#include "tqvhost/host.h"

namespace tqvhost {

struct Method {
    std::string text;  // the declaration as registered
    Declaration decl;
    void* function = nullptr;
    void* setter = nullptr;  // assignable form: setter(object, params..., value)
    uint32_t flags = 0;
    size_t describeLine = 0;  // its line in Registry::describeLines
};

struct Property {
    std::string name;
    Type type;
    uint32_t flags = 0;
    void* getter = nullptr;  // Type getter(REALobject, intptr_t param)
    void* setter = nullptr;  // void setter(REALobject, intptr_t param, Type value)
    intptr_t param = 0;
    size_t describeLine = 0;
    bool field() const { return getter == REALstandardGetter; }  // Integer at data + param
};

struct Event {
    std::string text;
    Declaration decl;
    void* closure = nullptr;  // made on first request; calls the embedding's handler
    size_t describeLine = 0;
};

struct Constant {
    std::string text;
    std::string name;
    std::string valueText;
    uint32_t flags = 0;
};

enum class ClassOrigin { Plugin, HostException, HostApplication, HostBuiltin };

struct Class {
    std::string name;
    ClassOrigin origin = ClassOrigin::Plugin;
    uint32_t dataSize = 0;
    uint32_t flags = 0;
    REALConstructorProc constructor = nullptr;
    REALDestructorProc destructor = nullptr;
    std::vector<Property> properties;
    std::vector<Method> methods;  // for host classes: the plugin's extension methods
    std::list<Event> events;      // stable addresses: an event's word points at it
    std::vector<Constant> constants;

    const Property* findProperty(std::string_view name) const;
    const Constant* findConstant(std::string_view name) const;
    const Event* findEvent(std::string_view name) const;
};

// Where instance data lies relative to the object address.
constexpr uint32_t kObjectDataOffset = 16;
// Instance data of a destroyed object is filled with this (poisoned instead under ASan).
constexpr uint8_t kDeadInstanceByte = 0xDB;

class ObjectHandle : public Handle {
  public:
    explicit ObjectHandle(Class* cls);
    ~ObjectHandle() override;
    void* address() override { return memory_; }
    Class* cls() const { return cls_; }
    uint8_t* data() { return static_cast<uint8_t*>(memory_) + kObjectDataOffset; }
    // Host-side string properties ("Message" of the exception classes).
    std::map<std::string, HostRef> stringProps;

  protected:
    void destroy() override;

  private:
    Class* cls_;
    void* memory_;
};

struct Registry {
    std::vector<std::unique_ptr<Class>> classes;
    std::vector<Method> globals;
    std::vector<std::string> describeLines;  // in registration order
    int32_t pluginVersion = 0;
    Class* find(std::string_view name) const;  // case-insensitive
};
Registry& registry();

// Makes an object of a plugin class and runs its constructor; the object carries one lock on the
// plugin's account (forPlugin) or the host's. nullptr for host classes.
ObjectHandle* newObject(Class* cls, bool forPlugin);

// Drops the rows that name a class no plugin registered and the host does not have (loadPlugin()
// calls it once the plugin's entry returns: a row may name a class registered after it).
void completeRegistration();

// Replaces the host's own classes by those of an application kind (configure() calls it).
void installHostClasses(AppKind app);

// Whether a row registered with `flags` is offered to the configured application: console and
// web applications get only the rows flagged REALconsoleSafe, every other kind gets them all.
bool offeredToApplication(uint32_t flags);
// "NAME is not available in console applications" (or web applications): the error for a row
// that offeredToApplication() refuses.
std::string notOfferedMessage(std::string_view name);
ObjectHandle* asObject(const void* address, const char* service);

// Hooks an embedding (tqvhost) sets to connect plugin callbacks to its program.
struct Embedding {
    // Whether the program set a handler for this object's event.
    std::function<bool(ObjectHandle*, const Event&)> hasHandler;
    // Runs the handler: args[0] points at the object pointer, then the event's parameters as
    // libffi passes them; `result` points at the return slot (may be ignored for no result).
    std::function<void(ObjectHandle*, const Event&, void** args, void* result)> runHandler;
    std::function<void()> onYield;
};
Embedding& embedding();

// The host global method "LenB( s as string ) as integer".
int32_t hostLenB(REALstring s);

}  // namespace tqvhost

#endif  // TQVHOST_REGISTRY_H
