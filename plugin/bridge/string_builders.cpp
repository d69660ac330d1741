#include <cstring>

#include "bridge/handles.h"
#include "bridge/memory.h"
#include "bridge/services.h"
#include "bridge/values.h"

namespace tqv {
namespace {

constexpr int64_t kMaxStringLength = 2147483646;
// UTF-32 input up to this many bytes is narrowed in a local buffer, longer input on the heap.
constexpr int64_t kLocalUtf32Bytes = 799;

// A string of raw bytes tagged as UTF-16, converted to UTF-8. A temporary that cannot be made
// converts as nil, which the host answers with an empty UTF-8 string.
REALstring Utf16ToUtf8String(const void* bytes, int32_t length) {
    const StringRef utf16 = StringRef::Steal(originalREALBuildString(bytes, length));
    if (utf16) REALSetStringEncoding(utf16.get(), kREALTextEncodingUTF16);
    return REALConvertString(utf16.get(), kREALTextEncodingUTF8);
}

void NarrowUtf32(const unsigned char* bytes, int64_t units, uint16_t* out) {
    for (int64_t i = 0; i < units; ++i) {
        uint32_t unit;
        std::memcpy(&unit, bytes + i * 4, sizeof unit);
        out[i] = static_cast<uint16_t>(unit & 0xFFFFu);
    }
}

REALstring Utf32ToUtf8String(const void* bytes, int64_t length) {
    const int64_t units = length / 4;
    const auto* in = static_cast<const unsigned char*>(bytes);
    if (length <= kLocalUtf32Bytes) {
        uint16_t local[kLocalUtf32Bytes / 4 + 1];
        NarrowUtf32(in, units, local);
        return Utf16ToUtf8String(local, static_cast<int32_t>(units * 2));
    }
    const ClearMemoryPtr<uint16_t> heap(static_cast<uint16_t*>(AllocateClearMemory(units * 2 + 4)));
    if (heap == nullptr) return Utf16ToUtf8String(nullptr, 0);
    NarrowUtf32(in, units, heap.get());
    return Utf16ToUtf8String(heap.get(), static_cast<int32_t>(units * 2));
}

}  // namespace

REALstring REALBuildUnicodeString(const void* bytes, int64_t length, uint32_t encoding) {
    if (bytes == nullptr || length < 1 || length > kMaxStringLength) return nullptr;
    if (encoding == kREALTextEncodingUTF32) return Utf32ToUtf8String(bytes, length);
    if (encoding == kREALTextEncodingUTF16) return Utf16ToUtf8String(bytes, static_cast<int32_t>(length));
    REALstring s = originalREALBuildString(bytes, static_cast<int32_t>(length));
    if (s != nullptr) REALSetStringEncoding(s, encoding);
    return s;
}

}  // namespace tqv
