// The declaration parser over the whole registered vocabulary of the TIFF plugin, plus the forms
// whose parts matter to calls (byref, arrays, defaults, results).
#include "tqvhost/declaration.h"

#include <gtest/gtest.h>

namespace tqvhost {
namespace {

const char* const kVocabulary[] = {
    "GetColorMap(byref red as memoryblock, byref green as memoryblock, byref blue as memoryblock) as boolean",
    "SetColorMap(red as memoryblock, green as memoryblock, blue as memoryblock) as boolean",
    "AddCustomTag(Tag as integer, FieldReadCount as integer, FieldWriteCount as integer, FieldType as "
    "integer, "
    "FieldBit as integer, OkToChange as integer, PassCount as integer, FieldName as string) as boolean",
    "GetData(Tag as integer) as string",
    "SetData(Tag as integer, data as string) as boolean",
    "GetColorProfile as string",
    "SetColorProfile(ProfileData as String) as boolean",
    "GetXMP as string",
    "SetXMP(ProfileData as String) as boolean",
    "GetField(Tag as integer, mem as memoryblock) as boolean",
    "GetFieldCount(Tag as integer, byref count as integer, mem as memoryblock) as boolean",
    "GetFieldMemory(Tag as integer, byref ItemCount as integer) as memoryblock",
    "SetFieldMemory(Tag as integer, ItemCount as integer, data as memoryblock) as boolean",
    "SetFieldString(Tag as integer, value as string) as boolean",
    "GetFieldString(Tag as integer, byref value as string) as boolean",
    "GetFieldDefaultedString(Tag as integer, byref value as String) as boolean",
    "SetFieldInteger(Tag as integer, value as integer) as boolean",
    "GetFieldInteger(Tag as integer, byref value as integer) as boolean",
    "GetFieldDefaultedInteger(Tag as integer, byref value as integer) as boolean",
    "SetFieldShort(Tag as integer, value as integer) as boolean",
    "GetFieldShort(Tag as integer, byref value as integer) as boolean",
    "GetFieldDefaultedShort(Tag as integer, byref value as integer) as boolean",
    "SetFieldDouble(Tag as integer, value as double) as boolean",
    "GetFieldDouble(Tag as integer, byref value as double) as boolean",
    "GetFieldDefaultedDouble(Tag as integer, byref value as double) as boolean",
    "SetFieldSingle(Tag as integer, value as Single) as boolean",
    "GetFieldSingle(Tag as integer, byref value as Single) as boolean",
    "GetFieldDefaultedSingle(Tag as integer, byref value as Single) as boolean",
    "SetFieldByte(Tag as integer, value as integer) as boolean",
    "GetFieldByte(Tag as integer, byref value as integer) as boolean",
    "GetFieldDefaultedByte(Tag as integer, byref value as integer) as boolean",
    "CombinePictureWithMask as picture",
    "FlushData as boolean",
    "Flush as boolean",
    "NextImage(HeaderOnly as boolean) as boolean",
    "NextImage as boolean",
    "SaveImage as boolean",
    "RewriteDirectory as boolean",
    "AddImage as boolean",
    "IsLastImage as boolean",
    "ImageCount as integer",
    "SetImageIndex(index as integer) as boolean",
    "SetImageIndex(index as integer, HeaderOnly as boolean) as boolean",
    "ImageIndex as integer",
    "WriteRGB as boolean",
    "WriteGray as boolean",
    "WriteBW as boolean",
    "ReadPreviewRGB(ReduceFactor as integer) as boolean",
    "ReadRGB as boolean",
    "ReadRGB(byref ErrorMessage as string) as memoryblock",
    "ReadBW as boolean",
    "ReadBW(left as integer, top as integer, width as integer, height as integer) as boolean",
    "ReadPreviewBW as boolean",
    "ReadPreviewBW(left as integer, top as integer, width as integer, height as integer) as boolean",
    "ReadWithLUT(ColorLookupTable() as color) as boolean",
    "ReadWithLUT(ColorLookupTable() as color, left as integer, top as integer, width as integer, height as "
    "integer) as boolean",
    "Close",
    "Scanline(mem as memoryblock, index as integer, sample as integer = 0) as boolean",
    "Scanline(index as integer, sample as integer = 0) as memoryblock",
    "Scanlines(index as integer, count as integer, sample as integer = 0) as memoryblock",
    "Create(file as folderitem, endian as integer) as boolean",
    "Create(file as folderitem) as boolean",
    "Open(file as folderitem) as boolean",
    "OpenString(data as string) as boolean",
    "CreateString(Size as integer) as boolean",
    "Open(file as folderitem, Mode as string) as boolean",
    "OpenString(data as string, Mode as string) as boolean",
    "CreateString(Size as integer, Mode as string) as boolean",
    "MirrorVertical(output as TiffPictureTQV) as boolean",
    "ReadRGBMemoryBegin(byref ErrorMessage as string) as boolean",
    "ReadRGBMemoryStep(x as integer, y as integer, width as integer, height as integer) as memoryblock",
    "ReadRGBMemoryEnd",
    // FolderItem extension, globals, events
    "OpenAsTiffTQV(HeaderOnly as boolean=false) as TiffPictureTQV",
    "TIFFStringToTiffPictureTQV(data as string) as TiffPictureTQV",
    "TIFFStringToPictureTQV(data as string) as picture",
    "Error(libModule as string, message as string)",
    "Warning(libModule as string, message as string)",
    "Progress(line as integer, total as integer)",
};

TEST(Declaration, ParsesTheWholeVocabulary) {
    EXPECT_EQ(std::size(kVocabulary), 72u + 1 + 2 + 3);
    for (const char* text : kVocabulary) {
        std::string error;
        EXPECT_TRUE(parseDeclaration(text, &error).has_value()) << text << ": " << error;
    }
}

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
