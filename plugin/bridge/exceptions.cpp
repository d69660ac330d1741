#include <cstring>

#include "bridge/handles.h"
#include "bridge/services.h"
#include "bridge/values.h"

namespace tqv {

void RaiseException(const char* className, const char* message, uint32_t encoding) {
    const StringRef text = StringRef::Steal(
        message != nullptr
            ? REALBuildUnicodeString(message, static_cast<int64_t>(std::strlen(message)), encoding)
            : nullptr);
    ObjectRef exception = ObjectRef::Steal(className != nullptr ? REALnewInstance(className) : nullptr);
    if (!exception) exception = ObjectRef::Steal(REALnewInstance("RuntimeException"));
    if (!exception) return;
    if (text) REALSetPropValueString(exception.get(), "Message", text.get());
    REALRaiseException(exception.get());
}

}  // namespace tqv
