// Values of ASCII and counted fields in the argument shapes libtiff expects for each definition.
//
// An ASCII field is plain text (one char*) when libtiff defined it itself, but a counted array
// (count and char*, not necessarily NUL-terminated) when libtiff met the tag in a file before
// anyone declared it. Both are read and written here through one interface.
#ifndef TQV_TAGS_FIELD_TEXT_H
#define TQV_TAGS_FIELD_TEXT_H

#include <cstddef>
#include <cstdint>

#include "tags/tag_access.h"

namespace tqv {

struct FieldText {
    const char* bytes = nullptr;
    size_t length = 0;  // up to the first NUL, never past the values libtiff holds
};

// The text in the scratch slots after a get of an ASCII field; empty for any other field.
FieldText TextOf(const FieldShape& shape, const Scratch& scratch);

// Sets an ASCII field (plain or counted) to zero-terminated `text` of `length` bytes; false for
// a field of another type. A tag libtiff does not know is handed on for libtiff to refuse.
bool SetFieldText(TIFF* tiff, uint32_t tag, const char* text, int32_t length);

// TIFFSetField(tag, count, values) with the count in the width the definition asks for.
bool SetCounted(TIFF* tiff, const FieldShape& shape, uint32_t tag, uint32_t count, const void* values);

}  // namespace tqv

#endif  // TQV_TAGS_FIELD_TEXT_H
