// The declaration parser: the forms whose parts matter to calls (byref, arrays, defaults, results)
// and the text it refuses. That it takes every declaration the TIFF plugin registers is checked on
// the plugin itself (pipe_vocabulary: any row the host cannot register fails it).
#include "tqvhost/declaration.h"

#include <gtest/gtest.h>

namespace tqvhost {
namespace {

TEST(Declaration, PropertyTypes) {
    for (const char* t : {"Integer", "String", "Single", "MemoryBlock", "Picture"})
        EXPECT_TRUE(parseType(t)) << t;
    EXPECT_EQ(parseType("memoryblock")->kind, TypeKind::MemoryBlock);
    EXPECT_EQ(parseType("FOLDERITEM")->kind, TypeKind::FolderItem);
    EXPECT_EQ(parseType("TiffPictureTQV")->className, "TiffPictureTQV");
    EXPECT_FALSE(parseType(""));
}

TEST(Declaration, ByrefArraysDefaultsAndResults) {
    auto d = parseDeclaration(
        "GetFieldCount(Tag as integer, byref count as integer, mem as memoryblock) as boolean", nullptr);
    ASSERT_TRUE(d);
    EXPECT_EQ(d->name, "GetFieldCount");
    ASSERT_EQ(d->params.size(), 3u);
    EXPECT_TRUE(d->params[1].byref);
    EXPECT_EQ(d->params[2].type.kind, TypeKind::MemoryBlock);
    EXPECT_EQ(d->result.kind, TypeKind::Boolean);

    auto lut = parseDeclaration("ReadWithLUT(ColorLookupTable() as color) as boolean", nullptr);
    ASSERT_TRUE(lut);
    EXPECT_TRUE(lut->params[0].array);
    EXPECT_EQ(lut->params[0].type.kind, TypeKind::Color);

    auto draw = parseDeclaration(
        "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, sx as Integer "
        "= 0, "
        "sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)",
        nullptr);
    ASSERT_TRUE(draw);
    EXPECT_EQ(draw->requiredParams(), 5u);
    EXPECT_EQ(*draw->params[7].defaultText, "-10000");
    EXPECT_EQ(draw->result.kind, TypeKind::None);

    auto open = parseDeclaration("OpenAsTiffTQV(HeaderOnly as boolean=false) as TiffPictureTQV", nullptr);
    ASSERT_TRUE(open);
    EXPECT_EQ(*open->params[0].defaultText, "false");
    EXPECT_EQ(open->result.kind, TypeKind::Object);

    auto close = parseDeclaration("Close", nullptr);
    ASSERT_TRUE(close);
    EXPECT_TRUE(close->params.empty());
    EXPECT_EQ(close->result.kind, TypeKind::None);
}

TEST(Declaration, RejectsMalformedText) {
    for (const char* bad : {"", "(a as integer)", "F(a integer)", "F(a as integer", "F as",
                            "F(a as integer =)", "F() as integer extra", "F(byref as integer)"})
        EXPECT_FALSE(parseDeclaration(bad, nullptr)) << bad;
}

// A default must be a value of its parameter's type, and only trailing parameters have one: the
// runtime refuses anything else with the declaration.
TEST(Declaration, DefaultsAreValuesOfTheirTypeOnTrailingParameters) {
    auto d = parseDeclaration(
        "F(a as integer = &hFF, b as color = &hFFFFFFFF, c as double = -2.5, s as string = \"x\", "
        "p as picture = nil, t as boolean = TRUE)",
        nullptr);
    ASSERT_TRUE(d);
    EXPECT_EQ(integerLiteral(*d->params[0].defaultText, TypeKind::Integer), 255);
    EXPECT_EQ(integerLiteral(*d->params[1].defaultText, TypeKind::Color), 0xFFFFFFFF);
    for (const char* bad :
         {"F(a as integer = x)", "F(a as boolean = 1)", "F(a as integer = 1.5)",
          "F(a as integer = 2147483648)", "F(a as color = -1)", "F(s as string = abc)", "F(p as picture = 3)",
          "F(a as double = 1x)", "F(a as integer = 7, b as integer)"})
        EXPECT_FALSE(parseDeclaration(bad, nullptr)) << bad;
}

TEST(Declaration, Constants) {
    auto k = parseConstant("kCompressionNone = 1", nullptr);
    ASSERT_TRUE(k);
    EXPECT_EQ(k->name, "kCompressionNone");
    EXPECT_EQ(k->valueText, "1");
    EXPECT_EQ(parseConstant("kNegative=-3", nullptr)->valueText, "-3");
    EXPECT_FALSE(parseConstant("kMissing", nullptr));
    EXPECT_FALSE(parseConstant("kEmpty =", nullptr));
}

}  // namespace
}  // namespace tqvhost
