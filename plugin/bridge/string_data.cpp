// "PluginGetStringData" and its fallback for hosts that lack it.
#include <cstring>
#include <unordered_set>

#include "bridge/handles.h"
#include "bridge/memory.h"
#include "bridge/services.h"

namespace tqv {
namespace {

constexpr const char* kLenBDeclaration = "LenB( s as string ) as integer";

// Buffers the fallback made; REALDisposeStringData frees these itself instead of asking the host.
std::unordered_set<const void*>& FallbackCopies() {
    static std::unordered_set<const void*> copies;
    return copies;
}

REALLenBProc LenB() {
    static void* cached = nullptr;
    if (cached == nullptr) cached = REALLoadFrameworkMethod(nullptr, kLenBDeclaration);
    return reinterpret_cast<REALLenBProc>(cached);
}

// Copies the bytes of `s` into a buffer of length + 4 bytes ending in four zero bytes.
bool CopyStringBytes(REALstring s, uint32_t encoding, REALLenBProc lenB, REALstringData* out) {
    const int32_t length = lenB(s);
    const char* bytes = StringGetCString(s);
    if (length < 0 || (bytes == nullptr && length > 0)) return false;
    auto* copy = static_cast<char*>(AllocateClearMemory(int64_t{length} + 4));
    if (copy == nullptr) return false;
    if (length > 0) std::memcpy(copy, bytes, static_cast<size_t>(length));
    FallbackCopies().insert(copy);
    *out = REALstringData{copy, length, encoding};
    return true;
}

bool FallbackStringData(REALstring s, uint32_t encoding, REALstringData* out) {
    const REALLenBProc lenB = LenB();
    if (s == nullptr || lenB == nullptr || ResolveService(ServiceId::StringGetCString) == nullptr)
        return false;
    if (encoding == kREALTextEncodingUnknown || REALGetStringEncoding(s) == encoding) {
        return CopyStringBytes(s, encoding, lenB, out);
    }
    const StringRef converted = StringRef::Steal(REALConvertString(s, encoding));
    if (!converted) return false;
    return CopyStringBytes(converted.get(), encoding, lenB, out);
}

}  // namespace

bool REALGetStringData(REALstring s, uint32_t encoding, REALstringData* out) {
    if (out == nullptr) return false;
    *out = REALstringData{nullptr, 0, encoding};
    if (ResolveService(ServiceId::hostGetStringData) != nullptr) return hostGetStringData(s, encoding, out);
    return FallbackStringData(s, encoding, out);
}

void REALDisposeStringData(REALstringData* data) {
    if (data == nullptr || data->data == nullptr) return;
    if (FallbackCopies().erase(data->data) != 0) {
        FreeMemoryNow(const_cast<void*>(data->data));
    } else {
        hostDisposeStringData(data);
    }
    *data = REALstringData{nullptr, 0, data->encoding};
}

}  // namespace tqv
