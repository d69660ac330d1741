#include "bench_common.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace tqvbench {

using namespace tqvhost;

Class& PluginClass() {
    static Class* cls = [] {
        Config config;
        config.app = AppKind::Desktop;
        config.frameworksDir = TQV_BENCH_FRAMEWORKS;
        // The guard pattern after each row is the reference host's check on plugins; a real host
        // has none. Filling it would touch every fourth page of a new picture before the plugin
        // can ask for huge pages, and charge the host's check to the plugin.
        config.rowGuards = false;
        configure(config);
        std::string error;
        if (!loadPlugin(TQV_BENCH_PLUGIN, &error)) {
            std::fprintf(stderr, "tqv_bench: %s\n", error.c_str());
            std::exit(1);
        }
        return registry().find("TiffPictureTQV");
    }();
    return *cls;
}

const Method& GlobalMethod(const char* declaration) {
    PluginClass();
    for (const Method& m : registry().globals)
        if (m.text == declaration) return m;
    std::fprintf(stderr, "tqv_bench: no global %s\n", declaration);
    std::exit(1);
}

Session::Session() : object(HostRef::adopt(newObject(&PluginClass(), false))) {}

Value Session::Call(const char* declaration, std::vector<Arg> args) {
    for (const Method& m : PluginClass().methods)
        if (m.text == declaration) return callDeclared(m.function, m.decl, get()->address(), args);
    std::fprintf(stderr, "tqv_bench: no method %s\n", declaration);
    std::exit(1);
}

void Session::Set(const char* property, const Value& value) {
    const Property* p = PluginClass().findProperty(property);
    if (p == nullptr) {
        std::fprintf(stderr, "tqv_bench: no property %s\n", property);
        std::exit(1);
    }
    setProperty(get(), *p, value);
}

Value Session::Get(const char* property) {
    const Property* p = PluginClass().findProperty(property);
    if (p == nullptr) {
        std::fprintf(stderr, "tqv_bench: no property %s\n", property);
        std::exit(1);
    }
    return getProperty(get(), *p);
}

void Session::SetInteger(const char* property, int64_t value) {
    Set(property, Value::integer(TypeKind::Integer, value));
}

void Session::SetPict(Handle* picture) {
    Value v;
    v.kind = TypeKind::Picture;
    v.handle = HostRef(picture);
    Set("Pict", v);
}

Arg IntegerArg(int64_t value) {
    return Arg{Value::integer(TypeKind::Integer, value), false};
}

Arg FolderItemArg(const std::string& path) {
    Arg arg;
    arg.value.kind = TypeKind::FolderItem;
    arg.value.handle = HostRef(makeHandle<FolderItemHandle>(path));
    return arg;
}

Arg StringArg(const std::string& bytes, bool byref) {
    Arg arg;
    arg.value.kind = TypeKind::String;
    arg.value.handle = HostRef(newString(bytes, 0xFFFF));
    arg.byref = byref;
    return arg;
}

namespace {

// A 5 x 7 glyph row picked by `code`: 5 bits from a hash, never blank.
uint32_t GlyphRow(uint32_t code, uint32_t row) {
    uint32_t h = (code * 2654435761u) ^ (row * 40503u);
    h ^= h >> 13;
    h *= 0x5bd1e995u;
    h ^= h >> 15;
    return (h & 31u) | (row == 3 ? 0x11u : 0u);
}

}  // namespace

