// Classes, objects and registration; the object, event and exception services.
#include <ffi.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <optional>

#include "services.h"
#include "tqvhost/host.h"
#include "tqvhost/picture.h"
#include "tqvhost/registry.h"
#include "tqvhost/strings.h"
#include "tqvhost/values.h"

#if defined(__SANITIZE_ADDRESS__)
#define TQV_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TQV_ASAN 1
#endif
#endif
#ifdef TQV_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace tqvhost {

template <class Row>
static const Row* findNamed(const std::vector<Row>& rows, std::string_view name) {
    for (const auto& r : rows)
        if (equalsIgnoringCase(r.name, name)) return &r;
    return nullptr;
}

const Property* Class::findProperty(std::string_view n) const {
    return findNamed(properties, n);
}
const Constant* Class::findConstant(std::string_view n) const {
    return findNamed(constants, n);
}
const Event* Class::findEvent(std::string_view n) const {
    for (const auto& e : events)
        if (equalsIgnoringCase(e.decl.name, n)) return &e;
    return nullptr;
}

ObjectHandle::ObjectHandle(Class* cls) : Handle(Kind::Object), cls_(cls) {
    size_t size = kObjectDataOffset + cls->dataSize;
    memory_ = ::operator new(size, std::align_val_t(16));
    std::memset(memory_, 0, size);
    std::memcpy(memory_, &cls_, sizeof cls_);  // a back pointer, handy in a debugger
}

ObjectHandle::~ObjectHandle() {
#ifdef TQV_ASAN
    ASAN_UNPOISON_MEMORY_REGION(data(), cls_->dataSize);
#endif
    ::operator delete(memory_, std::align_val_t(16));
}

void ObjectHandle::destroy() {
    if (cls_->destructor) cls_->destructor(static_cast<REALobject>(memory_));
    stringProps.clear();
    // The bytes stay allocated (a late unlock is reported, not undefined), so a plugin that kept
    // the address without a lock would read stale data unseen: ASan now stops it, and without
    // ASan it reads a pattern that stands out.
#ifdef TQV_ASAN
    ASAN_POISON_MEMORY_REGION(data(), cls_->dataSize);
#else
    std::memset(data(), kDeadInstanceByte, cls_->dataSize);
#endif
}

Registry& registry() {
    static Registry* r = new Registry;  // outlives Lua finalizers at exit
    return *r;
}

Class* Registry::find(std::string_view name) const {
    for (const auto& c : classes)
        if (equalsIgnoringCase(c->name, name)) return c.get();
    return nullptr;
}

Embedding& embedding() {
    static Embedding e;
    return e;
}

static bool isObject(Kind k) {
    return k == Kind::Object;
}

ObjectHandle* asObject(const void* address, const char* service) {
    return static_cast<ObjectHandle*>(Accounts::check(address, service, isObject));
}

ObjectHandle* newObject(Class* cls, bool forPlugin) {
    if (!cls || cls->origin != ClassOrigin::Plugin) return nullptr;
    auto* o = makeHandle<ObjectHandle>(cls);
    // Locked before the constructor runs: it may lock and release the object itself.
    if (forPlugin)
        Accounts::give(o);
    else
        Accounts::hostLock(o);
    if (cls->constructor) cls->constructor(static_cast<REALobject>(o->address()));
    return o;
}

// ---- Host classes ---------------------------------------------------------------------------

void installHostClasses(AppKind app) {
    auto& classes = registry().classes;
    std::erase_if(classes, [](const auto& c) { return c->origin != ClassOrigin::Plugin; });
    auto add = [&](const char* name, ClassOrigin origin) {
        auto c = std::make_unique<Class>();
        c->name = name;
        c->origin = origin;
        classes.insert(classes.begin(), std::move(c));
    };
    static const char* const kApps[] = {"Application", "ConsoleApplication", "WebApplication"};
    if (app != AppKind::None) add(kApps[static_cast<int>(app)], ClassOrigin::HostApplication);
    for (const char* e :
         {"NilObjectException", "OutOfMemoryException", "RuntimeException", "OutOfBoundsException",
          "TypeMismatchException", "UnsupportedOperationException", "IOException"})
        add(e, ClassOrigin::HostException);
    for (const char* b : {"FolderItem", "Picture", "Graphics", "MemoryBlock"})
        add(b, ClassOrigin::HostBuiltin);
}

