// Host strings: bytes plus a 32-bit encoding, and conversions between the encodings a plugin uses.
#ifndef TQVHOST_STRINGS_H
#define TQVHOST_STRINGS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tqv/plugin_abi.h"
#include "tqvhost/handles.h"

namespace tqvhost {

class StringHandle : public Handle {
  public:
    StringHandle(std::string_view bytes, uint32_t encoding);
    void* address() override { return &head_; }
    std::string_view bytes() const;
    uint32_t encoding() const { return head_.encoding; }
    void setEncoding(uint32_t e) { head_.encoding = e; }
    const char* cString() const;

  protected:
    void destroy() override;

  private:
    REALstringStruct head_{};
    // One-byte length prefix, the bytes, a zero byte: what head_.buffer shows the plugin.
    std::vector<uint8_t> storage_;
};

// A new string handle without locks.
StringHandle* newString(std::string_view bytes, uint32_t encoding);
StringHandle* asString(const void* address, const char* service);

// Re-encodes `bytes` from one host encoding to another. Binary (0xFFFF) on either side copies the
// bytes unchanged. Characters the target cannot hold become '?'. nullopt for unknown encodings.
std::optional<std::string> convertEncoding(std::string_view bytes, uint32_t from, uint32_t to);

}  // namespace tqvhost

#endif  // TQVHOST_STRINGS_H
