// tqvhost: runs Lua host programs against a plugin, or describes what a plugin registers.
//
//   tqvhost [--host-version V] [--app desktop|console|web|none] [--withhold NAME]...
//           [--desktop-depth D] [--frameworks DIR] [--plugin PATH] run SCRIPT.lua [ARGS...]
//   tqvhost [options] describe [--markdown] [PLUGIN]
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "describe_markdown.h"
#include "lua_host.h"
#include "tqvhost/host.h"
#include "tqvhost/registry.h"

namespace {

struct Options {
    tqvhost::Config config;
    std::string plugin;
    std::string command;
    std::vector<std::string> rest;
    bool markdown = false;  // describe --markdown
};

int usage() {
    std::fprintf(
        stderr,
        "usage: tqvhost [--host-version V] [--app desktop|console|web|none] [--withhold NAME]...\n"
        "               [--desktop-depth D] [--frameworks DIR] [--plugin PATH] run SCRIPT.lua [ARGS...]\n"
        "       tqvhost [options] describe [--markdown] [PLUGIN]\n");
    return 2;
}

std::string executableDir() {
    char buf[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n <= 0) return ".";
    std::string path(buf, static_cast<size_t>(n));
    return path.substr(0, path.rfind('/'));
}

bool exists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

// The built tree's path when it is there, else the install layout next to the executable.
// An installed tqvhost uses the files installed beside it, even when the build tree it came from
// still exists; a tqvhost in the build tree has no such files beside it and uses the build's.
std::string builtOrInstalled(const char* built, const std::string& installed) {
    std::string beside = executableDir() + "/" + installed;
    return exists(beside) || !built[0] ? beside : built;
}

bool parseApp(const std::string& s, tqvhost::AppKind* app) {
    static const char* const kNames[] = {"desktop", "console", "web", "none"};
    for (int i = 0; i < 4; ++i)
        if (s == kNames[i]) return *app = static_cast<tqvhost::AppKind>(i), true;
    return false;
}

// A number written out in full: "2010.028" but not "", "2010x" or "nan".
bool parseVersion(const std::string& s, double* version) {
    char* end = nullptr;
    const double v = std::strtod(s.c_str(), &end);
    if (s.empty() || *end != '\0' || !std::isfinite(v)) return false;
    *version = v;
    return true;
}

// The depths a desktop host's pictures come in.
bool parseDepth(const std::string& s, int* depth) {
    for (int d : {32, 24, 16, 8})
        if (s == std::to_string(d)) return *depth = d, true;
    return false;
}

// A service this host has: withholding a misspelt name would quietly withhold nothing.
bool knownService(const std::string& name) {
    const auto names = tqvhost::serviceNames();
    return std::binary_search(names.begin(), names.end(), name);
}

bool parseOptions(int argc, char** argv, Options* o) {
    int i = 1;
    for (; i < argc && std::strncmp(argv[i], "--", 2) == 0; ++i) {
        std::string opt = argv[i];
        if (i + 1 >= argc) return false;
        std::string value = argv[++i];
        if (opt == "--host-version" && parseVersion(value, &o->config.version))
            continue;
        else if (opt == "--app" && parseApp(value, &o->config.app))
            continue;
        else if (opt == "--withhold" && knownService(value))
            o->config.withheld.insert(value);
        else if (opt == "--desktop-depth" && parseDepth(value, &o->config.desktopDepth))
            continue;
        else if (opt == "--frameworks")
            o->config.frameworksDir = value;
        else if (opt == "--plugin")
            o->plugin = value;
        else
            return false;
    }
    if (i >= argc) return false;
    o->command = argv[i++];
    for (; i < argc; ++i) o->rest.emplace_back(argv[i]);
    return true;
}

int describe(const Options& o) {
    const auto& lines = tqvhost::registry().describeLines;
    if (o.markdown) {
        std::string name = o.plugin.substr(o.plugin.rfind('/') + 1);
        std::fputs(tqvhost::markdown::render(lines, name).c_str(), stdout);
    } else {
        for (const auto& line : lines) std::printf("%s\n", line.c_str());
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}

int traceback(lua_State* L) {
    if (lua_type(L, 1) == LUA_TTABLE) {
        lua_getfield(L, 1, "class");
        lua_getfield(L, 1, "message");
        if (lua_isstring(L, -2)) {
            lua_pushfstring(L, "uncaught host exception %s: %s", lua_tostring(L, -2),
                            lua_isstring(L, -1) ? lua_tostring(L, -1) : "");
            luaL_traceback(L, L, lua_tostring(L, -1), 1);
            return 1;
        }
        lua_pop(L, 2);
    }
    const char* msg = luaL_tolstring(L, 1, nullptr);
    luaL_traceback(L, L, msg, 1);
    return 1;
}

int run(const Options& o) {
    if (o.rest.empty()) return usage();
    lua_State* L = luaL_newstate();
    luaL_openlibs(L);
    tqvhost::lua::installValues(L);
    tqvhost::lua::installPlugin(L);
    lua_createtable(L, static_cast<int>(o.rest.size()), 1);
    for (size_t i = 0; i < o.rest.size(); ++i) {
        lua_pushstring(L, o.rest[i].c_str());
        lua_rawseti(L, -2, static_cast<lua_Integer>(i));
    }
    lua_setglobal(L, "arg");
    lua_pushcfunction(L, traceback);
    int status = luaL_loadfile(L, o.rest[0].c_str());
    if (status == LUA_OK) status = lua_pcall(L, 0, 0, -2);
    if (status != LUA_OK) std::fprintf(stderr, "tqvhost: %s\n", lua_tostring(L, -1));
    lua_close(L);
    return status == LUA_OK ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!parseOptions(argc, argv, &o)) return usage();
    if (o.command == "describe" && !o.rest.empty() && o.rest[0] == "--markdown") {
        o.markdown = true;
        o.rest.erase(o.rest.begin());
    }
    if (o.command == "describe" && o.rest.size() > 1) return usage();  // one plugin at a time
    if (o.command == "describe" && !o.rest.empty()) o.plugin = o.rest[0];
    if (o.command != "describe" && o.command != "run") return usage();
    if (o.plugin.empty()) o.plugin = builtOrInstalled(TQVHOST_DEFAULT_PLUGIN, "../lib/libTiffPictureTQV.so");
    if (o.config.frameworksDir.empty())
        o.config.frameworksDir = builtOrInstalled(TQVHOST_DEFAULT_FRAMEWORKS, "../lib/tqvhost/frameworks");
    tqvhost::configure(o.config);
    std::string error;
    if (!tqvhost::loadPlugin(o.plugin, &error)) {
        std::fprintf(stderr, "tqvhost: cannot load plugin %s: %s\n", o.plugin.c_str(), error.c_str());
        return 1;
    }
    return o.command == "describe" ? describe(o) : run(o);
}
