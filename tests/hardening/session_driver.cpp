#include "session_driver.h"

#include <cstdio>
#include <cstdlib>

#include "tqvhost/registry.h"
#include "tqvhost/strings.h"
#include "tqvhost/values.h"

namespace hard {
namespace {

using tqvhost::Arg;
using tqvhost::HostRef;
using tqvhost::TypeKind;
using tqvhost::Value;

int64_t gErrorEvents = 0;

[[noreturn]] void DriverMistake(std::string_view what) {
    std::fprintf(stderr, "session driver: %.*s\n", static_cast<int>(what.size()), what.data());
    std::abort();
}

tqvhost::Class& PluginClass() {
    tqvhost::Class* cls = tqvhost::registry().find("TiffPictureTQV");
    if (cls == nullptr) DriverMistake("the plugin did not register TiffPictureTQV");
    return *cls;
}

bool KindFits(TypeKind param, TypeKind given) {
    if (param == given) return true;
    return (param == TypeKind::Color && given == TypeKind::Integer) ||
           (param == TypeKind::Single && given == TypeKind::Double);
}

bool Fits(const tqvhost::Declaration& d, const std::vector<Arg>& args) {
    if (args.size() > d.params.size() || args.size() < d.requiredParams()) return false;
    for (size_t i = 0; i < args.size(); ++i) {
        const tqvhost::Param& p = d.params[i];
        if (p.byref != args[i].byref || p.array != !args[i].value.array.empty()) return false;
        if (!KindFits(p.type.kind, args[i].value.kind)) return false;
    }
    return true;
}

Value Default(const tqvhost::Param& p) {
    const std::string text = p.defaultText.value_or("0");
    if (p.type.kind == TypeKind::Boolean) return Bool(tqvhost::equalsIgnoringCase(text, "true"));
    return Int(std::strtoll(text.c_str(), nullptr, 0));
}

// Converts the given kinds to the declared ones (Integer as Color, Double as Single).
void Complete(const tqvhost::Declaration& d, std::vector<Arg>& args) {
    for (size_t i = 0; i < args.size(); ++i) args[i].value.kind = d.params[i].type.kind;
    for (size_t i = args.size(); i < d.params.size(); ++i) args.push_back(Arg{Default(d.params[i]), false});
}

// With TQV_DRIVER_TRACE set, every call and property assignment is printed to stderr as it is
// made: the program a fuzzer's crashing input stands for, to turn it into a test.
const bool gTrace = std::getenv("TQV_DRIVER_TRACE") != nullptr;

std::string Shown(const Value& v) {
    switch (v.kind) {
        case TypeKind::Integer:
        case TypeKind::Color:
            return std::to_string(v.i);
        case TypeKind::Single:
        case TypeKind::Double:
            return std::to_string(v.d);
        case TypeKind::Boolean:
            return v.b ? "true" : "false";
        case TypeKind::String:
            return v.handle ? "string(" + std::to_string(StringBytes(v).size()) + " bytes)" : "nil";
        case TypeKind::MemoryBlock:
            return v.handle
                       ? "block(" + std::to_string(v.handle.as<tqvhost::MemoryBlockHandle>()->size()) + ")"
                       : "nil";
        default:
            return v.handle ? "handle" : "nil";
    }
}

void Trace(std::string_view what, std::string_view name, const std::vector<Arg>& args) {
    if (!gTrace) return;
    std::string line(what);
    line.append(name).append("(");
    for (size_t i = 0; i < args.size(); ++i) line.append(i ? ", " : "").append(Shown(args[i].value));
    std::fprintf(stderr, "%s)\n", line.c_str());
}

Value Invoke(const std::vector<tqvhost::Method>& rows, std::string_view name, void* self,
             std::vector<Arg>& args) {
    for (const tqvhost::Method& m : rows) {
        if (!tqvhost::equalsIgnoringCase(m.decl.name, name) || !Fits(m.decl, args)) continue;
        Trace("call ", m.text, args);
        const size_t given = args.size();
        Complete(m.decl, args);
        Value result = tqvhost::callDeclared(m.function, m.decl, self, args);
        args.resize(given);
        return result;
    }
    DriverMistake(std::string("no row of ") + std::string(name) + " takes these arguments");
}

void InstallEventHandlers() {
    tqvhost::Embedding& e = tqvhost::embedding();
    e.hasHandler = [](tqvhost::ObjectHandle*, const tqvhost::Event& event) {
        return !tqvhost::equalsIgnoringCase(event.decl.name, "Progress");
    };
    e.runHandler = [](tqvhost::ObjectHandle*, const tqvhost::Event& event, void**, void*) {
        if (tqvhost::equalsIgnoringCase(event.decl.name, "Error")) ++gErrorEvents;
    };
}

}  // namespace

void StartHost(tqvhost::AppKind app) {
    static bool started = false;
    if (started) return;
    started = true;
    tqvhost::Config config;
    config.app = app;
    if (const char* dir = std::getenv("TQV_TEST_FRAMEWORKS")) config.frameworksDir = dir;
    tqvhost::configure(config);
    REALPluginMain(&tqvhost::lookup);
    InstallEventHandlers();
    (void)PluginClass();
}

int64_t ErrorEvents() {
    return gErrorEvents;
}

Value Int(int64_t v) {
    return Value::integer(TypeKind::Integer, v);
}

Value Bool(bool v) {
    Value x;
    x.kind = TypeKind::Boolean;
    x.b = v;
    return x;
}

Value Dbl(double v) {
    Value x;
    x.kind = TypeKind::Double;
    x.d = v;
    return x;
}

Value Bytes(std::string_view bytes, uint32_t encoding) {
    Value x;
    x.kind = TypeKind::String;
    x.handle = HostRef(tqvhost::newString(bytes, encoding));
    return x;
}

Value Text(std::string_view utf8) {
    return Bytes(utf8, kREALTextEncodingUTF8);
}

Value Block(int32_t size) {
    Value x;
    x.kind = TypeKind::MemoryBlock;
    x.handle = HostRef(tqvhost::makeHandle<tqvhost::MemoryBlockHandle>(size));
    return x;
}

Value File(const std::string& path) {
    Value x;
    x.kind = TypeKind::FolderItem;
    x.handle = HostRef(tqvhost::makeHandle<tqvhost::FolderItemHandle>(path));
    return x;
}

Value Nil(TypeKind kind) {
    Value x;
    x.kind = kind;
    return x;
}

Value Colours(std::vector<int32_t> table) {
    Value x;
    x.kind = TypeKind::Color;
    x.array = std::move(table);
    return x;
}

Value Object(const Session& session) {
    Value x;
    x.kind = TypeKind::Object;
    x.handle = session.ref();
    return x;
}

Arg Ref(Value v) {
    return Arg{std::move(v), true};
}

std::string StringBytes(const Value& v) {
    if (v.kind != TypeKind::String || !v.handle) return "";
    return std::string(v.handle.as<tqvhost::StringHandle>()->bytes());
}

Session::Session() : object_(HostRef::adopt(tqvhost::newObject(&PluginClass(), false))) {}

Session::Session(HostRef object) : object_(std::move(object)) {}

namespace {
std::vector<Arg> Plain(Args args) {
    std::vector<Arg> out;
    for (CallArg& a : args) out.push_back(std::move(a.arg));
    return out;
}
}  // namespace

Value Session::Call(std::string_view name, Args args) {
    std::vector<Arg> plain = Plain(std::move(args));
    return Invoke(PluginClass().methods, name, object_.address(), plain);
}

Value Session::CallWithRefs(std::string_view name, std::vector<Arg>& args) {
    return Invoke(PluginClass().methods, name, object_.address(), args);
}

void Session::Assign(std::string_view name, Args args, const Value& value) {
    std::vector<Arg> plain = Plain(std::move(args));
    for (const tqvhost::Method& m : PluginClass().methods) {
        if (m.setter == nullptr || !tqvhost::equalsIgnoringCase(m.decl.name, name) || !Fits(m.decl, plain))
            continue;
        Complete(m.decl, plain);
        Value assigned = value;
        assigned.kind = m.decl.result.kind;
        (void)tqvhost::callDeclared(m.setter, m.decl, object_.address(), plain, &assigned);
        return;
    }
    DriverMistake(std::string("no assignable row ") + std::string(name));
}

Value Session::Get(std::string_view property) {
    const tqvhost::Property* p = PluginClass().findProperty(property);
    if (p == nullptr) DriverMistake(std::string("no property ") + std::string(property));
    return tqvhost::getProperty(object(), *p);
}

void Session::Set(std::string_view property, const Value& value) {
    if (gTrace) Trace("set ", property, {Arg{value, false}});
    const tqvhost::Property* p = PluginClass().findProperty(property);
    if (p == nullptr) DriverMistake(std::string("no property ") + std::string(property));
    tqvhost::setProperty(object(), *p, value);
}

std::vector<std::string> Session::PropertyNames() const {
    std::vector<std::string> names;
    for (const tqvhost::Property& p : PluginClass().properties) names.push_back(p.name);
    return names;
}

tqvhost::ObjectHandle* Session::object() const {
    return object_.as<tqvhost::ObjectHandle>();
}

Value CallGlobal(std::string_view name, Args args) {
    std::vector<Arg> plain = Plain(std::move(args));
    return Invoke(tqvhost::registry().globals, name, nullptr, plain);
}

Value CallExtension(std::string_view name, const Value& self, Args args) {
    std::vector<Arg> plain = Plain(std::move(args));
    for (const auto& cls : tqvhost::registry().classes)
        for (const tqvhost::Method& m : cls->methods)
            if (cls->origin != tqvhost::ClassOrigin::Plugin && tqvhost::equalsIgnoringCase(m.decl.name, name))
                return Invoke(cls->methods, name, self.handle.address(), plain);
    DriverMistake(std::string("no extension method ") + std::string(name));
}

int64_t Live() {
    return tqvhost::live().total;
}

void AbortUnlessBalanced(int64_t before) {
    const auto errors = tqvhost::takeAccountingErrors();
    const int64_t after = Live();
    if (errors.empty() && after == before) return;
    for (const auto& e : errors) std::fprintf(stderr, "accounting error: %s\n", e.c_str());
    std::fprintf(stderr, "plugin references: %lld before, %lld after\n", static_cast<long long>(before),
                 static_cast<long long>(after));
    std::abort();
}

}  // namespace hard
