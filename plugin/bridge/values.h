// New host strings and memory blocks made from plain bytes, and host exceptions by class name.
// Every result carries one lock for the caller.
#ifndef TQV_BRIDGE_VALUES_H
#define TQV_BRIDGE_VALUES_H

#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

// A string from `length` bytes in `encoding`; nil for nil bytes or a length outside
// 1 to 2,147,483,646. UTF-16 and UTF-32 input comes back converted to UTF-8; UTF-32 keeps only the
// low 16 bits of each unit (characters beyond the basic plane are cut, as the host's older
// string services did). Any other encoding is only tagged.
REALstring REALBuildUnicodeString(const void* bytes, int64_t length, uint32_t encoding);

// A block holding a copy of `size` bytes; nil for nil bytes or a size below 1. A size the host
// cannot allocate raises "OutOfMemoryException" and gives nil.
REALmemoryBlock REALBuildMemoryblock(const void* bytes, int64_t size);

// A new block of 0 to 2,147,483,646 bytes; nil for any other size, without an exception.
REALmemoryBlock REALNewMemoryBlock(int64_t size);

// Raises an exception of `className` (a "RuntimeException" when the host has no such class)
// with `message` (may be nil) in `encoding`. Nothing is raised when neither class can be made.
void RaiseException(const char* className, const char* message, uint32_t encoding);

}  // namespace tqv

#endif  // TQV_BRIDGE_VALUES_H
