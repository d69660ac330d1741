// The reference host runtime: the services a plugin resolves by name, the objects behind its
// handles, and the reference accounting that tests read back.
//
// One host per process: call configure() once, then loadPlugin() (or hand lookup() to a plugin
// linked into the test). Everything runs on the calling thread.
#ifndef TQVHOST_HOST_H
#define TQVHOST_HOST_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tqvhost/handles.h"

namespace tqvhost {

enum class AppKind { Desktop, Console, Web, None };

struct Config {
    double version = 2013.0;         // answered by "REALGetRBVersion"
    AppKind app = AppKind::Desktop;  // which application class exists (picture back end)
    std::set<std::string> withheld;  // service names that lookup() answers with nullptr
    int desktopDepth = 32;           // depth of newPicture(w, h, 32) on a desktop host
    std::string frameworksDir;       // exported as TQV_FRAMEWORKS_DIR when not empty
    // Fill the guard bytes after every picture row with a pattern and check them when the plugin
    // gives a picture back. A test instrument: off, the rows keep their layout (the guard bytes
    // stay zero and unchecked) and a new picture's pages stay untouched until the plugin writes them.
    bool rowGuards = true;
};

// Sets the host configuration; call once per process before any plugin call.
void configure(const Config& config);
const Config& config();

// The resolver handed to plugins: service name -> address, nullptr for withheld or unknown names.
extern "C" void* lookup(const char* name);

// References the plugin holds right now: locks it took minus those it released, by kind
// ("object", "string", "memoryblock", "picture", "folderitem", "graphics", "stringdata" for
// the private copies of "PluginGetStringData" not yet given back, "description" for picture
// descriptions locked and not yet unlocked, and "pixels" for pixel-map pixels locked through the
// stand-in framework and not yet unlocked).
struct Live {
    int64_t total = 0;
    std::map<std::string, int64_t> byKind;
};
Live live();

// Accounting faults seen since the last call (double releases, unlocks of dead or unknown
// handles, results returned without a lock). Each is also printed to stderr when it happens.
std::vector<std::string> takeAccountingErrors();

// The exception the plugin raised with "RuntimeRaiseException" since the last call, if any.
struct RaisedException {
    std::string className, message;
};
std::optional<RaisedException> takeRaisedException();

// Makes the exceptions raised while it lives those of one call: one already pending when it begins
// is set aside (it belongs to an outer call, which will report it) and pending again at its end.
class RaiseScope {
  public:
    RaiseScope();
    ~RaiseScope();
    RaiseScope(const RaiseScope&) = delete;
    RaiseScope& operator=(const RaiseScope&) = delete;

  private:
    std::optional<HostRef> saved_;
};

// dlopen()s the plugin and calls its REALPluginMain(lookup). False with *error set on failure.
bool loadPlugin(const std::string& path, std::string* error);

// Every service name lookup() can answer (withheld ones included), sorted.
std::vector<std::string> serviceNames();

// Number of "REALYieldToRB" calls so far.
int64_t yields();

// Ticks of 1/60 s from a monotonic clock.
int64_t ticks();

// Fault injection. Kinds: "memoryblock" (newMemoryBlock), "picture" (newPicture,
// REALBuildPictureFromBuffer, a mask made by REALGetPictureMask), "string" (REALBuildString,
// REALConvertString, PluginGetStringData) and "object" (PluginNewInstance). failAllocation(kind, n)
// makes the nth allocation of that kind from now on fail (1: the next one) once, as if memory were
// short; n = 0 disarms. False for an unknown kind or n < 0.
bool failAllocation(std::string_view kind, int64_t n);
// Whether the countdown of `kind` is still running (the failing allocation has not happened yet).
bool allocationFailureArmed(std::string_view kind);
// Allocations failed by injection so far in this process.
int64_t injectedFailures();

}  // namespace tqvhost

#endif  // TQVHOST_HOST_H