bool PageBlack(uint32_t x, uint32_t y) {
    constexpr uint32_t kFrame = 200, kMargin = 320, kCell = 16, kLine = 40;
    constexpr uint32_t kCells = (kPageSide - 2 * kMargin) / kCell;
    const bool insideY = y >= kFrame && y < kPageSide - kFrame;
    const bool insideX = x >= kFrame && x < kPageSide - kFrame;
    if (!insideX || !insideY) return false;
    if (x < kFrame + 4 || x >= kPageSide - kFrame - 4 || y < kFrame + 4 || y >= kPageSide - kFrame - 4)
        return true;
    const uint32_t line = y / kLine, oy = y % kLine;
    if (x < kMargin || x >= kPageSide - kMargin) return false;
    if (line % 50 == 49) return oy >= 18 && oy < 20;
    if (oy < 8 || oy >= 29) return false;
    const uint32_t c = (x - kMargin) / kCell, gx = (x - kMargin) % kCell / 3;
    if (c >= kCells - (line * 7919u) % 40u || gx >= 5) return false;
    const uint32_t code = line * 1000003u + c * 7u;
    if ((code * 2246822519u) >> 29 == 0) return false;  // a space between words
    return (GlyphRow(code % 96u, (oy - 8) / 3) >> (4 - gx)) & 1u;
}

std::string ScratchPath(const std::string& name) {
    const char* tmp = std::getenv("TMPDIR");
    return std::string(tmp != nullptr ? tmp : "/tmp") + "/" + name;
}

std::string FileBytes(const std::string& path) {
    std::string bytes;
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        char chunk[65536];
        size_t n = 0;
        while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) bytes.append(chunk, n);
        std::fclose(f);
    }
    return bytes;
}

namespace {

struct MemoryFile {
    const std::string* bytes;
    toff_t position = 0;
};

tmsize_t MemoryRead(thandle_t h, void* out, tmsize_t size) {
    auto* m = static_cast<MemoryFile*>(h);
    const toff_t left = m->position < m->bytes->size() ? m->bytes->size() - m->position : 0;
    const auto n = static_cast<tmsize_t>(std::min<toff_t>(left, static_cast<toff_t>(size)));
    std::memcpy(out, m->bytes->data() + m->position, static_cast<size_t>(n));
    m->position += static_cast<toff_t>(n);
    return n;
}
tmsize_t MemoryWrite(thandle_t, void*, tmsize_t) {
    return -1;
}
toff_t MemorySeek(thandle_t h, toff_t offset, int whence) {
    auto* m = static_cast<MemoryFile*>(h);
    if (whence == SEEK_SET) m->position = offset;
    if (whence == SEEK_CUR) m->position += offset;
    if (whence == SEEK_END) m->position = m->bytes->size() + offset;
    return m->position;
}
int MemoryClose(thandle_t h) {
    delete static_cast<MemoryFile*>(h);
    return 0;
}
toff_t MemorySize(thandle_t h) {
    return static_cast<MemoryFile*>(h)->bytes->size();
}

double StatusKiB(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const size_t n = std::strlen(field);
    while (std::getline(status, line))
        if (line.compare(0, n, field) == 0 && line.size() > n && line[n] == ':')
            return std::strtod(line.c_str() + n + 1, nullptr);
    return 0;
}

double gResidentAtReset = 0;

}  // namespace

TIFF* OpenMemoryTiff(const std::string* bytes) {
    auto* file = new MemoryFile{bytes};
    TIFF* tif = TIFFClientOpen("memory", "rm", file, MemoryRead, MemoryWrite, MemorySeek, MemoryClose,
                               MemorySize, nullptr, nullptr);
    if (tif == nullptr) delete file;  // libtiff calls the close procedure only for a handle it made
    return tif;
}

void ResetPeakMemory() {
    // Writing 5 to clear_refs resets the high-water mark to the current resident set.
    if (FILE* f = std::fopen("/proc/self/clear_refs", "w")) {
        std::fputs("5", f);
        std::fclose(f);
    }
    gResidentAtReset = StatusKiB("VmRSS");
}

double PeakMemoryMB() {
    return std::max(0.0, StatusKiB("VmHWM") - gResidentAtReset) * 1024.0 / 1e6;
}

void SetPeakMemoryCounter(benchmark::State& state, double peakMB) {
    state.counters["peak_MB"] = benchmark::Counter(peakMB);
}

}  // namespace tqvbench
