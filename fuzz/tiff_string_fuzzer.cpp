// libFuzzer target: every input is a TIFF a host program opens with OpenString and then reads in
// every way the plugin offers. The host must survive, and after the session is gone the plugin
// must hold no reference and the host must have seen no accounting fault.
#include <cstdint>
#include <string>
#include <string_view>

#include "read_everything.h"
#include "tqvhost/host.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    hard::StartHost();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int64_t before = hard::Live();
    // The last two bytes steer where the RGBA memory tiles are cut.
    const uint32_t steer = size >= 2 ? uint32_t{data[size - 1]} | uint32_t{data[size - 2]} << 8 : 0;
    // Images above 64 Kpixel are walked but not decoded: a decode of that size takes seconds and would
    // starve the search; the hostile-file tests decode every size the kept corpus claims.
    hard::ReadEverything(std::string_view(reinterpret_cast<const char*>(data), size), 8, steer,
                         int64_t{1} << 16);
    hard::AbortUnlessBalanced(before);
    return 0;
}
