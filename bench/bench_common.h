// What every benchmark file shares: the plugin loaded in-process through the reference host, a
// session object driven by declaration as a host program drives it, plain in-memory libtiff
// streams for the floors, scratch file names, and peak-memory readings.
#pragma once

#include <benchmark/benchmark.h>
#include <tiffio.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tqvhost/host.h"
#include "tqvhost/invoke.h"
#include "tqvhost/picture.h"
#include "tqvhost/registry.h"
#include "tqvhost/strings.h"
#include "tqvhost/values.h"

namespace tqvbench {

constexpr double kMiB = 1048576.0;

// The plugin's class, loaded once into a desktop host with 32-bit pictures.
tqvhost::Class& PluginClass();
// A global function of the plugin by its exact declaration (exits when missing).
const tqvhost::Method& GlobalMethod(const char* declaration);

// A session object held by the host.
struct Session {
    Session();
    tqvhost::HostRef object;
    tqvhost::ObjectHandle* get() const { return object.as<tqvhost::ObjectHandle>(); }

    // Calls the method registered with exactly this declaration (exits when missing).
    tqvhost::Value Call(const char* declaration, std::vector<tqvhost::Arg> args = {});
    void Set(const char* property, const tqvhost::Value& value);
    tqvhost::Value Get(const char* property);
    void SetInteger(const char* property, int64_t value);
    void SetPict(tqvhost::Handle* picture);
};

tqvhost::Arg IntegerArg(int64_t value);
tqvhost::Arg FolderItemArg(const std::string& path);
tqvhost::Arg StringArg(const std::string& bytes, bool byref = false);

// The bilevel benchmark page, 8192 x 8192: lines of 5 x 7 glyphs drawn 3 times their size in
// 16-pixel cells with spaces and ragged ends, a rule every 50 lines, a 4-pixel frame. True where
// it is black.
constexpr uint32_t kPageSide = 8192;
bool PageBlack(uint32_t x, uint32_t y);

// $TMPDIR/<name> (or /tmp/<name>).
std::string ScratchPath(const std::string& name);
std::string FileBytes(const std::string& path);

// A read-only libtiff stream over bytes held in memory, the floor for the in-memory paths.
TIFF* OpenMemoryTiff(const std::string* bytes);

// Peak resident set: ResetPeakMemory() before the measured work, then PeakMemoryMB() gives the
// process's high-water mark since then, in MB (10^6 bytes), minus the resident set at the reset.
// Reported as the "peak_MB" counter by SetPeakMemoryCounter.
void ResetPeakMemory();
double PeakMemoryMB();
void SetPeakMemoryCounter(benchmark::State& state, double peakMB);

}  // namespace tqvbench