bool offeredToApplication(uint32_t flags) {
    AppKind app = config().app;
    return (app != AppKind::Console && app != AppKind::Web) || (flags & REALconsoleSafe) != 0;
}

std::string notOfferedMessage(std::string_view name) {
    const char* kind = config().app == AppKind::Web ? "web" : "console";
    return std::string(name) + " is not available in " + kind + " applications";
}

// ---- Registration ---------------------------------------------------------------------------

namespace {

std::string hex(uint32_t v) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%x", v);
    return buf;
}

// Appends a describe line; answers its index.
size_t describe(std::initializer_list<std::string> fields) {
    std::string line;
    for (const auto& f : fields) line += (line.empty() ? "" : "\t") + f;
    registry().describeLines.push_back(line);
    return registry().describeLines.size() - 1;
}

void registrationError(const std::string& what, const std::string& why) {
    std::fprintf(stderr, "tqvhost: cannot register %s: %s\n", what.c_str(), why.c_str());
}

std::optional<Method> makeMethod(const REALmethodDefinition& def) {
    std::string text = def.declaration ? def.declaration : "";
    std::string error;
    auto decl = parseDeclaration(text, &error);
    if (!decl) return registrationError("\"" + text + "\"", error), std::nullopt;
    return Method{text, std::move(*decl), reinterpret_cast<void*>(def.function),
                  reinterpret_cast<void*>(def.setterFunction), def.flags};
}

void addMethods(Class& cls, const REALmethodDefinition* rows, uint32_t count, const char* kind) {
    for (uint32_t i = 0; rows && i < count; ++i) {
        auto m = makeMethod(rows[i]);
        if (!m) continue;
        m->describeLine = describe({kind, m->text, hex(m->flags)});
        if (m->setter) registry().describeLines.back() += "\tsetter";
        cls.methods.push_back(std::move(*m));
    }
}

void addProperties(Class& cls, const REALproperty* rows, uint32_t count) {
    for (uint32_t i = 0; rows && i < count; ++i) {
        const REALproperty& r = rows[i];
        auto type = parseType(r.type ? r.type : "");
        if (!r.name || !type) {
            registrationError(std::string("property ") + (r.name ? r.name : "?"), "bad name or type");
            continue;
        }
        Property p{r.name, *type, r.flags, r.getter, r.setter, r.param};
        const char* access = p.field() ? "field" : p.setter ? "rw" : "r";
        p.describeLine = describe({"property", p.name, hex(p.flags), typeName(p.type), access});
        cls.properties.push_back(std::move(p));
    }
}

void addEvents(Class& cls, REALevent* rows, uint32_t count) {
    for (uint32_t i = 0; rows && i < count; ++i) {
        std::string text = rows[i].declaration ? rows[i].declaration : "";
        std::string error;
        auto decl = parseDeclaration(text, &error);
        if (!decl) {
            registrationError("event \"" + text + "\"", error);
            continue;
        }
        Event& e = cls.events.emplace_back(Event{text, std::move(*decl), nullptr});
        rows[i].forSystemUse = reinterpret_cast<intptr_t>(&e);
        e.describeLine = describe({"event", text});  // events carry no flags
    }
}

void addConstants(Class& cls, const REALconstant* rows, uint32_t count) {
    for (uint32_t i = 0; rows && i < count; ++i) {
        std::string text = rows[i].declaration ? rows[i].declaration : "";
        std::string error;
        auto k = parseConstant(text, &error);
        if (!k) {
            registrationError("constant \"" + text + "\"", error);
            continue;
        }
        cls.constants.push_back(Constant{text, k->name, k->valueText, rows[i].flags});
        describe({"constant", text, hex(rows[i].flags)});
    }
}

// Records of another interface version are laid out differently: reading one as ours would take
// its fields from the wrong places.
bool knownVersion(const REALclassDefinition& def) {
    if (def.version == REAL_PLUGIN_INTERFACE_VERSION) return true;
    registrationError(def.name, "class record of interface version " + std::to_string(def.version) +
                                    ", not " + std::to_string(REAL_PLUGIN_INTERFACE_VERSION));
    return false;
}

