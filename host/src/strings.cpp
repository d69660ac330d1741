#include "tqvhost/strings.h"

#include <iconv.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "services.h"

namespace tqvhost {

StringHandle::StringHandle(std::string_view bytes, uint32_t encoding) : Handle(Kind::String) {
    storage_.resize(bytes.size() + 2);
    storage_[0] = static_cast<uint8_t>(bytes.size() > 255 ? 255 : bytes.size());
    if (!bytes.empty()) std::memcpy(storage_.data() + 1, bytes.data(), bytes.size());
    head_.length = static_cast<int32_t>(bytes.size());
    head_.buffer = storage_.data();
    head_.encoding = encoding;
}

std::string_view StringHandle::bytes() const {
    if (!head_.buffer) return {};
    return {reinterpret_cast<const char*>(head_.buffer) + 1, static_cast<size_t>(head_.length)};
}

const char* StringHandle::cString() const {
    return head_.buffer ? reinterpret_cast<const char*>(head_.buffer) + 1 : "";
}

void StringHandle::destroy() {
    head_.buffer = nullptr;
    head_.length = 0;
    std::vector<uint8_t>().swap(storage_);
}

StringHandle* newString(std::string_view bytes, uint32_t encoding) {
    return makeHandle<StringHandle>(bytes, encoding);
}

StringHandle* asString(const void* address, const char* service) {
    return static_cast<StringHandle*>(Accounts::check(address, service, isString));
}

namespace {

#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr const char* kUtf16 = "UTF-16LE";
constexpr const char* kUtf32 = "UTF-32LE";
#else
constexpr const char* kUtf16 = "UTF-16BE";
constexpr const char* kUtf32 = "UTF-32BE";
#endif

struct EncodingName {
    uint32_t encoding;
    const char* iconvName;
};
const EncodingName kEncodings[] = {
    {kREALTextEncodingMacRoman, "MACINTOSH"},
    {kREALTextEncodingASCII, "ASCII"},
    {kREALTextEncodingUTF8, "UTF-8"},
    {kREALTextEncodingUTF16, kUtf16},
    {kREALTextEncodingUTF32, kUtf32},
    {kREALTextEncodingISOLatin1, "ISO-8859-1"},
    {kREALTextEncodingWindowsLatin1, "WINDOWS-1252"},
};

const char* iconvName(uint32_t encoding) {
    for (const auto& e : kEncodings)
        if (e.encoding == encoding) return e.iconvName;
    return nullptr;
}

// Converts as much as iconv can; on an invalid or unconvertible sequence emits `replacement`
// and skips `skip` input bytes.
std::optional<std::string> runIconv(std::string_view in, const char* from, const char* to,
                                    std::string_view replacement, size_t skip) {
    iconv_t cd = iconv_open(to, from);
    if (cd == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
    std::string out;
    char* src = const_cast<char*>(in.data());
    size_t left = in.size();
    char buf[4096];
    while (left > 0) {
        char* dst = buf;
        size_t room = sizeof buf;
        size_t r = iconv(cd, &src, &left, &dst, &room);
        out.append(buf, static_cast<size_t>(dst - buf));
        if (r != static_cast<size_t>(-1) || errno == E2BIG) continue;
        out.append(replacement);
        size_t step = skip < left ? skip : left;
        src += step;
        left -= step;
    }
    iconv_close(cd);
    return out;
}

std::string asciiFromCodePoints(std::string_view utf32) {
    std::string out;
    for (size_t i = 0; i + 4 <= utf32.size(); i += 4) {
        uint32_t cp;
        std::memcpy(&cp, utf32.data() + i, 4);
        out.push_back(cp < 0x80 ? static_cast<char>(cp) : '?');
    }
    return out;
}

}  // namespace

std::optional<std::string> convertEncoding(std::string_view bytes, uint32_t from, uint32_t to) {
    if (from == kREALTextEncodingUnknown || to == kREALTextEncodingUnknown || from == to)
        return std::string(bytes);
    const char* fromName = iconvName(from);
    const char* toName = iconvName(to);
    if (!fromName || !toName) return std::nullopt;
    // Decode to code points first: invalid input becomes U+FFFD, one byte at a time.
    static const char kReplacement[4] = {'\xFD', '\xFF', 0, 0};
    auto points = runIconv(bytes, fromName, kUtf32, std::string_view(kReplacement, 4), 1);
    if (!points) return std::nullopt;
    if (to == kREALTextEncodingASCII) return asciiFromCodePoints(*points);
    std::string question = *runIconv("?", "ASCII", toName, "", 1);
    return runIconv(*points, kUtf32, toName, question, 4);
}

namespace {

REALstring REALBuildString(const void* bytes, int32_t length) {
    return guarded<REALstring>("REALBuildString", nullptr, [&]() -> REALstring {
        if (length < 0 || (!bytes && length > 0) || injectFailure("string")) return nullptr;
        auto* s = newString(std::string_view(static_cast<const char*>(bytes), static_cast<size_t>(length)),
                            kREALTextEncodingUnknown);
        Accounts::give(s);
        return static_cast<REALstring>(s->address());
    });
}

void REALLockString(REALstring s) {
    if (auto* h = asString(s, "REALLockString")) Accounts::pluginLock(h, "REALLockString");
}

void REALUnlockString(REALstring s) {
    guardedVoid("REALUnlockString", [&] {
        if (auto* h = asString(s, "REALUnlockString")) Accounts::pluginUnlock(h, "REALUnlockString");
    });
}

void REALSetStringEncoding(REALstring s, uint32_t encoding) {
    if (auto* h = asString(s, "REALSetStringEncoding")) h->setEncoding(encoding);
}

uint32_t REALGetStringEncoding(REALstring s) {
    auto* h = asString(s, "REALGetStringEncoding");
    return h ? h->encoding() : kREALTextEncodingUnknown;
}

REALstring REALConvertString(REALstring s, uint32_t encoding) {
    return guarded<REALstring>("REALConvertString", nullptr, [&]() -> REALstring {
        std::optional<std::string> bytes = std::string();
        if (s) {
            auto* h = asString(s, "REALConvertString");
            if (!h) return nullptr;
            bytes = convertEncoding(h->bytes(), h->encoding(), encoding);
        }
        if (!bytes || injectFailure("string")) return nullptr;
        auto* out = newString(*bytes, encoding);
        Accounts::give(out);
        return static_cast<REALstring>(out->address());
    });
}

bool PluginGetStringData(REALstring s, uint32_t encoding, REALstringData* out) {
    return guarded("PluginGetStringData", false, [&] {
        auto* h = asString(s, "PluginGetStringData");
        if (!h || !out || injectFailure("string")) return false;
        uint32_t resultEncoding = encoding == kREALTextEncodingUnknown ? h->encoding() : encoding;
        // Bytes that need no conversion are copied once, straight from the string: the plugin
        // asks for whole in-memory TIFFs this way.
        std::optional<std::string> converted;
        std::string_view bytes = h->bytes();
        if (resultEncoding != h->encoding()) {
            converted = convertEncoding(bytes, h->encoding(), resultEncoding);
            if (!converted) return false;
            bytes = *converted;
        }
        auto* copy = static_cast<char*>(std::malloc(bytes.size() + 4));
        if (!copy) return false;
        std::memcpy(copy, bytes.data(), bytes.size());
        std::memset(copy + bytes.size(), 0, 4);
        *out = REALstringData{copy, static_cast<int32_t>(bytes.size()), resultEncoding};
        Accounts::giveCopy(copy, "stringdata");
        return true;
    });
}

void PluginDisposeStringData(REALstringData* data) {
    // A record the plugin cleared (or never filled) gives nothing back.
    if (!data || !data->data) return;
    if (!Accounts::takeBackCopy(data->data, "PluginDisposeStringData")) return;
    std::free(const_cast<void*>(data->data));
    data->data = nullptr;
    data->length = 0;
}

const char* StringGetCString(REALstring s) {
    auto* h = asString(s, "StringGetCString");
    return h ? h->cString() : nullptr;
}

}  // namespace

// The host global method "LenB( s as string ) as integer".
int32_t hostLenB(REALstring s) {
    auto* h = asString(s, "LenB");
    return h ? static_cast<int32_t>(h->bytes().size()) : 0;
}

void addStringServices(ServiceTable& t) {
    t["REALBuildString"] = service(&REALBuildString);
    t["REALLockString"] = service(&REALLockString);
    t["REALUnlockString"] = service(&REALUnlockString);
    t["REALSetStringEncoding"] = service(&REALSetStringEncoding);
    t["REALGetStringEncoding"] = service(&REALGetStringEncoding);
    t["REALConvertString"] = service(&REALConvertString);
    t["PluginGetStringData"] = service(&PluginGetStringData);
    t["PluginDisposeStringData"] = service(&PluginDisposeStringData);
    t["StringGetCString"] = service(&StringGetCString);
}

}  // namespace tqvhost
