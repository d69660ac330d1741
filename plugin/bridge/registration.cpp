// The registered vocabulary, as data, and its registration.
//
// The tables hold every row in its registration order; the host keeps pointers into them, and
// the console flags are adjusted in place before registration.
#include "bridge/registration.h"

#include <tiffio.h>

#include <cstddef>

#include "bridge/entry_guard.h"
#include "bridge/services.h"
#include "export/bilevel.h"
#include "export/gray.h"
#include "export/rgb.h"
#include "import/bilevel.h"
#include "import/full_colour.h"
#include "import/lut.h"
#include "import/mirror_mask.h"
#include "import/rgba_memory.h"
#include "session/messages.h"
#include "session/open_close.h"
#include "session/picture_properties.h"
#include "session/streams.h"
#include "session/tiff_data.h"
#include "tags/color_map.h"
#include "tags/custom_tags.h"
#include "tags/directories.h"
#include "tags/generic_fields.h"
#include "tags/scanlines.h"
#include "tags/tag_properties.h"

namespace tqv {

// What host code run by an Error or Warning handler may still do (see entry_guard.h).
template <>
inline constexpr bool kRunsDuringMessages<&TiffConstructor> = true;
template <>
inline constexpr bool kRunsDuringMessages<&TiffDestructor> = true;
template <>
inline constexpr bool kRunsDuringMessages<&CloseTiff> = true;
namespace {

constexpr intptr_t kYieldTicksOffset = offsetof(TiffData, yield) + offsetof(YieldData, YieldTicks);

REALproperty tiffProperties[] = {
    {nullptr, "JPEGQuality", "Integer", 6, EntryAccessor<&GetJPEGQuality>(), EntryAccessor<&SetJPEGQuality>(),
     0},                                                                                   // read-write
    {nullptr, "BytesPerRow", "Integer", 6, EntryAccessor<&GetBytesPerRow>(), nullptr, 0},  // read-only
    {nullptr, "FillOrder", "Integer", 6, EntryAccessor<&GetFillOrder>(), EntryAccessor<&SetFillOrder>(),
     0},  // read-write
    {nullptr, "Width", "Integer", 6, EntryAccessor<&GetWidth>(), EntryAccessor<&SetWidth>(),
     0},  // read-write
    {nullptr, "Height", "Integer", 6, EntryAccessor<&GetHeight>(), EntryAccessor<&SetHeight>(),
     0},  // read-write
    {nullptr, "RowsPerStrip", "Integer", 6, EntryAccessor<&GetRowsPerStrip>(),
     EntryAccessor<&SetRowsPerStrip>(), 0},                                                   // read-write
    {nullptr, "Version", "Integer", 6, EntryAccessor<&GetVersion>(), nullptr, 0},             // read-only
    {nullptr, "VersionString", "String", 6, EntryAccessor<&GetVersionString>(), nullptr, 0},  // read-only
    {nullptr, "BitsPerSample", "Integer", 6, EntryAccessor<&GetBitsPerSample>(),
     EntryAccessor<&SetBitsPerSample>(), 0},  // read-write
    {nullptr, "SamplesPerPixel", "Integer", 6, EntryAccessor<&GetSamplesPerPixel>(),
     EntryAccessor<&SetSamplesPerPixel>(), 0},  // read-write
    {nullptr, "Orientation", "Integer", 6, EntryAccessor<&GetOrientation>(), EntryAccessor<&SetOrientation>(),
     0},  // read-write
    {nullptr, "HorizontalResolution", "Single", 6, EntryAccessor<&GetHorizontalResolution>(),
     EntryAccessor<&SetHorizontalResolution>(), 0},  // read-write
    {nullptr, "VerticalResolution", "Single", 6, EntryAccessor<&GetVerticalResolution>(),
     EntryAccessor<&SetVerticalResolution>(), 0},  // read-write
    {nullptr, "ResolutionUnit", "Integer", 6, EntryAccessor<&GetResolutionUnit>(),
     EntryAccessor<&SetResolutionUnit>(), 0},  // read-write
    {nullptr, "Compression", "Integer", 6, EntryAccessor<&GetCompression>(), EntryAccessor<&SetCompression>(),
     0},  // read-write
    {nullptr, "Photometric", "Integer", 6, EntryAccessor<&GetPhotometric>(), EntryAccessor<&SetPhotometric>(),
     0},  // read-write
    {nullptr, "PlanarConfig", "Integer", 6, EntryAccessor<&GetPlanarConfig>(),
     EntryAccessor<&SetPlanarConfig>(), 0},  // read-write
    {nullptr, "HorizontalPosition", "Single", 6, EntryAccessor<&GetHorizontalPosition>(),
     EntryAccessor<&SetHorizontalPosition>(), 0},  // read-write
    {nullptr, "VerticalPosition", "Single", 6, EntryAccessor<&GetVerticalPosition>(),
     EntryAccessor<&SetVerticalPosition>(), 0},  // read-write
    {nullptr, "Copyright", "String", 6, EntryAccessor<&tGetCopyright>(), EntryAccessor<&tSetCopyright>(),
     0},  // read-write
    {nullptr, "DateTime", "String", 6, EntryAccessor<&tGetDateTime>(), EntryAccessor<&tSetDateTime>(),
     0},  // read-write
    {nullptr, "DocumentName", "String", 6, EntryAccessor<&tGetDocumentName>(),
     EntryAccessor<&tSetDocumentName>(), 0},  // read-write
    {nullptr, "HostComputer", "String", 6, EntryAccessor<&tGetHostComputer>(),
     EntryAccessor<&tSetHostComputer>(), 0},  // read-write
    {nullptr, "ImageDescription", "String", 6, EntryAccessor<&tGetImageDescription>(),
     EntryAccessor<&tSetImageDescription>(), 0},                                                // read-write
    {nullptr, "Make", "String", 6, EntryAccessor<&tGetMake>(), EntryAccessor<&tSetMake>(), 0},  // read-write
    {nullptr, "Model", "String", 6, EntryAccessor<&tGetModel>(), EntryAccessor<&tSetModel>(),
     0},  // read-write
    {nullptr, "PageName", "String", 6, EntryAccessor<&tGetPageName>(), EntryAccessor<&tSetPageName>(),
     0},  // read-write
    {nullptr, "Software", "String", 6, EntryAccessor<&tGetSoftware>(), EntryAccessor<&tSetSoftware>(),
     0},  // read-write
    {nullptr, "ExtraSamples", "MemoryBlock", 6, EntryAccessor<&GetExtraSamples>(),
     EntryAccessor<&SetExtraSamples>(), 0},  // read-write
    {nullptr, "InputBuffer", "String", 6, EntryAccessor<&GetInputBuffer>(), nullptr, 0},
    {nullptr, "OutputBuffer", "String", 6, EntryAccessor<&GetOutputBuffer>(), nullptr, 0},
    {nullptr, "YieldTicks", "Integer", 6, REALstandardGetter, REALstandardSetter, kYieldTicksOffset},
    {nullptr, "Pict", "Picture", 0x40002, EntryAccessor<&GetPict>(), EntryAccessor<&SetPict>(), 0},
    {nullptr, "Mask", "Picture", 0x40002, EntryAccessor<&GetMask>(), EntryAccessor<&SetMask>(), 0},
};

REALmethodDefinition tiffMethods[] = {
    {EntryMethod<&GetColorMap>(), nullptr,
     "GetColorMap(byref red as memoryblock, byref green as memoryblock, byref blue as memoryblock) as "
     "boolean",
     4},
    {EntryMethod<&SetColorMap>(), nullptr,
     "SetColorMap(red as memoryblock, green as memoryblock, blue as memoryblock) as boolean", 4},
    {EntryMethod<&AddCustomTag>(), nullptr,
     "AddCustomTag(Tag as integer, FieldReadCount as integer, FieldWriteCount as integer, FieldType as "
     "integer, FieldBit as integer, OkToChange as integer, PassCount as integer, FieldName as string) as "
     "boolean",
     4},
    {EntryMethod<&GetData>(), nullptr, "GetData(Tag as integer) as string", 4},
    {EntryMethod<&SetData>(), nullptr, "SetData(Tag as integer, data as string) as boolean", 4},
    {EntryMethod<&GetColorProfile>(), nullptr, "GetColorProfile as string", 4},
    {EntryMethod<&SetColorProfile>(), nullptr, "SetColorProfile(ProfileData as String) as boolean", 4},
    {EntryMethod<&GetXMP>(), nullptr, "GetXMP as string", 4},
    {EntryMethod<&SetXMP>(), nullptr, "SetXMP(ProfileData as String) as boolean", 4},
    {EntryMethod<&GetField>(), nullptr, "GetField(Tag as integer, mem as memoryblock) as boolean", 4},
    {EntryMethod<&GetFieldCount>(), nullptr,
     "GetFieldCount(Tag as integer, byref count as integer, mem as memoryblock) as boolean", 4},
    {EntryMethod<&GetFieldMemory>(), nullptr,
     "GetFieldMemory(Tag as integer, byref ItemCount as integer) as memoryblock", 4},
    {EntryMethod<&SetFieldMemory>(), nullptr,
     "SetFieldMemory(Tag as integer, ItemCount as integer, data as memoryblock) as boolean", 4},
    {EntryMethod<&SetFieldString>(), nullptr, "SetFieldString(Tag as integer, value as string) as boolean",
     4},
    {EntryMethod<&GetFieldString>(), nullptr,
     "GetFieldString(Tag as integer, byref value as string) as boolean", 4},
    {EntryMethod<&GetFieldDefaultedString>(), nullptr,
     "GetFieldDefaultedString(Tag as integer, byref value as String) as boolean", 4},
    {EntryMethod<&SetFieldInteger>(), nullptr, "SetFieldInteger(Tag as integer, value as integer) as boolean",
     4},
    {EntryMethod<&GetFieldInteger>(), nullptr,
     "GetFieldInteger(Tag as integer, byref value as integer) as boolean", 4},
    {EntryMethod<&GetFieldDefaultedInteger>(), nullptr,
     "GetFieldDefaultedInteger(Tag as integer, byref value as integer) as boolean", 4},
    {EntryMethod<&SetFieldShort>(), nullptr, "SetFieldShort(Tag as integer, value as integer) as boolean", 4},
    {EntryMethod<&GetFieldShort>(), nullptr,
     "GetFieldShort(Tag as integer, byref value as integer) as boolean", 4},
    {EntryMethod<&GetFieldDefaultedShort>(), nullptr,
     "GetFieldDefaultedShort(Tag as integer, byref value as integer) as boolean", 4},
    {EntryMethod<&SetFieldDouble>(), nullptr, "SetFieldDouble(Tag as integer, value as double) as boolean",
     4},
    {EntryMethod<&GetFieldDouble>(), nullptr,
     "GetFieldDouble(Tag as integer, byref value as double) as boolean", 4},
    {EntryMethod<&GetFieldDefaultedDouble>(), nullptr,
     "GetFieldDefaultedDouble(Tag as integer, byref value as double) as boolean", 4},
    {EntryMethod<&SetFieldSingle>(), nullptr, "SetFieldSingle(Tag as integer, value as Single) as boolean",
     4},
    {EntryMethod<&GetFieldSingle>(), nullptr,
     "GetFieldSingle(Tag as integer, byref value as Single) as boolean", 4},
    {EntryMethod<&GetFieldDefaultedSingle>(), nullptr,
     "GetFieldDefaultedSingle(Tag as integer, byref value as Single) as boolean", 4},
    {EntryMethod<&SetFieldByte>(), nullptr, "SetFieldByte(Tag as integer, value as integer) as boolean", 4},
    {EntryMethod<&GetFieldByte>(), nullptr, "GetFieldByte(Tag as integer, byref value as integer) as boolean",
     4},
    {EntryMethod<&GetFieldDefaultedByte>(), nullptr,
     "GetFieldDefaultedByte(Tag as integer, byref value as integer) as boolean", 4},
    {EntryMethod<&CombinePictureWithMask>(), nullptr, "CombinePictureWithMask as picture", 0x40000},
    {EntryMethod<&rbTIFFFlushData>(), nullptr, "FlushData as boolean", 4},
    {EntryMethod<&rbTIFFFlush>(), nullptr, "Flush as boolean", 4},
    {EntryMethod<&rbTIFFReadDirectory2>(), nullptr, "NextImage(HeaderOnly as boolean) as boolean", 4},
    {EntryMethod<&rbTIFFReadDirectory1>(), nullptr, "NextImage as boolean", 4},
    {EntryMethod<&rbTIFFRewriteDirectory>(), nullptr, "SaveImage as boolean", 4},
    {EntryMethod<&rbTIFFRewriteDirectory>(), nullptr, "RewriteDirectory as boolean", 4},
    {EntryMethod<&rbTIFFWriteDirectory>(), nullptr, "AddImage as boolean", 4},
    {EntryMethod<&rbTIFFLastDirectory>(), nullptr, "IsLastImage as boolean", 4},
    {EntryMethod<&rbTIFFNumberOfDirectories>(), nullptr, "ImageCount as integer", 4},
    {EntryMethod<&rbTIFFSetDirectory2>(), nullptr, "SetImageIndex(index as integer) as boolean", 4},
    {EntryMethod<&rbTIFFSetDirectory3>(), nullptr,
     "SetImageIndex(index as integer, HeaderOnly as boolean) as boolean", 4},
    {EntryMethod<&rbTIFFCurrentDirectory>(), nullptr, "ImageIndex as integer", 4},
    {EntryMethod<&WriteRGB>(), nullptr, "WriteRGB as boolean", 4},
    {EntryMethod<&WriteGray>(), nullptr, "WriteGray as boolean", 4},
    {EntryMethod<&WriteBW>(), nullptr, "WriteBW as boolean", 4},
    {EntryMethod<&PreviewReadRGB>(), nullptr, "ReadPreviewRGB(ReduceFactor as integer) as boolean", 4},
    {EntryMethod<&ReadRGB>(), nullptr, "ReadRGB as boolean", 4},
    {EntryMethod<&ReadRGBMemory>(), nullptr, "ReadRGB(byref ErrorMessage as string) as memoryblock", 4},
    {EntryMethod<&ReadBW>(), nullptr, "ReadBW as boolean", 4},
    {EntryMethod<&ReadBWrect>(), nullptr,
     "ReadBW(left as integer, top as integer, width as integer, height as integer) as boolean", 4},
    {EntryMethod<&ReadBWpreview>(), nullptr, "ReadPreviewBW as boolean", 4},
    {EntryMethod<&ReadBWpreviewrect>(), nullptr,
     "ReadPreviewBW(left as integer, top as integer, width as integer, height as integer) as boolean", 4},
    {EntryMethod<&Read16>(), nullptr, "ReadWithLUT(ColorLookupTable() as color) as boolean", 4},
    {EntryMethod<&Read16rect>(), nullptr,
     "ReadWithLUT(ColorLookupTable() as color, left as integer, top as integer, width as integer, height as "
     "integer) as boolean",
     4},
    {EntryMethod<&CloseTiff>(), nullptr, "Close", 4},
    {EntryMethod<&rbTIFFReadScanline>(), nullptr,
     "Scanline(mem as memoryblock, index as integer, sample as integer = 0) as boolean", 4},
    {EntryMethod<&rbTIFFReadScanline2>(), EntryMethod<&rbTIFFWriteScanline>(),
     "Scanline(index as integer, sample as integer = 0) as memoryblock", 4},
    {EntryMethod<&rbTIFFReadScanlines>(), EntryMethod<&rbTIFFWriteScanlines>(),
     "Scanlines(index as integer, count as integer, sample as integer = 0) as memoryblock", 4},
    {EntryMethod<&CreateTiff2>(), nullptr, "Create(file as folderitem, endian as integer) as boolean", 4},
    {EntryMethod<&CreateTiff1>(), nullptr, "Create(file as folderitem) as boolean", 4},
    {EntryMethod<&OpenTiff1>(), nullptr, "Open(file as folderitem) as boolean", 4},
    {EntryMethod<&OpenStringTiff1>(), nullptr, "OpenString(data as string) as boolean", 4},
    {EntryMethod<&CreateStringTiff1>(), nullptr, "CreateString(Size as integer) as boolean", 4},
    {EntryMethod<&OpenTiff2>(), nullptr, "Open(file as folderitem, Mode as string) as boolean", 4},
    {EntryMethod<&OpenStringTiff2>(), nullptr, "OpenString(data as string, Mode as string) as boolean", 4},
    {EntryMethod<&CreateStringTiff2>(), nullptr, "CreateString(Size as integer, Mode as string) as boolean",
     4},
    {EntryMethod<&MirrorVertical>(), nullptr, "MirrorVertical(output as TiffPictureTQV) as boolean", 4},
    {EntryMethod<&ReadRGBMemoryBegin>(), nullptr,
     "ReadRGBMemoryBegin(byref ErrorMessage as string) as boolean", 4},
    {EntryMethod<&ReadRGBMemoryStep>(), nullptr,
     "ReadRGBMemoryStep(x as integer, y as integer, width as integer, height as integer) as memoryblock", 4},
    {EntryMethod<&ReadRGBMemoryEnd>(), nullptr, "ReadRGBMemoryEnd", 4},
};

REALconstant constants[] = {
    {"kCompressionNone = 1", nullptr, 0},
    {"kCompressionCCITTRLE = 2", nullptr, 0},
    {"kCompressionCCITTFAX3 = 3", nullptr, 0},
    {"kCompressionCCITT_T4 = 3", nullptr, 0},
    {"kCompressionCCITTFAX4 = 4", nullptr, 0},
    {"kCompressionCCITT_T6 = 4", nullptr, 0},
    {"kCompressionLZW = 5", nullptr, 0},
    {"kCompressionOJPEG = 6", nullptr, 0},
    {"kCompressionJPEG = 7", nullptr, 0},
    {"kCompressionNeXT = 32766", nullptr, 0},
    {"kCompressionCCITTRLEW = 32771", nullptr, 0},
    {"kCompressionPackBits = 32773", nullptr, 0},
    {"kCompressionThunderScan = 32809", nullptr, 0},
    {"kCompressionIT8CTPAD = 32895", nullptr, 0},
    {"kCompressionIT8LW = 32896", nullptr, 0},
    {"kCompressionIT8MP = 32897", nullptr, 0},
    {"kCompressionIT8BL = 32898", nullptr, 0},
    {"kCompressionPixarFilm = 32908", nullptr, 0},
    {"kCompressionPixarLog = 32909", nullptr, 0},
    {"kCompressionDeflate = 32946", nullptr, 0},
    {"kCompressionAdobeDeflate = 8", nullptr, 0},
    {"kCompressionDCS = 32947", nullptr, 0},
    {"kCompressionJBIG = 34661", nullptr, 0},
    {"kCompressionSGILOG = 34676", nullptr, 0},
    {"kCompressionSGILOG24 = 34677", nullptr, 0},
    {"kCompressionJP2000 = 34712", nullptr, 0},
    {"kCompressionLZMA = 34925", nullptr, 0},
    {"kPlanarConfigContig = 1", nullptr, 0},
    {"kPlanarConfigSeparate = 2", nullptr, 0},
    {"kPhotometricMinIsWhite = 0", nullptr, 0},
    {"kPhotometricMinIsBlack = 1", nullptr, 0},
    {"kPhotometricRGB = 2", nullptr, 0},
    {"kPhotometricPalette = 3", nullptr, 0},
    {"kPhotometricMask = 4", nullptr, 0},
    {"kPhotometricSeparated = 5", nullptr, 0},
    {"kPhotometricYCBCR = 6", nullptr, 0},
    {"kPhotometricCIELab = 8", nullptr, 0},
    {"kPhotometricICCLab = 9", nullptr, 0},
    {"kPhotometricITULab = 10", nullptr, 0},
    {"kPhotometricLogL = 32844", nullptr, 0},
    {"kPhotometricLogLUV = 32845", nullptr, 0},
    {"kFillOrderMSB2LSB = 1", nullptr, 0},
    {"kFillOrderLSB2MSB = 2", nullptr, 0},
    {"kResUnitNone = 1", nullptr, 0},
    {"kResUnitInch = 2", nullptr, 0},
    {"kResUnitCentimeter = 3", nullptr, 0},
    {"kOrientationTopLeft = 1", nullptr, 0},
    {"kOrientationTopRight = 2", nullptr, 0},
    {"kOrientationBottomRight = 3", nullptr, 0},
    {"kOrientationBottomLeft = 4", nullptr, 0},
    {"kOrientationLeftTop = 5", nullptr, 0},
    {"kOrientationRightTop = 6", nullptr, 0},
    {"kOrientationRightBottom = 7", nullptr, 0},
    {"kOrientationLeftBottom = 8", nullptr, 0},
};

REALmethodDefinition folderitemMethods[] = {
    {EntryMethod<&OpenTifffile2>(), nullptr, "OpenAsTiffTQV(HeaderOnly as boolean=false) as TiffPictureTQV",
     4},
};

REALmethodDefinition globalMethod[] = {
    {EntryMethod<&TIFFStringToTiffPictureTQV>(), nullptr,
     "TIFFStringToTiffPictureTQV(data as string) as TiffPictureTQV", 4},
    {EntryMethod<&TIFFStringToPictureTQV>(), nullptr, "TIFFStringToPictureTQV(data as string) as picture",
     0x40000},
};

REALevent TiffEvents[] = {
    {"Error(libModule as string, message as string)", 0},
    {"Warning(libModule as string, message as string)", 0},
    {"Progress(line as integer, total as integer)", 0},
};

template <typename Row, size_t N>
constexpr uint32_t CountOf(Row (&)[N]) {
    return static_cast<uint32_t>(N);
}

constexpr double kConsoleFlagsFrom = 2010.029;
constexpr uint32_t kMarkers = REALconsoleOnlyFrom2010 | REALwebOnlyFrom2010 | REALflagReserved100000;

void MyREALRegisterClass(REALclassDefinition* definition) {
    definition->dataSize = (definition->dataSize + 15u) & ~15u;
    REALRegisterClass(definition);
}

void MyREALRegisterClassExtension(REALclassDefinition* definition) {
    REALRegisterClassExtension(definition);
}

void MyREALRegisterMethodArray(REALmethodDefinition* methods, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) REALRegisterMethod(&methods[i]);
}

void MyPluginEnde() {}

}  // namespace

