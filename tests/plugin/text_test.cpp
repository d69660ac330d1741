// rbText and rbData on every host generation: same results, different host services.
#include "bridge/text.h"

#include <string>

#include "bridge/services.h"
#include "plugin_test_host.h"

namespace {

using testhost::AsString;
using testhost::HostString;

class Text : public testhost::HostTest {
  protected:
    static bool CopiesText() { return testhost::HostVersion() >= 2012.0; }
    static bool CopiesBytes() { return testhost::HostVersion() >= 2013.0; }
};

TEST_F(Text, NilStringIsEmptyText) {
    tqv::rbText text(nullptr);
    EXPECT_STREQ(text.GetASCII(), "");
    EXPECT_STREQ(text.GetUTF8(), "");
    EXPECT_EQ(text.LengthUTF8(), 0);
    EXPECT_EQ(text.LengthASCII(), 0);
}

TEST_F(Text, BinaryStringIsReadAsMacRoman) {
    // 0xE9 is E with grave accent in Mac Roman.
    const auto s = HostString("A\xE9", kREALTextEncodingUnknown);
    tqv::rbText text(AsString(s));
    EXPECT_STREQ(text.GetUTF8(), "A\xC3\x88");
    EXPECT_EQ(text.LengthUTF8(), 3);
}

TEST_F(Text, Utf8TextConvertsToAsciiAndBack) {
    const auto s = HostString("caf\xC3\xA9", kREALTextEncodingUTF8);
    tqv::rbText text(AsString(s));
    EXPECT_STREQ(text.GetUTF8(), "caf\xC3\xA9");
    EXPECT_EQ(text.LengthUTF8(), 5);
    EXPECT_EQ(std::string(text.GetASCII()).substr(0, 3), "caf");
    // Made once and kept.
    const char* first = text.GetUTF8();
    EXPECT_EQ(text.GetUTF8(), first);
}

TEST_F(Text, TextPathFollowsTheHostVersion) {
    const auto s = HostString("r", kREALTextEncodingUTF8);
    {
        tqv::rbText text(AsString(s));
        EXPECT_STREQ(text.GetASCII(), "r");
    }
    if (CopiesText() && !testhost::Withheld("PluginGetStringData")) {
        EXPECT_EQ(testhost::gConvertStringCalls, 0);
        EXPECT_EQ(testhost::gStringDataCalls, 1);
    } else if (!CopiesText()) {
        EXPECT_EQ(testhost::gConvertStringCalls, 1);
        EXPECT_EQ(testhost::gStringDataCalls, 0);
    }
}

TEST_F(Text, DataKeepsBytesUnconverted) {
    const std::string bytes("II*\0\xFF\x80", 6);
    const auto s = HostString(bytes, kREALTextEncodingUnknown);
    {
        tqv::rbData data(AsString(s));
        ASSERT_EQ(data.Length(), 6);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(data.Bytes()), 6), bytes);
    }
    EXPECT_EQ(testhost::gStringDataCalls,
              CopiesBytes() && !testhost::Withheld("PluginGetStringData") ? 1 : 0);
}

TEST_F(Text, DataOfUtf8StringIsItsOwnBytes) {
    const auto s = HostString("\xC3\xA9", kREALTextEncodingUTF8);
    tqv::rbData data(AsString(s));
    ASSERT_EQ(data.Length(), 2);
    EXPECT_EQ(data.Bytes()[0], 0xC3);
}

TEST_F(Text, DataOfNilIsEmpty) {
    tqv::rbData data(nullptr);
    EXPECT_EQ(data.Bytes(), nullptr);
    EXPECT_EQ(data.Length(), 0);
}

// Without "PluginGetStringData" the fallback copies through "StringGetCString" and "LenB".
TEST_F(Text, StringDataFallbackConvertsAndTerminates) {
    if (!testhost::Withheld("PluginGetStringData")) GTEST_SKIP() << "host offers PluginGetStringData";
    const auto s = HostString("caf\xC3\xA9", kREALTextEncodingUTF8);
    REALstringData copy{};
    ASSERT_TRUE(tqv::REALGetStringData(AsString(s), kREALTextEncodingUnknown, &copy));
    EXPECT_EQ(std::string(static_cast<const char*>(copy.data), static_cast<size_t>(copy.length)),
              "caf\xC3\xA9");
    EXPECT_EQ(static_cast<const char*>(copy.data)[copy.length], '\0');
    tqv::REALDisposeStringData(&copy);
    ASSERT_TRUE(tqv::REALGetStringData(AsString(s), kREALTextEncodingUTF16, &copy));
    EXPECT_EQ(copy.length, 8);
    EXPECT_EQ(copy.encoding, kREALTextEncodingUTF16);
    tqv::REALDisposeStringData(&copy);
    EXPECT_EQ(copy.data, nullptr);
    EXPECT_FALSE(tqv::REALGetStringData(nullptr, kREALTextEncodingUTF8, &copy));
}

}  // namespace
