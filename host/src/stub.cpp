#include "tqvhost/host.h"

namespace tqvhost {
namespace {
Config gConfig;
}
void configure(const Config& c) {
    gConfig = c;
}
const Config& config() {
    return gConfig;
}
extern "C" void* lookup(const char*) {
    return nullptr;
}
Live live() {
    return {};
}
std::vector<std::string> takeAccountingErrors() {
    return {};
}
std::optional<RaisedException> takeRaisedException() {
    return std::nullopt;
}
bool loadPlugin(const std::string&, std::string* error) {
    if (error) *error = "not implemented yet";
    return false;
}
int64_t yields() {
    return 0;
}
int64_t ticks() {
    return 0;
}
}  // namespace tqvhost
