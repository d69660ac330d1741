// Whether the loops written for a processor's vector instructions may run.
#ifndef TQV_PLATFORM_VECTOR_PATHS_H
#define TQV_PLATFORM_VECTOR_PATHS_H

namespace tqv {

// Every vector loop has a portable one beside it, which processors without the instructions take
// (SSSE3 is missing on some x86-64 processors still in use). With TQV_PORTABLE_PATHS set in the
// environment (read once) the portable loops run everywhere, so that tests check them on any
// machine; the results must be the same bytes.
bool PortablePathsOnly();

#if defined(__x86_64__)
// SSSE3 (byte shuffles) where the processor has it and the portable loops are not asked for.
bool UseSsse3();
#endif

}  // namespace tqv

#endif  // TQV_PLATFORM_VECTOR_PATHS_H
