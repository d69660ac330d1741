// Host strings through the string services, where a C caller sees more than a host program: the
// public head, the private copy's terminator, binary bytes through every path. The conversions
// themselves are checked through the fixture plugin (tests/e2e/host_strings.lua).
#include "tqvhost/strings.h"

#include <cstring>
#include <string>

#include "host_test_support.h"

namespace tqvhost::test {
namespace {

class Strings : public HostTest {
  protected:
    REALBuildStringProc build = service<REALBuildStringProc>("REALBuildString");
    REALUnlockStringProc unlock = service<REALUnlockStringProc>("REALUnlockString");
    REALSetStringEncodingProc setEncoding = service<REALSetStringEncodingProc>("REALSetStringEncoding");
    REALGetStringEncodingProc getEncoding = service<REALGetStringEncodingProc>("REALGetStringEncoding");
    REALConvertStringProc convert = service<REALConvertStringProc>("REALConvertString");
    REALGetStringDataProc getData = service<REALGetStringDataProc>("PluginGetStringData");
    REALDisposeStringDataProc dispose = service<REALDisposeStringDataProc>("PluginDisposeStringData");

    REALstring text(const std::string& bytes, uint32_t encoding) {
        REALstring s = build(bytes.data(), static_cast<int32_t>(bytes.size()));
        setEncoding(s, encoding);
        return s;
    }
    std::string bytesOf(REALstring s) {
        return std::string(reinterpret_cast<char*>(s->buffer) + 1, s->length);
    }
    // Converts, returns the bytes, releases the result.
    std::string converted(const std::string& bytes, uint32_t from, uint32_t to) {
        REALstring s = text(bytes, from);
        REALstring c = convert(s, to);
        std::string out = c ? bytesOf(c) : "<nil>";
        if (c) {
            EXPECT_EQ(getEncoding(c), to);
            unlock(c);
        }
        unlock(s);
        return out;
    }
};

TEST_F(Strings, BuildCopiesBytesIntoThePublicHead) {
    const char bytes[] = {'a', 0, 'b'};
    REALstring s = build(bytes, 3);
    EXPECT_EQ(s->length, 3);
    EXPECT_EQ(s->buffer[0], 3);  // legacy length prefix
    EXPECT_EQ(std::memcmp(s->buffer + 1, bytes, 3), 0);
    EXPECT_EQ(s->buffer[4], 0);
    EXPECT_EQ(getEncoding(s), kREALTextEncodingUnknown);
    unlock(s);
}

TEST_F(Strings, BinaryIsNeverConverted) {
    std::string bytes = "\xFF\xFE\x00\x8E";
    EXPECT_EQ(converted(bytes, kREALTextEncodingUnknown, kREALTextEncodingUTF8), bytes);
    EXPECT_EQ(converted("\xC3\xA9", kREALTextEncodingUTF8, kREALTextEncodingUnknown), "\xC3\xA9");
    REALstring s = text(bytes, kREALTextEncodingUnknown);
    REALstringData data;
    ASSERT_TRUE(getData(s, kREALTextEncodingUTF16, &data));
    EXPECT_EQ(std::string(static_cast<const char*>(data.data), data.length), bytes);
    dispose(&data);
    unlock(s);
}

TEST_F(Strings, StringDataIsAPrivateCopyWithFourZeroBytes) {
    REALstring s = text("\xC3\xA9", kREALTextEncodingUTF8);
    REALstringData data;
    ASSERT_TRUE(getData(s, kREALTextEncodingMacRoman, &data));
    ASSERT_EQ(data.length, 1);
    EXPECT_EQ(data.encoding, kREALTextEncodingMacRoman);
    const auto* p = static_cast<const uint8_t*>(data.data);
    EXPECT_EQ(p[0], 0x8E);
    for (int i = 1; i <= 4; ++i) EXPECT_EQ(p[i], 0);
    dispose(&data);
    EXPECT_EQ(data.data, nullptr);
    EXPECT_FALSE(getData(nullptr, kREALTextEncodingUTF8, &data));
    unlock(s);
}

}  // namespace
}  // namespace tqvhost::test
