// The read-everything routine of the hardening tests and the fuzz target: what a host program
// that opened an untrusted TIFF might ask of it.
#ifndef TQV_TESTS_HARDENING_READ_EVERYTHING_H
#define TQV_TESTS_HARDENING_READ_EVERYTHING_H

#include <cstdint>
#include <limits>
#include <string_view>

#include "session_driver.h"

namespace hard {

// What came out, for tests that expect a particular failure.
struct ReadOutcome {
    bool opened = false;
    int64_t pages = 0;
    bool rgb = false;  // ReadRGB's result on the first image
    bool bw = false;
    bool lut = false;
};

// Walks up to `maxPages` directories header-only reading every property, the ICC profile, XMP and
// colour map, then runs every picture read and a few RGBA memory tiles (placed by `steer`).
void ReadHeaders(Session& s, int64_t maxPages);
ReadOutcome ReadPictures(Session& s, uint32_t steer);
// OpenString on the bytes, then all of the above, then Close. Picture reads are skipped for images
// of more than `maxPicturePixels` (the fuzzer's speed; the hostile-file tests read every size).
ReadOutcome ReadEverything(std::string_view bytes, int64_t maxPages = 8, uint32_t steer = 0,
                           int64_t maxPicturePixels = std::numeric_limits<int64_t>::max());

}  // namespace hard

#endif  // TQV_TESTS_HARDENING_READ_EVERYTHING_H
