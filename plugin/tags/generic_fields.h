// Any tag of the current directory by number, in the value type the host program chooses.
//
// libtiff's interface is variadic, so the argument shape must match the field's definition. The
// plugin looks the definition up and calls libtiff only with a matching shape: a family whose
// shape does not fit the field fails (false) instead of handing libtiff the wrong arguments.
// Getters give libtiff scratch slots and copy out only the bytes the field really holds. None of
// these methods changes the message target.
#ifndef TQV_TAGS_GENERIC_FIELDS_H
#define TQV_TAGS_GENERIC_FIELDS_H

#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

bool SetFieldString(REALobject self, int32_t tag, REALstring value);
// Text of an ASCII field (counted or not), labelled ASCII; nil when it is empty.
bool GetFieldString(REALobject self, int32_t tag, REALstring* value);
bool GetFieldDefaultedString(REALobject self, int32_t tag, REALstring* value);

bool SetFieldInteger(REALobject self, int32_t tag, int32_t value);
// The Integer, Double and Single getters report whether the tag is set; their value is always 0.
bool GetFieldInteger(REALobject self, int32_t tag, int32_t* value);
bool GetFieldDefaultedInteger(REALobject self, int32_t tag, int32_t* value);

// Signed both ways: the low 16 bits sign-extended.
bool SetFieldShort(REALobject self, int32_t tag, int32_t value);
bool GetFieldShort(REALobject self, int32_t tag, int32_t* value);
bool GetFieldDefaultedShort(REALobject self, int32_t tag, int32_t* value);

bool SetFieldDouble(REALobject self, int32_t tag, double value);
bool GetFieldDouble(REALobject self, int32_t tag, double* value);
bool GetFieldDefaultedDouble(REALobject self, int32_t tag, double* value);

bool SetFieldSingle(REALobject self, int32_t tag, float value);
bool GetFieldSingle(REALobject self, int32_t tag, float* value);
bool GetFieldDefaultedSingle(REALobject self, int32_t tag, float* value);

// Unsigned both ways: the low 8 bits.
bool SetFieldByte(REALobject self, int32_t tag, int32_t value);
bool GetFieldByte(REALobject self, int32_t tag, int32_t* value);
bool GetFieldDefaultedByte(REALobject self, int32_t tag, int32_t* value);

// libtiff's first output (a scalar, a count or a pointer) at offset 0 of `mem`.
bool GetField(REALobject self, int32_t tag, REALmemoryBlock mem);
// The first output as a count, the second (the pointer of a counted field, the second half of a
// pair) at offset 0 of `mem`.
bool GetFieldCount(REALobject self, int32_t tag, int32_t* count, REALmemoryBlock mem);
// A block wrapping libtiff's values of a counted field (valid until the tag or directory
// changes), or nil.
REALmemoryBlock GetFieldMemory(REALobject self, int32_t tag, int32_t* itemCount);
// Sets a counted field to `itemCount` values from `data`.
bool SetFieldMemory(REALobject self, int32_t tag, int32_t itemCount, REALmemoryBlock data);

}  // namespace tqv

#endif  // TQV_TAGS_GENERIC_FIELDS_H