void PluginRegisterClass(REALclassDefinition* def) {
    guardedVoid("PluginRegisterClass", [&] {
        if (!def || !def->name) return registrationError("class", "no name");
        if (!knownVersion(*def)) return;
        if (registry().find(def->name)) return registrationError(def->name, "a class of that name exists");
        auto cls = std::make_unique<Class>();
        cls->name = def->name;
        cls->dataSize = def->dataSize;
        cls->flags = def->flags;
        cls->constructor = def->constructor;
        cls->destructor = def->destructor;
        def->dataOffset = kObjectDataOffset;
        def->forSystemUse = reinterpret_cast<intptr_t>(cls.get());
        describe({"class", cls->name, hex(cls->flags), std::to_string(cls->dataSize)});
        addProperties(*cls, def->properties, def->propertyCount);
        addMethods(*cls, def->methods, def->methodCount, "method");
        addEvents(*cls, def->events, def->eventCount);
        addConstants(*cls, def->constants, def->constantCount);
        registry().classes.push_back(std::move(cls));
    });
}

void PluginRegisterClassExtension(REALclassDefinition* def) {
    guardedVoid("PluginRegisterClassExtension", [&] {
        if (!def || !def->name) return registrationError("class extension", "no name");
        if (!knownVersion(*def)) return;
        Class* cls = registry().find(def->name);
        if (!cls) return registrationError(std::string("extension of ") + def->name, "no such class");
        def->dataOffset = 0;
        def->forSystemUse = reinterpret_cast<intptr_t>(cls);
        describe({"extension", def->name, hex(def->flags)});
        addMethods(*cls, def->methods, def->methodCount, "extension-method");
    });
}

void PluginRegisterMethod(REALmethodDefinition* def) {
    guardedVoid("PluginRegisterMethod", [&] {
        if (!def) return;
        auto m = makeMethod(*def);
        if (!m) return;
        m->describeLine = describe({"global", m->text, hex(m->flags)});
        registry().globals.push_back(std::move(*m));
    });
}

// The first class a type of `d` names that no one registered, or "".
std::string unknownClassIn(const Declaration& d) {
    auto unknown = [](const Type& t) { return t.kind == TypeKind::Object && !registry().find(t.className); };
    for (const Param& p : d.params)
        if (unknown(p.type)) return p.type.className;
    return unknown(d.result) ? d.result.className : "";
}

const Declaration& declarationOf(const Method& m) {
    return m.decl;
}
const Declaration& declarationOf(const Event& e) {
    return e.decl;
}
Declaration declarationOf(const Property& p) {
    return Declaration{p.name, {}, p.type};
}
const std::string& textOf(const Method& m) {
    return m.text;
}
const std::string& textOf(const Event& e) {
    return e.text;
}
std::string textOf(const Property& p) {
    return "property " + p.name;
}

// Removes the rows that name an unknown class, collecting their describe lines.
template <class Rows>
void dropUnknown(Rows& rows, std::vector<size_t>& lines) {
    std::erase_if(rows, [&](const auto& row) {
        std::string unknown = unknownClassIn(declarationOf(row));
        if (unknown.empty()) return false;
        registrationError("\"" + textOf(row) + "\"", "no class " + unknown);
        lines.push_back(row.describeLine);
        return true;
    });
}

void RegisterPluginVersion(int32_t version) {
    registry().pluginVersion = version;
}
double REALGetRBVersion() {
    return config().version;
}

}  // namespace

void completeRegistration() {
    std::vector<size_t> lines;
    for (const auto& cls : registry().classes) {
        dropUnknown(cls->methods, lines);
        dropUnknown(cls->events, lines);
        dropUnknown(cls->properties, lines);
    }
    dropUnknown(registry().globals, lines);
    std::sort(lines.rbegin(), lines.rend());
    auto& describeLines = registry().describeLines;
    for (size_t line : lines) describeLines.erase(describeLines.begin() + static_cast<ptrdiff_t>(line));
}

