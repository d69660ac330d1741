#include "tqvhost/handles.h"

#include <cstdio>
#include <optional>
#include <unordered_map>
#include <vector>

#include "tqvhost/host.h"
#include "tqvhost/picture.h"

namespace tqvhost {
namespace {

struct State {
    // Every handle ever made, by address. Never shrinks: dead handles stay as quarantine.
    std::unordered_map<const void*, Handle*> handles;
    std::unordered_map<const void*, const char*> copies;  // outstanding private copies, by kind
    std::vector<std::string> errors;
};

// Deliberately never destroyed: handles may be released by Lua finalizers at exit.
State& state() {
    static State* s = new State;
    return *s;
}

std::string describe(Handle* h) {
    char buf[96];
    std::snprintf(buf, sizeof buf, "%s %p", kindName(h->kind()), h->address());
    return buf;
}

}  // namespace

const char* kindName(Kind kind) {
    static const char* const names[] = {"object",     "string",   "memoryblock", "picture",
                                        "folderitem", "graphics", "array"};
    return names[static_cast<int>(kind)];
}

bool isObjectLike(Kind k) {
    return k != Kind::String && k != Kind::Array;
}
bool isString(Kind k) {
    return k == Kind::String;
}

void Accounts::error(const std::string& message) {
    std::fprintf(stderr, "tqvhost: accounting error: %s\n", message.c_str());
    state().errors.push_back(message);
}

void Accounts::registerHandle(Handle* h) {
    state().handles[h->address()] = h;
}

Handle* Accounts::find(const void* address) {
    auto it = state().handles.find(address);
    return it == state().handles.end() ? nullptr : it->second;
}

namespace {

// The checks of Accounts::check, with the kind asked by `kindOk` or compared with `expected`.
Handle* checked(const void* address, const char* service, bool (*kindOk)(Kind),
                std::optional<Kind> expected) {
    if (!address) return nullptr;
    // The report's prefix is formatted only for a report: this check runs on every service call.
    const auto where = [&] {
        char text[160];
        std::snprintf(text, sizeof text, "%s(%p): ", service, address);
        return std::string(text);
    };
    Handle* h = Accounts::find(address);
    if (!h) {
        Accounts::error(where() + "not a host handle");
        return nullptr;
    }
    if (h->dead()) {
        Accounts::error(where() + "dead " + kindName(h->kind()));
        return nullptr;
    }
    if ((kindOk && !kindOk(h->kind())) || (expected && h->kind() != *expected)) {
        Accounts::error(where() + "wrong kind of handle (" + kindName(h->kind()) + ")");
        return nullptr;
    }
    return h;
}

}  // namespace

Handle* Accounts::check(const void* address, const char* service, bool (*kindOk)(Kind)) {
    return checked(address, service, kindOk, std::nullopt);
}

Handle* Accounts::check(const void* address, const char* service, Kind expected) {
    return checked(address, service, nullptr, expected);
}

void Accounts::settle(Handle* h) {
    if (h->hostLocks() != 0 || h->pluginLocks() != 0 || h->dead()) return;
    // The destructor of an object may call back into the plugin, which may unlock more handles.
    h->dead_ = true;
    h->dying_ = true;
    h->destroy();
    h->dying_ = false;
}

void Accounts::hostLock(Handle* h) {
    ++h->hostLocks_;
}

void Accounts::hostUnlock(Handle* h) {
    if (h->hostLocks_ <= 0) {
        error("host released " + describe(h) + " without holding a lock");
        return;
    }
    --h->hostLocks_;
    settle(h);
}

void Accounts::give(Handle* h) {
    ++h->pluginLocks_;
}

void Accounts::pluginLock(Handle* h, const char*) {
    ++h->pluginLocks_;
}

void Accounts::pluginUnlock(Handle* h, const char* service) {
    if (h->pluginLocks_ <= 0) {
        error(std::string(service) + ": plugin released " + describe(h) + " beyond the locks it holds");
        return;
    }
    --h->pluginLocks_;
    settle(h);
}

void Accounts::takeBack(Handle* h, const char* what) {
    ++h->hostLocks_;
    if (h->pluginLocks_ <= 0) {
        error(std::string(what) + ": plugin returned " + describe(h) + " without holding a lock");
        return;
    }
    --h->pluginLocks_;
}

void Accounts::giveCopy(const void* copy, const char* kind) {
    state().copies[copy] = kind;
}

bool Accounts::takeBackCopy(const void* copy, const char* service) {
    if (state().copies.erase(copy)) return true;
    char text[160];
    std::snprintf(text, sizeof text, "%s(%p): not a copy the host handed out, or given back already", service,
                  copy);
    error(text);
    return false;
}

Live live() {
    Live out;
    for (const auto& [copy, kind] : state().copies) {
        ++out.total;
        ++out.byKind[kind];
    }
    for (const auto& [address, h] : state().handles) {
        if (h->dead()) continue;
        if (h->kind() == Kind::Picture) {
            const auto* picture = static_cast<const PictureHandle*>(h);
            if (int32_t locks = picture->descriptionLocks; locks > 0) {
                out.total += locks;
                out.byKind["description"] += locks;
            }
            if (int32_t locks = picture->pixelLocks(); locks > 0) {
                out.total += locks;
                out.byKind["pixels"] += locks;
            }
        }
        if (h->pluginLocks() == 0) continue;
        out.total += h->pluginLocks();
        out.byKind[kindName(h->kind())] += h->pluginLocks();
    }
    return out;
}

std::vector<std::string> takeAccountingErrors() {
    return std::exchange(state().errors, {});
}

}  // namespace tqvhost
