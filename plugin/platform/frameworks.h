// Functions of desktop frameworks, bound at run time by name.
//
// A framework named N is the shared library <frameworks folder>/N.framework/N; the folder is
// named by the environment variable TQV_FRAMEWORKS_DIR. Found functions are cached; a failed
// search (no folder, no library, no symbol) is not remembered, so it is tried again next time.
#ifndef TQV_PLATFORM_FRAMEWORKS_H
#define TQV_PLATFORM_FRAMEWORKS_H

namespace tqv {

// The address of `function` in `framework`, or nil.
void* LoadFrameworkFunction(const char* framework, const char* function);

}  // namespace tqv

#endif  // TQV_PLATFORM_FRAMEWORKS_H
