// Host strings and their encodings, through the string services.
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

TEST_F(Strings, MacRomanToUtf8AndBack) {
    // Mac Roman is not Latin-1: 0xE9 is È, and é is 0x8E.
    EXPECT_EQ(converted("\xE9", kREALTextEncodingMacRoman, kREALTextEncodingUTF8), "\xC3\x88");
    EXPECT_EQ(converted("\x8E", kREALTextEncodingMacRoman, kREALTextEncodingUTF8), "\xC3\xA9");  // é
    EXPECT_EQ(converted("\xC3\xA9", kREALTextEncodingUTF8, kREALTextEncodingMacRoman), "\x8E");
}

TEST_F(Strings, Utf16AndUtf32InMachineOrder) {
    std::u16string u16 = u"\u00E9A";
    std::u32string u32 = U"\u00E9A";
    EXPECT_EQ(converted("\xC3\xA9"
                        "A",
                        kREALTextEncodingUTF8, kREALTextEncodingUTF16),
              std::string(reinterpret_cast<const char*>(u16.data()), 4));
    EXPECT_EQ(converted("\xC3\xA9"
                        "A",
                        kREALTextEncodingUTF8, kREALTextEncodingUTF32),
              std::string(reinterpret_cast<const char*>(u32.data()), 8));
    EXPECT_EQ(converted(std::string(reinterpret_cast<const char*>(u32.data()), 8), kREALTextEncodingUTF32,
                        kREALTextEncodingUTF8),
              "\xC3\xA9"
              "A");
}

TEST_F(Strings, AsciiReplacesWhatItCannotHold) {
    EXPECT_EQ(converted("caf\xC3\xA9!", kREALTextEncodingUTF8, kREALTextEncodingASCII), "caf?!");
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

TEST_F(Strings, NilConvertsToAnEmptyStringOfThatEncoding) {
    REALstring e = convert(nullptr, kREALTextEncodingASCII);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->length, 0);
    EXPECT_EQ(getEncoding(e), kREALTextEncodingASCII);
    unlock(e);
    EXPECT_EQ(converted("a", kREALTextEncodingUTF8, 0x12345u), "<nil>");  // unknown encoding
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