REALclassDefinition tiffClass = {
    REAL_PLUGIN_INTERFACE_VERSION,
    "TiffPictureTQV",
    nullptr,
    sizeof(TiffData),
    0,
    EntryMethodAs<REALConstructorProc, &TiffConstructor>(),
    EntryMethodAs<REALDestructorProc, &TiffDestructor>(),
    tiffProperties,
    CountOf(tiffProperties),
    tiffMethods,
    CountOf(tiffMethods),
    TiffEvents,
    CountOf(TiffEvents),
    constants,
    CountOf(constants),
    REALconsoleSafe,
    nullptr,
    0,
    nullptr,
    0,
    0,
};

REALclassDefinition folderitemClass = {
    REAL_PLUGIN_INTERFACE_VERSION,
    "Folderitem",
    nullptr,
    0,
    0,
    nullptr,
    nullptr,
    nullptr,
    0,
    folderitemMethods,
    CountOf(folderitemMethods),
    nullptr,
    0,
    nullptr,
    0,
    REALconsoleSafe,
    nullptr,
    0,
    nullptr,
    0,
    0,
};

intptr_t EventWord(TiffEvent event) {
    return TiffEvents[static_cast<size_t>(event)].forSystemUse;
}

uint32_t FixConsoleFlags(uint32_t flags) {
    uint32_t added = 0;
    if (rbversion_rbversion >= kConsoleFlagsFrom) {
        if (flags & REALconsoleOnlyFrom2010) added |= 4;
        if (flags & REALwebOnlyFrom2010) added |= 8;
    }
    return (flags & ~kMarkers) | added;
}

