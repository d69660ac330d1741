// Delivery of libtiff's errors and warnings to the Error and Warning events.
//
// libtiff's handlers are process-wide and know nothing of our objects, so every message goes to
// one target, `current`: the object that most recently started an operation. It holds no lock;
// the destructor clears it. With no target, or no handler for the event, a message is dropped.
#ifndef TQV_SESSION_MESSAGES_H
#define TQV_SESSION_MESSAGES_H

#include <tqv/plugin_abi.h>

#include <cstdarg>

namespace tqv {

extern REALobject current;

// Shared by both handlers: messages are cut to 3,999 characters.
inline constexpr int kErrorMessageBufferSize = 4000;
extern char ErrorMessageBuffer[kErrorMessageBufferSize];

void MyTIFFErrorHandler(const char* module, const char* format, va_list arguments);
void MyTIFFWarningHandler(const char* module, const char* format, va_list arguments);

}  // namespace tqv

#endif  // TQV_SESSION_MESSAGES_H
