// The plugin's one exported symbol.
#include <tqv/plugin_abi.h>

#include "bridge/registration.h"
#include "bridge/services.h"

namespace {

void Start(REALResolver lookup) {
    using namespace tqv;
    gResolver = lookup;
    if (gResolver == nullptr) return;
    // A host that does not take the announcement is still offered the classes: the records are
    // the version 9 layout either way.
    if (auto announce = reinterpret_cast<REALRegisterPluginVersionProc>(gResolver("RegisterPluginVersion"))) {
        announce(REAL_PLUGIN_INTERFACE_VERSION);
    }
    if (auto version = reinterpret_cast<REALGetRBVersionProc>(gResolver("REALGetRBVersion"))) {
        rbversion_rbversion = version();
    }
    PluginEntry();
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void REALPluginMain(REALResolver lookup) {
    try {
        Start(lookup);
    } catch (...) {
        // Registration only fails when memory is short; the host then simply lacks the class.
    }
}
