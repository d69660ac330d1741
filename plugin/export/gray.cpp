#include "export/gray.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "bridge/memory.h"
#include "export/export_common.h"
#include "picture/picture_editor.h"
#include "session/messages.h"
#include "session/tiff_data.h"

namespace tqv {
namespace {

// The red byte of each pixel, as one byte or as a 16-bit word in the machine's order.
template <int Red, int Advance, bool Sixteen, bool Inverted>
void GreyRow(uint8_t* out, const uint8_t* in, int32_t count) {
    for (int32_t x = 0; x < count; ++x) {
        const uint8_t v =
            Inverted ? static_cast<uint8_t>(255 - in[x * Advance + Red]) : in[x * Advance + Red];
        if constexpr (Sixteen) {
            const uint16_t word = static_cast<uint16_t>(v * 257);
            std::memcpy(out + x * 2, &word, sizeof word);
        } else {
            out[x] = v;
        }
    }
}

template <int Red, int Advance>
struct GreyRows {
    static constexpr PixelRowConverter kForms[2][2] = {
        {GreyRow<Red, Advance, false, false>, GreyRow<Red, Advance, false, true>},
        {GreyRow<Red, Advance, true, false>, GreyRow<Red, Advance, true, true>},
    };
};

struct ConverterRow {
    int32_t pixelType;
    const PixelRowConverter (*forms)[2];  // [sixteen][inverted]
};

constexpr ConverterRow kConverters[] = {
    {kPixelTypeXRGB, GreyRows<1, 4>::kForms},
    {kPixelTypeRGB, GreyRows<0, 3>::kForms},
    {kPixelTypeBGRX, GreyRows<2, 4>::kForms},
};

PixelRowConverter ChooseConverter(int32_t pixelType, bool sixteen, bool inverted) {
    for (const ConverterRow& row : kConverters)
        if (row.pixelType == pixelType) return row.forms[sixteen][inverted];
    return nullptr;
}

// The depth written: the caller's 8 or 16 is kept, unset becomes 8, and any other value is set
// again unchanged (the samples are then 8-bit all the same).
bool ChooseDepth(TIFF* tiff, uint16_t& depth) {
    depth = 8;
    if (TIFFGetField(tiff, TIFFTAG_BITSPERSAMPLE, &depth) != 1)
        return TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8) == 1;
    if (depth == 8 || depth == 16) return true;
    return TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, uint32_t{depth}) == 1;
}

bool Tag(TIFF* tiff, uint32_t width, uint32_t height, uint16_t& depth) {
    const TagStep strips[] = {{TIFFTAG_ROWSPERSTRIP, TagRule::IfUnset, TagInt(1)}};
    bool ok = ClearOtherSampleTags(tiff, true);
    ok = ApplyTagSteps(tiff, strips) && ok;
    ok = ChooseDepth(tiff, depth) && ok;
    const TagStep steps[] = {
        {TIFFTAG_IMAGELENGTH, TagRule::Always, TagInt(height)},
        {TIFFTAG_IMAGEWIDTH, TagRule::Always, TagInt(width)},
        {TIFFTAG_PLANARCONFIG, TagRule::Always, TagInt(PLANARCONFIG_CONTIG)},
        {TIFFTAG_BITSPERSAMPLE, TagRule::Always, TagInt(depth)},
        {TIFFTAG_SAMPLESPERPIXEL, TagRule::Always, TagInt(1)},
        {TIFFTAG_PHOTOMETRIC, TagRule::IfUnset, TagInt(PHOTOMETRIC_MINISBLACK)},
        {TIFFTAG_FILLORDER, TagRule::IfUnset, TagInt(FILLORDER_MSB2LSB)},
        {TIFFTAG_XRESOLUTION, TagRule::AtLeastOne, TagReal(72.0)},
        {TIFFTAG_YRESOLUTION, TagRule::AtLeastOne, TagReal(72.0)},
        {TIFFTAG_ORIENTATION, TagRule::IfUnset, TagInt(ORIENTATION_TOPLEFT)},
        {TIFFTAG_RESOLUTIONUNIT, TagRule::IfUnset, TagInt(RESUNIT_INCH)},
        {TIFFTAG_COMPRESSION, TagRule::IfUnset, TagInt(COMPRESSION_NONE)},
    };
    return ApplyTagSteps(tiff, steps) && ok;
}

// One pass over the picture's rows. A layout this system does not know, or a row buffer that
// cannot be had, writes nothing and answers true, as it always has.
bool WritePass(REALobject object, TiffData* record, TIFF* tiff, PictureReader& reader, bool sixteen,
               bool inverted, ReadDirectoryUndo& undo) {
    const PixelRowConverter convert = ChooseConverter(reader.pixelType, sixteen, inverted);
    if (convert == nullptr) return true;
    // libtiff takes a whole scanline of the image's tags from the buffer: a caller's deeper
    // BitsPerSample is padded with zeros rather than read past the row.
    const int64_t rowBytes = int64_t{reader.width} * (sixteen ? 2 : 1) + 10;
    const int64_t bytes = std::max(rowBytes, ScanlineBytes64(tiff));
    const ClearMemoryPtr<uint8_t> buffer(static_cast<uint8_t*>(AllocateClearMemory(bytes)));
    if (buffer == nullptr) return true;
    return WriteRows({object, record, tiff, buffer.get(), bytes, convert, false, undo}, reader);
}

}  // namespace

bool WriteGray(REALobject object) {
    PictureReader reader;
    TIFF* tiff = BeginExport(object, reader, KeptLayout{false, 8});
    if (tiff == nullptr) return false;
    TiffData* record = TiffDataOf(object);
    ReadDirectoryUndo undo(tiff);
    uint16_t depth = 8;
    if (!Tag(tiff, static_cast<uint32_t>(reader.width), static_cast<uint32_t>(reader.height), depth))
        return undo.Finish(false);
    uint16_t photometric = PHOTOMETRIC_MINISBLACK;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
    return undo.Finish(
        WritePass(object, record, tiff, reader, depth == 16, photometric != PHOTOMETRIC_MINISBLACK, undo));
}

}  // namespace tqv