namespace {

// ---- Objects --------------------------------------------------------------------------------

REALobject PluginNewInstance(const char* className) {
    return guarded<REALobject>("PluginNewInstance", nullptr, [&]() -> REALobject {
        Class* cls = className ? registry().find(className) : nullptr;
        if (!cls || injectFailure("object")) return nullptr;
        if (cls->origin == ClassOrigin::Plugin) {
            ObjectHandle* o = newObject(cls, true);
            return static_cast<REALobject>(o->address());
        }
        Handle* h = nullptr;
        if (cls->origin == ClassOrigin::HostException)
            h = makeHandle<ObjectHandle>(cls);
        else if (equalsIgnoringCase(cls->name, "FolderItem"))
            h = makeHandle<FolderItemHandle>("");
        else if (equalsIgnoringCase(cls->name, "MemoryBlock"))
            h = makeHandle<MemoryBlockHandle>(0);
        if (!h) return nullptr;
        Accounts::give(h);
        return static_cast<REALobject>(h->address());
    });
}

void REALLockObject(REALobject obj) {
    if (Handle* h = Accounts::check(obj, "REALLockObject", isObjectLike))
        Accounts::pluginLock(h, "REALLockObject");
}

void REALUnlockObject(REALobject obj) {
    guardedVoid("REALUnlockObject", [&] {
        if (Handle* h = Accounts::check(obj, "REALUnlockObject", isObjectLike))
            Accounts::pluginUnlock(h, "REALUnlockObject");
    });
}

REALclassRef pluginObjectType(const char* className) {
    return reinterpret_cast<REALclassRef>(className ? registry().find(className) : nullptr);
}

bool REALSetPropValueString(REALobject obj, const char* prop, REALstring value) {
    return guarded("REALSetPropValueString", false, [&] {
        ObjectHandle* o = asObject(obj, "REALSetPropValueString");
        if (!o || !prop || o->cls()->origin != ClassOrigin::HostException ||
            !equalsIgnoringCase(prop, "Message"))
            return false;
        Handle* s = value ? asString(value, "REALSetPropValueString") : nullptr;
        o->stringProps["message"] = HostRef(s);
        return true;
    });
}

bool REALGetPropValueInt(REALobject obj, const char* prop, int32_t* value) {
    return guarded("REALGetPropValueInt", false, [&] {
        Handle* h = Accounts::check(obj, "REALGetPropValueInt", isObjectLike);
        if (!h || !prop || !value) return false;
        return pictureIntProperty(h, prop, value);
    });
}

void* REALLoadObjectMethod(REALobject obj, const char* declaration) {
    return guarded<void*>("REALLoadObjectMethod", nullptr, [&]() -> void* {
        Handle* h = Accounts::check(obj, "REALLoadObjectMethod", isObjectLike);
        if (!h || !declaration) return nullptr;
        if (void* m = graphicsMethod(h, declaration)) return m;
        if (h->kind() != Kind::Object) return nullptr;
        for (const Method& m : static_cast<ObjectHandle*>(h)->cls()->methods)
            if (m.text == declaration) return m.function;
        return nullptr;
    });
}

void* REALLoadGlobalMethod(const char* module, const char* declaration) {
    if (module || !declaration) return nullptr;
    auto wanted = parseDeclaration(declaration, nullptr);
    auto lenB = parseDeclaration("LenB( s as string ) as integer", nullptr);
    bool same = wanted && equalsIgnoringCase(wanted->name, lenB->name) && wanted->params.size() == 1 &&
                wanted->params[0].type.kind == TypeKind::String && wanted->result.kind == TypeKind::Integer;
    return same ? reinterpret_cast<void*>(&hostLenB) : nullptr;
}

// ---- Exceptions -----------------------------------------------------------------------------

std::optional<HostRef>& pendingException() {
    static std::optional<HostRef>* p = new std::optional<HostRef>;
    return *p;
}

void RuntimeRaiseException(REALobject exception) {
    guardedVoid("RuntimeRaiseException", [&] {
        ObjectHandle* o = asObject(exception, "RuntimeRaiseException");
        if (!o) return;
        // The runtime raises exceptions only: any other object is the plugin's mistake.
        if (o->cls()->origin != ClassOrigin::HostException)
            return Accounts::error("RuntimeRaiseException: " + o->cls()->name + " is no exception class");
        // The first exception of a call is the one the program sees; a second would replace it
        // unseen.
        if (pendingException() && pendingException()->get() != nullptr) {
            const auto* first = static_cast<ObjectHandle*>(pendingException()->get());
            Accounts::error("RuntimeRaiseException: " + o->cls()->name + " raised while " +
                            first->cls()->name + " is pending");
        }
        pendingException() = HostRef(o);
    });
}

// ---- Events ---------------------------------------------------------------------------------

ffi_type* eventFfiType(const Type& t, bool byref) {
    return byref || t.isHandle() ? &ffi_type_pointer : ffiTypeOf(t.kind);
}

struct Trampoline {
    ffi_cif cif;
    std::vector<ffi_type*> types;
    ffi_closure* closure = nullptr;
    void* code = nullptr;
    const Event* event = nullptr;
};

void runEvent(ffi_cif*, void* ret, void** args, void* userData) {
    auto* t = static_cast<Trampoline*>(userData);
    std::memset(ret, 0, sizeof(ffi_arg) > sizeof(double) ? sizeof(ffi_arg) : sizeof(double));
    guardedVoid("event handler", [&] {
        void* object = *static_cast<void**>(args[0]);
        ObjectHandle* o = asObject(object, "event handler");
        if (o && embedding().runHandler) embedding().runHandler(o, *t->event, args, ret);
    });
}

void* eventClosure(const Event& e) {
    static std::map<const Event*, Trampoline*>* trampolines = new std::map<const Event*, Trampoline*>;
    auto& t = (*trampolines)[&e];
    if (t) return t->code;
    t = new Trampoline;
    t->event = &e;
    t->types.push_back(&ffi_type_pointer);
    for (const Param& p : e.decl.params)
        t->types.push_back(p.array ? &ffi_type_pointer : eventFfiType(p.type, p.byref));
    t->closure = static_cast<ffi_closure*>(ffi_closure_alloc(sizeof(ffi_closure), &t->code));
    if (!t->closure ||
        ffi_prep_cif(&t->cif, FFI_DEFAULT_ABI, static_cast<unsigned>(t->types.size()),
                     eventFfiType(e.decl.result, false), t->types.data()) != FFI_OK ||
        ffi_prep_closure_loc(t->closure, &t->cif, runEvent, t, t->code) != FFI_OK) {
        Accounts::error("cannot make a closure for event " + e.text);
        t->code = nullptr;
    }
    return t->code;
}

void* GetEventInstance(REALobject obj, intptr_t word) {
    return guarded<void*>("GetEventInstance", nullptr, [&]() -> void* {
        // A runtime's object stays valid while its destructor runs, and a plugin may report a
        // message to it then (closing its file, say). Its program value is gone, and with it
        // every handler.
        if (const Handle* h = Accounts::find(obj); h && h->dying()) return nullptr;
        ObjectHandle* o = asObject(obj, "GetEventInstance");
        if (!o) return nullptr;
        const Event* event = nullptr;
        for (const Event& e : o->cls()->events)
            if (reinterpret_cast<intptr_t>(&e) == word) event = &e;
        if (!event) {
            Accounts::error("GetEventInstance: not an event word of class " + o->cls()->name);
            return nullptr;
        }
        if (!embedding().hasHandler || !embedding().hasHandler(o, *event)) return nullptr;
        return eventClosure(*event);
    });
}

}  // namespace

