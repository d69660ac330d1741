// Values that libtiff would lose a directory over, refused before libtiff sees them.
#ifndef TQV_TAGS_VALUE_GUARD_H
#define TQV_TAGS_VALUE_GUARD_H

#include <tiffio.h>

#include <cstdarg>
#include <cstdint>

namespace tqv {

// The first variadic argument of a set, left unread in `ap` for the setter.
template <typename T>
T PeekArgument(va_list ap) {
    va_list peek;
    va_copy(peek, ap);
    const T value = va_arg(peek, T);
    va_end(peek);
    return value;
}

// libtiff frees a custom field's old value before it looks at the new one. When it then refuses
// the new one (no values, a type it cannot size) or cannot allocate its copy (more bytes than the
// handle may allocate), the field stays in the directory with a count and no values: the directory
// writer fails on it and the whole image is lost, and a text set even answered true. A SubIFD of
// no offsets is kept the same way. Such a value is refused here instead, with an Error event, and
// the old value stays. `ap` holds the set's arguments, unread. Answers -1 to go on to libtiff's
// setter, 0 when refused.
int FitCustomValue(TIFF* tiff, uint32_t tag, va_list ap);

}  // namespace tqv

#endif  // TQV_TAGS_VALUE_GUARD_H
