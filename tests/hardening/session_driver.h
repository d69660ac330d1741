// Drives the plugin in-process the way a host program does: objects of its registered class,
// methods chosen by name and argument shapes, properties by name, all through the reference host's
// declared calls and reference accounting. Shared by the fuzz target and the hardening tests.
#ifndef TQV_TESTS_HARDENING_SESSION_DRIVER_H
#define TQV_TESTS_HARDENING_SESSION_DRIVER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tqvhost/host.h"
#include "tqvhost/invoke.h"

extern "C" void REALPluginMain(void* (*lookup)(const char*));

namespace hard {

// Configures the host (console pictures unless told otherwise), registers the plugin linked into
// this executable once, and answers every Error and Warning event with a counting handler.
void StartHost(tqvhost::AppKind app = tqvhost::AppKind::Console);
// Error events delivered since the start.
int64_t ErrorEvents();

// One argument of a call: a value, or a byref slot made by Ref().
struct CallArg {
    CallArg(tqvhost::Value v) : arg{std::move(v), false} {}  // NOLINT: implicit on purpose
    CallArg(tqvhost::Arg a) : arg(std::move(a)) {}           // NOLINT
    tqvhost::Arg arg;
};
using Args = std::vector<CallArg>;

// Argument builders.
tqvhost::Value Int(int64_t v);
tqvhost::Value Bool(bool v);
tqvhost::Value Dbl(double v);
tqvhost::Value Bytes(std::string_view bytes, uint32_t encoding = 0xFFFF);  // a host string
tqvhost::Value Text(std::string_view utf8);
tqvhost::Value Block(int32_t size);  // a zero-filled memory block
tqvhost::Value File(const std::string& path);
tqvhost::Value Nil(tqvhost::TypeKind kind);
tqvhost::Value Colours(std::vector<int32_t> table);
tqvhost::Arg Ref(tqvhost::Value v);  // byref
class Session;
tqvhost::Value Object(const Session& session);

// The bytes of a host string value ("" for nil).
std::string StringBytes(const tqvhost::Value& v);

class Session {
  public:
    Session();  // a new TiffPictureTQV object held by the host
    explicit Session(tqvhost::HostRef object);
    // The first row named `name` whose parameters take `args` (kinds must match; missing trailing
    // parameters take their defaults). Aborts when no row fits: a driver mistake, not a finding.
    tqvhost::Value Call(std::string_view name, Args args = {});
    // The same, giving back the byref slots' contents after the call.
    tqvhost::Value CallWithRefs(std::string_view name, std::vector<tqvhost::Arg>& args);
    // `name(args) = value` on an assignable row.
    void Assign(std::string_view name, Args args, const tqvhost::Value& value);
    tqvhost::Value Get(std::string_view property);
    void Set(std::string_view property, const tqvhost::Value& value);
    std::vector<std::string> PropertyNames() const;
    tqvhost::ObjectHandle* object() const;
    const tqvhost::HostRef& ref() const { return object_; }

  private:
    tqvhost::HostRef object_;
};

// A global function of the plugin, or an extension method (self first) of a host class.
tqvhost::Value CallGlobal(std::string_view name, Args args);
tqvhost::Value CallExtension(std::string_view name, const tqvhost::Value& self, Args args);

// References the plugin holds right now.
int64_t Live();

// For the fuzzers: aborts, with the accounting faults and the reference counts on stderr, unless
// the plugin holds as many references as `before` and the host saw no accounting fault.
void AbortUnlessBalanced(int64_t before);

}  // namespace hard

#endif  // TQV_TESTS_HARDENING_SESSION_DRIVER_H
