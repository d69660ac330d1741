#include "session/messages.h"

#include <cstdio>
#include <cstring>

#include "bridge/entry_guard.h"
#include "bridge/handles.h"
#include "bridge/registration.h"
#include "bridge/services.h"
#include "bridge/values.h"

namespace tqv {

REALobject current = nullptr;
char ErrorMessageBuffer[kErrorMessageBufferSize];

namespace {

using MessageEventProc = void (*)(REALobject, REALstring libModule, REALstring message);

REALstring AsciiString(const char* text, int64_t length) {
    return length >= 1 ? REALBuildUnicodeString(text, length, kREALTextEncodingASCII) : nullptr;
}

void Deliver(TiffEvent event, const char* module, const char* format, va_list arguments) noexcept {
    if (current == nullptr) return;
    auto handler = reinterpret_cast<MessageEventProc>(REALGetEventInstance(current, EventWord(event)));
    if (handler == nullptr) return;
    const int formatted = std::vsnprintf(ErrorMessageBuffer, sizeof ErrorMessageBuffer, format, arguments);
    // vsnprintf answers the length the whole message would have had: build the string only from
    // what is really in the buffer.
    const int length = formatted < kErrorMessageBufferSize - 1 ? formatted : kErrorMessageBufferSize - 1;
    const StringRef message = StringRef::Steal(AsciiString(ErrorMessageBuffer, length));
    const StringRef libModule = StringRef::Steal(
        module != nullptr ? AsciiString(module, static_cast<int64_t>(std::strlen(module))) : nullptr);
    // The handler may destroy the object's last other reference.
    const ObjectRef target = ObjectRef::Borrow(current);
    // libtiff is inside a call on some handle until the handler returns (see entry_guard.h).
    ++gMessageHandlerDepth;
    handler(target.get(), libModule.get(), message.get());
    --gMessageHandlerDepth;
}

}  // namespace

void MyTIFFErrorHandler(const char* module, const char* format, va_list arguments) {
    Deliver(TiffEvent::Error, module, format, arguments);
}

void MyTIFFWarningHandler(const char* module, const char* format, va_list arguments) {
    Deliver(TiffEvent::Warning, module, format, arguments);
}

}  // namespace tqv
