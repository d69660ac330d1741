// Scoped views of host strings as text (rbText) and as raw bytes (rbData).
#ifndef TQV_BRIDGE_TEXT_H
#define TQV_BRIDGE_TEXT_H

#include <tqv/plugin_abi.h>

#include <cstdint>

#include "bridge/handles.h"
#include "bridge/memory.h"

namespace tqv {

// The raw bytes of a host string, no encoding conversion. Hosts from 2013 on hand out a private
// copy; older hosts let a lock holder read the string's own buffer. A nil string is empty.
class rbData {
  public:
    explicit rbData(REALstring s);
    ~rbData();
    rbData(const rbData&) = delete;
    rbData& operator=(const rbData&) = delete;

    const uint8_t* Bytes() const { return bytes_; }
    int32_t Length() const { return length_; }

  private:
    const uint8_t* bytes_ = nullptr;
    int32_t length_ = 0;
    REALstringData copy_{};
    StringRef locked_;
};

// A host string as zero-terminated ASCII or UTF-8 text, each made on first request and kept.
// A nil string, or a failed conversion, gives the empty text (never a nil pointer). A string
// tagged as binary (0xFFFF) is read as Mac Roman text.
class rbText {
  public:
    explicit rbText(REALstring s);
    ~rbText();
    rbText(const rbText&) = delete;
    rbText& operator=(const rbText&) = delete;

    const char* GetASCII() { return Make(ascii_, kREALTextEncodingASCII).bytes; }
    const char* GetUTF8() { return Make(utf8_, kREALTextEncodingUTF8).bytes; }
    int32_t LengthASCII() { return Make(ascii_, kREALTextEncodingASCII).length; }
    int32_t LengthUTF8() { return Make(utf8_, kREALTextEncodingUTF8).length; }

  private:
    struct Text {
        const char* bytes = "";
        int32_t length = -1;  // below 0: not made yet
        REALstringData copy{};
        StringRef converted;
        ClearMemoryPtr<char> terminated;
    };
    Text& Make(Text& text, uint32_t encoding);
    void Convert(Text& text, uint32_t encoding);
    static void Release(Text& text);

    StringRef source_;           // the argument's lock, or the string built from bytes of unknown encoding
    REALstring view_ = nullptr;  // the string the text is read from
    Text ascii_, utf8_;
};

}  // namespace tqv

#endif  // TQV_BRIDGE_TEXT_H