void FixConsoleFlags(REALmethodDefinition* methods, uint32_t count) {
    for (uint32_t i = 0; methods != nullptr && i < count; ++i)
        methods[i].flags = FixConsoleFlags(methods[i].flags);
}

static void FixConsoleFlags(REALproperty* properties, uint32_t count) {
    for (uint32_t i = 0; properties != nullptr && i < count; ++i) {
        properties[i].flags = FixConsoleFlags(properties[i].flags);
    }
}

void FixConsoleFlags(REALclassDefinition* definition) {
    definition->flags = FixConsoleFlags(definition->flags);
    FixConsoleFlags(definition->methods, definition->methodCount);
    FixConsoleFlags(definition->properties, definition->propertyCount);
    FixConsoleFlags(definition->sharedMethods, definition->sharedMethodCount);
    FixConsoleFlags(definition->sharedProperties, definition->sharedPropertyCount);
}

void PluginEntry() {
    TIFFSetErrorHandler(MyTIFFErrorHandler);
    TIFFSetWarningHandler(MyTIFFWarningHandler);
    InstallFieldGuards();
    FixConsoleFlags(&tiffClass);
    FixConsoleFlags(&folderitemClass);
    FixConsoleFlags(globalMethod, CountOf(globalMethod));
    MyREALRegisterClass(&tiffClass);
    MyREALRegisterClassExtension(&folderitemClass);
    MyREALRegisterMethodArray(globalMethod, CountOf(globalMethod));
    MyPluginEnde();
}

}  // namespace tqv
