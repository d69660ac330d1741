// Private tags declared by the host program, and tag values moved as binary strings (any
// counted tag, the ICC profile, the XMP packet). None of these changes the message target.
#ifndef TQV_TAGS_CUSTOM_TAGS_H
#define TQV_TAGS_CUSTOM_TAGS_H

#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

// Declares a tag on the open handle (until the directory changes or the file closes). The
// description is first brought into a form libtiff 4.5 handles safely; one that has none gives
// false, and so (with an Error event) do a codec's tags and 64-bit types outside BigTIFF. True once the
// description was handed to libtiff, whatever libtiff made of it (a tag libtiff already knows keeps its
// definition).
bool AddCustomTag(REALobject self, int32_t tag, int32_t readCount, int32_t writeCount, int32_t type,
                  int32_t fieldBit, int32_t okToChange, int32_t passCount, REALstring name);

// The first `count` bytes of a counted field, or the text of an ASCII field, as a binary string;
// nil when the tag is absent, empty or of another form.
REALstring GetData(REALobject self, int32_t tag);
// Sets a counted field to the string's bytes (one value per byte), or an ASCII field to its text.
bool SetData(REALobject self, int32_t tag, REALstring data);

REALstring GetColorProfile(REALobject self);
bool SetColorProfile(REALobject self, REALstring profile);
REALstring GetXMP(REALobject self);
bool SetXMP(REALobject self, REALstring packet);

}  // namespace tqv

#endif  // TQV_TAGS_CUSTOM_TAGS_H