std::optional<RaisedException> takeRaisedException() {
    auto pending = std::exchange(pendingException(), std::nullopt);
    if (!pending) return std::nullopt;
    auto* o = pending->as<ObjectHandle>();
    RaisedException e{o->cls()->name, ""};
    auto it = o->stringProps.find("message");
    if (it != o->stringProps.end() && it->second) {
        auto* s = it->second.as<StringHandle>();
        e.message = convertEncoding(s->bytes(), s->encoding(), kREALTextEncodingUTF8)
                        .value_or(std::string(s->bytes()));
    }
    return e;
}

RaiseScope::RaiseScope() : saved_(std::exchange(pendingException(), std::nullopt)) {}

RaiseScope::~RaiseScope() {
    if (saved_) pendingException() = std::move(saved_);
}

void addObjectServices(ServiceTable& t) {
    t["RegisterPluginVersion"] = service(&RegisterPluginVersion);
    t["REALGetRBVersion"] = service(&REALGetRBVersion);
    t["PluginRegisterClass"] = service(&PluginRegisterClass);
    t["PluginRegisterClassExtension"] = service(&PluginRegisterClassExtension);
    t["PluginRegisterMethod"] = service(&PluginRegisterMethod);
    t["PluginNewInstance"] = service(&PluginNewInstance);
    t["REALLockObject"] = service(&REALLockObject);
    t["REALUnlockObject"] = service(&REALUnlockObject);
    t["GetEventInstance"] = service(&GetEventInstance);
    t["RuntimeRaiseException"] = service(&RuntimeRaiseException);
    t["REALSetPropValueString"] = service(&REALSetPropValueString);
    t["REALGetPropValueInt"] = service(&REALGetPropValueInt);
    t["REALLoadObjectMethod"] = service(&REALLoadObjectMethod);
    t["pluginObjectType"] = service(&pluginObjectType);
    t["REALLoadGlobalMethod"] = service(&REALLoadGlobalMethod);
}

}  // namespace tqvhost
