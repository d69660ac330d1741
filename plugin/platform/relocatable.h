// A growable byte buffer that can be pinned: the stand-in for the desktop's relocatable handles.
//
// The bytes live in their own anonymous mapping, so growing moves page-table entries (mremap)
// instead of copying the data: a buffer grown in 1 MiB steps to hundreds of MiB never pays a
// full copy per step. While pinned the bytes do not move; growing then succeeds only in place.
#ifndef TQV_PLATFORM_RELOCATABLE_H
#define TQV_PLATFORM_RELOCATABLE_H

#include <cstddef>

namespace tqv {

struct RelocatableBlock;

// A zero-filled block of `size` bytes, or nil when memory is short.
RelocatableBlock* NewRelocatable(size_t size);
// Sets the size; false (and the block unchanged) when memory is short or a pinned block would
// have to move. Bytes added by growing are zero.
bool ResizeRelocatable(RelocatableBlock* block, size_t size);
size_t RelocatableSize(const RelocatableBlock* block);
// Pins the block and returns its bytes; pins nest.
void* PinRelocatable(RelocatableBlock* block);
void UnpinRelocatable(RelocatableBlock* block);
void DisposeRelocatable(RelocatableBlock* block);

}  // namespace tqv

#endif  // TQV_PLATFORM_RELOCATABLE_H
