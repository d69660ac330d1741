// New host strings and memory blocks, exceptions, and missing services.
#include "bridge/values.h"

#include <cstring>
#include <string>
#include <vector>

#include "bridge/handles.h"
#include "bridge/services.h"
#include "bridge/text.h"
#include "plugin_test_host.h"
#include "tqvhost/host.h"

namespace {

using testhost::Bytes;
using testhost::Encoding;
using tqv::StringRef;

class Values : public testhost::HostTest {};

TEST_F(Values, MemoryBlockOfSizeZeroIsNilWithoutException) {
    const char byte = 'x';
    EXPECT_EQ(tqv::REALBuildMemoryblock(&byte, 0), nullptr);
    EXPECT_EQ(tqv::REALBuildMemoryblock(nullptr, 5), nullptr);
    EXPECT_FALSE(tqvhost::takeRaisedException().has_value());
}

TEST_F(Values, MemoryBlockTooLargeRaisesOutOfMemory) {
    const char byte = 'x';
    EXPECT_EQ(tqv::REALBuildMemoryblock(&byte, 3000000000LL), nullptr);
    const auto raised = tqvhost::takeRaisedException();
    ASSERT_TRUE(raised.has_value());
    EXPECT_EQ(raised->className, "OutOfMemoryException");
    EXPECT_EQ(raised->message, "Failed to allocate a memoryblock with 3000000000 bytes in size.");
}

TEST_F(Values, MemoryBlockCopiesTheBytes) {
    const unsigned char bytes[] = {1, 2, 0, 255};
    const auto block = tqv::MemoryBlockRef::Steal(tqv::REALBuildMemoryblock(bytes, 4));
    ASSERT_TRUE(block);
    EXPECT_EQ(tqv::REALMemoryBlockGetSize(block.get()), 4);
    EXPECT_EQ(std::memcmp(tqv::REALMemoryBlockGetPtr(block.get()), bytes, 4), 0);
}

TEST_F(Values, NewMemoryBlockOutsideTheRangeIsNilWithoutException) {
    EXPECT_EQ(tqv::REALNewMemoryBlock(-1), nullptr);
    EXPECT_EQ(tqv::REALNewMemoryBlock(2147483647LL), nullptr);
    EXPECT_FALSE(tqvhost::takeRaisedException().has_value());
    const auto empty = tqv::MemoryBlockRef::Steal(tqv::REALNewMemoryBlock(0));
    ASSERT_TRUE(empty);
    EXPECT_EQ(tqv::REALMemoryBlockGetSize(empty.get()), 0);
}

TEST_F(Values, Utf32KeepsTheLow16BitsOfEachUnit) {
    // 'A', U+00E9, U+1F600 (cut to U+F600).
    const std::vector<uint32_t> units = {0x41, 0xE9, 0x1F600};
    const auto s = StringRef::Steal(tqv::REALBuildUnicodeString(units.data(), 12, kREALTextEncodingUTF32));
    ASSERT_TRUE(s);
    EXPECT_EQ(Encoding(s.get()), kREALTextEncodingUTF8);
    EXPECT_EQ(Bytes(s.get()), "A\xC3\xA9\xEF\x98\x80");
}

TEST_F(Values, LongUtf32MatchesShortUtf32) {
    // Past 799 bytes the narrowing buffer is on the heap; the result must not differ.
    const std::vector<uint32_t> units(1000, 0xE9);
    const auto s = StringRef::Steal(tqv::REALBuildUnicodeString(units.data(), 4000, kREALTextEncodingUTF32));
    ASSERT_TRUE(s);
    std::string expected;
    for (int i = 0; i < 1000; ++i) expected += "\xC3\xA9";
    EXPECT_EQ(Bytes(s.get()), expected);
}

TEST_F(Values, Utf16IsConvertedToUtf8) {
    const uint16_t units[] = {0x48, 0xE9, 0xD83D, 0xDE00};
    const auto s = StringRef::Steal(tqv::REALBuildUnicodeString(units, 8, kREALTextEncodingUTF16));
    ASSERT_TRUE(s);
    EXPECT_EQ(Encoding(s.get()), kREALTextEncodingUTF8);
    EXPECT_EQ(Bytes(s.get()), "H\xC3\xA9\xF0\x9F\x98\x80");
}

TEST_F(Values, OtherEncodingsAreOnlyTagged) {
    const auto s = StringRef::Steal(tqv::REALBuildUnicodeString("A\xE9", 2, kREALTextEncodingUnknown));
    ASSERT_TRUE(s);
    EXPECT_EQ(Encoding(s.get()), kREALTextEncodingUnknown);
    EXPECT_EQ(Bytes(s.get()), "A\xE9");
}

TEST_F(Values, EmptyOrNilInputBuildsNoString) {
    EXPECT_EQ(tqv::REALBuildUnicodeString("abc", 0, kREALTextEncodingUTF8), nullptr);
    EXPECT_EQ(tqv::REALBuildUnicodeString(nullptr, 3, kREALTextEncodingUTF8), nullptr);
    EXPECT_EQ(tqv::REALBuildUnicodeString("abc", 2147483647LL, kREALTextEncodingUTF8), nullptr);
}

TEST_F(Values, ExceptionOfAnUnknownClassBecomesRuntimeException) {
    tqv::RaiseException("NoSuchExceptionClass", "folderitem is nil", kREALTextEncodingASCII);
    const auto raised = tqvhost::takeRaisedException();
    ASSERT_TRUE(raised.has_value());
    EXPECT_EQ(raised->className, "RuntimeException");
    EXPECT_EQ(raised->message, "folderitem is nil");
}

// With no service at all every helper answers its failure value and nothing is called.
TEST_F(Values, MissingServicesGiveFailureValues) {
    tqv::gResolver = &testhost::NothingLookup;
    tqv::ResetServiceCache();
    const char byte = 'x';
    EXPECT_EQ(tqv::REALBuildUnicodeString("abc", 3, kREALTextEncodingUTF8), nullptr);
    EXPECT_EQ(tqv::REALBuildUnicodeString("abcd", 4, kREALTextEncodingUTF32), nullptr);
    EXPECT_EQ(tqv::REALBuildMemoryblock(&byte, 1), nullptr);
    tqv::RaiseException("OutOfMemoryException", "x", kREALTextEncodingASCII);
    const auto host = testhost::HostString("text", kREALTextEncodingUTF8);
    tqv::rbText text(testhost::AsString(host));
    EXPECT_STREQ(text.GetUTF8(), "");
    tqv::rbData data(testhost::AsString(host));
    // Older hosts let the plugin read a string's bytes in place, without any service.
    EXPECT_EQ(data.Length(), testhost::HostVersion() >= 2013.0 ? 0 : 4);
    REALstringData copy{};
    EXPECT_FALSE(tqv::REALGetStringData(testhost::AsString(host), kREALTextEncodingUTF8, &copy));
    EXPECT_FALSE(tqvhost::takeRaisedException().has_value());
}

// A service the host learns late is found: a missing answer is not cached.
TEST_F(Values, MissingServiceIsLookedUpAgain) {
    tqv::gResolver = &testhost::NothingLookup;
    tqv::ResetServiceCache();
    EXPECT_EQ(tqv::ResolveService(tqv::ServiceId::REALLockObject), nullptr);
    tqv::gResolver = &testhost::Lookup;
    EXPECT_NE(tqv::ResolveService(tqv::ServiceId::REALLockObject), nullptr);
}

}  // namespace
