#include "bridge/text.h"

#include <cstring>

#include "bridge/services.h"
#include "bridge/values.h"

namespace tqv {
namespace {
// Hosts from these versions on copy string bytes out through "PluginGetStringData".
constexpr double kStringDataForBytes = 2013.0;
constexpr double kStringDataForText = 2012.0;

// The text in a host string's own buffer: a one-byte legacy prefix, then `length` bytes.
bool StringBuffer(REALstring s, const uint8_t** bytes, int32_t* length) {
    if (s == nullptr || s->buffer == nullptr || s->length < 0) return false;
    *bytes = s->buffer + 1;
    *length = s->length;
    return true;
}
}  // namespace

rbData::rbData(REALstring s) {
    if (s == nullptr) return;
    if (rbversion_rbversion >= kStringDataForBytes) {
        if (REALGetStringData(s, kREALTextEncodingUnknown, &copy_) && copy_.data != nullptr &&
            copy_.length >= 0) {
            bytes_ = static_cast<const uint8_t*>(copy_.data);
            length_ = copy_.length;
        }
        return;
    }
    locked_ = StringRef::Borrow(s);
    if (!StringBuffer(s, &bytes_, &length_)) {
        bytes_ = nullptr;
        length_ = 0;
    }
}

rbData::~rbData() {
    REALDisposeStringData(&copy_);
}

rbText::rbText(REALstring s) {
    if (s == nullptr) return;
    if (REALGetStringEncoding(s) != kREALTextEncodingUnknown) {
        // The lock is taken where the host has the service; the text is read either way, since
        // the argument lives for the whole call that made this helper.
        source_ = StringRef::Borrow(s);
        view_ = s;
        return;
    }
    const rbData raw(s);
    source_ = StringRef::Steal(REALBuildUnicodeString(raw.Bytes(), raw.Length(), kREALTextEncodingMacRoman));
    view_ = source_.get();
}

rbText::~rbText() {
    Release(ascii_);
    Release(utf8_);
}

void rbText::Release(Text& text) {
    REALDisposeStringData(&text.copy);
}

rbText::Text& rbText::Make(Text& text, uint32_t encoding) {
    if (text.length >= 0) return text;
    text.length = 0;
    if (view_ != nullptr) Convert(text, encoding);
    if (text.length > 0 && text.bytes[text.length] != '\0') {
        // A host buffer without a terminator: copy it, zero-filled, with room to spare.
        text.terminated.reset(static_cast<char*>(AllocateClearMemory(int64_t{text.length} + 4)));
        if (text.terminated) std::memcpy(text.terminated.get(), text.bytes, static_cast<size_t>(text.length));
        text.bytes = text.terminated ? text.terminated.get() : "";
        if (!text.terminated) text.length = 0;
    }
    return text;
}

void rbText::Convert(Text& text, uint32_t encoding) {
    if (rbversion_rbversion >= kStringDataForText) {
        if (REALGetStringData(view_, encoding, &text.copy) && text.copy.data != nullptr &&
            text.copy.length > 0) {
            text.bytes = static_cast<const char*>(text.copy.data);
            text.length = text.copy.length;
        }
        return;
    }
    text.converted = StringRef::Steal(REALConvertString(view_, encoding));
    const uint8_t* bytes = nullptr;
    int32_t length = 0;
    if (StringBuffer(text.converted.get(), &bytes, &length) && length > 0) {
        text.bytes = reinterpret_cast<const char*>(bytes);
        text.length = length;
    }
}

}  // namespace tqv
