// BitsPerSample against a colour map: libtiff sizes the map by the depth in force when the map was
// set or read and reads it by the current depth, so a change in between would make GetColorMap,
// the palette conversion of ReadRGB and libtiff's directory writer read past the map. Every way of
// changing the depth is refused while a map is set; the same depth is still accepted.
#include <cstring>

#include "hard_test_support.h"
#include "tqvhost/values.h"

namespace hard {
namespace {

using tqvhost::TypeKind;
using tqvhost::Value;

constexpr int kPhotometricPalette = 3;
constexpr int kBitsPerSampleTag = 258;

int32_t BlockSize(const Value& v) {
    return v.handle ? v.handle.as<tqvhost::MemoryBlockHandle>()->size() : -1;
}

// The three channel blocks GetColorMap gives, or sizes of -1.
std::vector<int32_t> ColourMapSizes(Session& s) {
    std::vector<tqvhost::Arg> args = {Ref(Nil(TypeKind::MemoryBlock)), Ref(Nil(TypeKind::MemoryBlock)),
                                      Ref(Nil(TypeKind::MemoryBlock))};
    if (!s.CallWithRefs("GetColorMap", args).b) return {-1, -1, -1};
    return {BlockSize(args[0].value), BlockSize(args[1].value), BlockSize(args[2].value)};
}

// Every way a program can ask for another depth; each must be refused with an Error.
void ExpectDepthChangesRefused(Session& s, int keptBits, int otherBits) {
    int64_t errors = ErrorEvents();
    s.Set("BitsPerSample", Int(otherBits));
    EXPECT_EQ(s.Get("BitsPerSample").i, keptBits) << "the property";
    EXPECT_GT(ErrorEvents(), errors);
    EXPECT_FALSE(s.Call("SetFieldShort", {Int(kBitsPerSampleTag), Int(otherBits)}).b);
    EXPECT_FALSE(s.Call("SetFieldInteger", {Int(kBitsPerSampleTag), Int(otherBits)}).b);
    EXPECT_FALSE(s.Call("SetFieldByte", {Int(kBitsPerSampleTag), Int(otherBits)}).b);
    EXPECT_EQ(s.Get("BitsPerSample").i, keptBits);
    errors = ErrorEvents();
    s.Set("BitsPerSample", Int(keptBits));
    EXPECT_EQ(ErrorEvents(), errors) << "the same depth is accepted";
}

Value Channel(int bits, int salt) {
    Value block = Block(2 << bits);
    auto* mb = block.handle.as<tqvhost::MemoryBlockHandle>();
    for (int i = 0; i < (1 << bits); ++i) {
        const auto v = static_cast<uint16_t>(i * 257 + salt);
        std::memcpy(mb->data() + 2 * i, &v, 2);
    }
    return block;
}

class ColourMap : public HardTest {};

TEST_F(ColourMap, DepthOfAReadMapCannotChange) {
    Session s;
    ASSERT_TRUE(
        s.Call("OpenString", {hard::Bytes(ReadFile(TestData("libtiff/images/palette-1c-4b.tiff")))}).b);
    ExpectDepthChangesRefused(s, 4, 8);
    EXPECT_EQ(ColourMapSizes(s), (std::vector<int32_t>{32, 32, 32}));
    EXPECT_TRUE(s.Call("ReadRGB").b);
    // Another directory (or the same one read again) brings its own map and depth.
    EXPECT_TRUE(s.Call("SetImageIndex", {Int(0), Bool(true)}).b);
    EXPECT_EQ(s.Get("BitsPerSample").i, 4);
}

TEST_F(ColourMap, DepthOfASetMapCannotChangeAndTheFileReadsBack) {
    Session s;
    ASSERT_TRUE(s.Call("CreateString", {Int(0)}).b);
    s.Set("Width", Int(4));
    s.Set("Height", Int(2));
    s.Set("BitsPerSample", Int(8));
    s.Set("Photometric", Int(kPhotometricPalette));
    ASSERT_TRUE(s.Call("SetColorMap", {Channel(8, 1), Channel(8, 2), Channel(8, 3)}).b);
    ExpectDepthChangesRefused(s, 8, 16);
    // A 16-bit depth wanted by WriteGray keeps the map's depth instead of outgrowing it.
    ExpectDepthChangesRefused(s, 8, 1);
    EXPECT_EQ(ColourMapSizes(s), (std::vector<int32_t>{512, 512, 512}));
    for (int row = 0; row < 2; ++row) s.Assign("Scanline", {Int(row), Int(0)}, Block(4));
    s.Call("Close");
    const Value written = s.Get("OutputBuffer");
    ASSERT_TRUE(written.handle);
    Session back;
    ASSERT_TRUE(back.Call("OpenString", {written}).b);
    EXPECT_EQ(back.Get("BitsPerSample").i, 8);
    EXPECT_EQ(ColourMapSizes(back), (std::vector<int32_t>{512, 512, 512}));
}

TEST_F(ColourMap, WithoutAMapTheDepthIsFree) {
    Session s;
    ASSERT_TRUE(s.Call("CreateString", {Int(0)}).b);
    s.Set("BitsPerSample", Int(8));
    s.Set("BitsPerSample", Int(16));
    EXPECT_EQ(s.Get("BitsPerSample").i, 16);
    EXPECT_TRUE(s.Call("SetFieldShort", {Int(kBitsPerSampleTag), Int(4)}).b);
    EXPECT_EQ(s.Get("BitsPerSample").i, 4);
    s.Call("Close");
}

}  // namespace
}  // namespace hard
