#include "platform/vector_paths.h"

#include <cstdlib>

namespace tqv {

bool PortablePathsOnly() {
    static const bool portable = std::getenv("TQV_PORTABLE_PATHS") != nullptr;
    return portable;
}

#if defined(__x86_64__)
bool UseSsse3() {
    static const bool ssse3 = __builtin_cpu_supports("ssse3") && !PortablePathsOnly();
    return ssse3;
}
#endif

}  // namespace tqv
