// Allocation fault injection: tests arm a countdown per kind, and the service that makes the
// counted allocation answers nil as if the host were out of memory.
#include <array>
#include <string_view>

#include "services.h"
#include "tqvhost/host.h"

namespace tqvhost {
namespace {

constexpr std::array<std::string_view, 4> kKinds = {"memoryblock", "picture", "string", "object"};

struct Countdown {
    int64_t remaining = 0;  // 0: disarmed; 1: the next allocation fails
};
std::array<Countdown, kKinds.size()> gCountdowns;
int64_t gInjected = 0;

int indexOf(std::string_view kind) {
    for (size_t i = 0; i < kKinds.size(); ++i)
        if (kKinds[i] == kind) return static_cast<int>(i);
    return -1;
}

}  // namespace

bool failAllocation(std::string_view kind, int64_t n) {
    const int i = indexOf(kind);
    if (i < 0 || n < 0) return false;
    gCountdowns[static_cast<size_t>(i)].remaining = n;
    return true;
}

bool allocationFailureArmed(std::string_view kind) {
    const int i = indexOf(kind);
    return i >= 0 && gCountdowns[static_cast<size_t>(i)].remaining > 0;
}

int64_t injectedFailures() {
    return gInjected;
}

bool injectFailure(std::string_view kind) {
    const int i = indexOf(kind);
    if (i < 0) return false;
    Countdown& c = gCountdowns[static_cast<size_t>(i)];
    if (c.remaining == 0 || --c.remaining > 0) return false;
    ++gInjected;
    return true;
}

}  // namespace tqvhost
