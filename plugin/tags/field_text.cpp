#include "tags/field_text.h"

#include <cstring>

namespace tqv {

FieldText TextOf(const FieldShape& shape, const Scratch& scratch) {
    if (!shape.Text()) return {};
    if (!shape.passCount || shape.inkNames) {  // InkNames: its first name
        const char* text = scratch.As<const char*>(0);
        return {text, text != nullptr ? std::strlen(text) : 0};
    }
    const uint32_t count = shape.GetCountSize() == 4 ? scratch.As<uint32_t>(0) : scratch.As<uint16_t>(0);
    const char* text = scratch.As<const char*>(1);
    if (text == nullptr) return {};
    return {text, strnlen(text, count)};
}

bool SetCounted(TIFF* tiff, const FieldShape& shape, uint32_t tag, uint32_t count, const void* values) {
    if (shape.SetCountIsUInt32()) return TIFFSetField(tiff, tag, count, values) == 1;
    if (count > INT32_MAX) return false;
    return TIFFSetField(tiff, tag, static_cast<int>(count), values) == 1;
}

bool SetFieldText(TIFF* tiff, uint32_t tag, const char* text, int32_t length) {
    const FieldShape shape = ShapeOf(tiff, tag);
    switch (shape.SetArgumentKind()) {
        case SetArgument::Unknown:
        case SetArgument::Text:
            return TIFFSetField(tiff, tag, text) == 1;
        case SetArgument::Counted:
            // The terminating NUL travels with the text, as libtiff writes ASCII values.
            return shape.type == TIFF_ASCII && length >= 0 &&
                   SetCounted(tiff, shape, tag, static_cast<uint32_t>(length) + 1, text);
        default:
            return false;
    }
}

}  // namespace tqv
