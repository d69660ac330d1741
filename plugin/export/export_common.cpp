#include "export/export_common.h"

#include <fcntl.h>

#include <cstring>

#include "bridge/memory.h"
#include "picture/picture_editor.h"
#include "session/messages.h"
#include "session/scanline_write.h"
#include "session/tiff_data.h"
#include "tags/color_map.h"

namespace tqv {
namespace {

// libtiff writes at most three outputs for any tag, none wider than 8 bytes; these tags have one
// of at most 4. Four aligned slots cover whatever it writes.
struct TagScratch {
    alignas(16) unsigned char slot[4][16] = {};
};

bool Read(TIFF* tiff, ttag_t tag, TagScratch& scratch) {
    return TIFFGetField(tiff, tag, scratch.slot[0], scratch.slot[1], scratch.slot[2], scratch.slot[3]) == 1;
}

bool Set(TIFF* tiff, ttag_t tag, const TagValue& value) {
    if (value.real) return TIFFSetField(tiff, tag, value.number) == 1;
    return TIFFSetField(tiff, tag, value.integer) == 1;
}

bool ApplyStep(TIFF* tiff, const TagStep& step) {
    if (step.rule == TagRule::Always) return Set(tiff, step.tag, step.value);
    TagScratch scratch;
    bool ok = true;
    if (!Read(tiff, step.tag, scratch)) ok = Set(tiff, step.tag, step.value);
    if (step.rule == TagRule::IfUnsetOrZero) {
        uint32_t inEffect = 0;
        if (Read(tiff, step.tag, scratch)) std::memcpy(&inEffect, scratch.slot[0], sizeof inEffect);
        if (inEffect == 0) ok = Set(tiff, step.tag, step.value) && ok;
    } else if (step.rule == TagRule::AtLeastOne) {
        // The value read before any default was set: 0 when the tag was unset.
        float resolution = 0.0f;
        std::memcpy(&resolution, scratch.slot[0], sizeof resolution);
        if (resolution < 1.0f) ok = Set(tiff, step.tag, step.value) && ok;
    }
    return ok;
}

}  // namespace

bool StillWritable(const TiffData* record, TIFF* tiff, int64_t bufferBytes) {
    return record->tiff == tiff && ScanlineBytes64(tiff) <= bufferBytes;
}

bool ApplyTagSteps(TIFF* tiff, std::span<const TagStep> steps) {
    bool ok = true;
    for (const TagStep& step : steps) ok = ApplyStep(tiff, step) && ok;
    return ok;
}

uint16_t TagOr(TIFF* tiff, ttag_t tag, uint16_t fallback) {
    TagScratch scratch;
    if (!Read(tiff, tag, scratch)) return fallback;
    uint16_t value;
    std::memcpy(&value, scratch.slot[0], sizeof value);
    return value;
}

int64_t ScanlineBytes64(TIFF* tiff) {
    const uint64_t size = TIFFScanlineSize64(tiff);
    return size > static_cast<uint64_t>(INT32_MAX) ? 0 : static_cast<int64_t>(size);
}

TIFF* BeginExport(REALobject object, PictureReader& reader, KeptLayout kept) {
    TiffData* record = TiffDataOf(object);
    if (record == nullptr) return nullptr;
    current = object;
    if (record->tiff == nullptr || record->Pict == nullptr) return nullptr;
    if (!reader.GetPictureReader(record->Pict)) return nullptr;
    YieldToHost(object, record);
    current = object;
    TIFF* tiff = record->tiff;
    if (tiff == nullptr) return nullptr;
    auto rows = static_cast<uint32_t>(reader.height);
    if (kept.height) TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &rows);
    uint16_t depth = kept.unsetDepth;
    TIFFGetField(tiff, TIFFTAG_BITSPERSAMPLE, &depth);
    return ReadyForRows(tiff, rows, depth) ? tiff : nullptr;
}

bool ReadyForRows(TIFF* tiff, uint32_t height, uint16_t depth) {
    static const char module[] = "TIFFWriteScanline";
    if (TIFFGetMode(tiff) == O_RDONLY) {
        TIFFErrorExtR(tiff, module, "File not open for writing");
        return false;
    }
    if (TIFFIsTiled(tiff)) {
        TIFFErrorExtR(tiff, module, "Can not write scanlines to a tiled image");
        return false;
    }
    // The rows per strip the export keeps, or the 1 it sets; the planes are contiguous.
    uint32_t rowsPerStrip = 1;
    TIFFGetField(tiff, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
    const uint64_t strips = rowsPerStrip == 0 || rowsPerStrip == UINT32_MAX
                                ? 1
                                : (uint64_t{height} + rowsPerStrip - 1) / rowsPerStrip;
    if (!StripTablesHold(tiff, strips)) {
        TIFFErrorExtR(tiff, module,
                      "%u rows in strips of %u rows do not fit the strips of this image; write them into a "
                      "new directory, or keep its number of strips",
                      height, rowsPerStrip);
        return false;
    }
    if (!StripPlanesHold(tiff, 1)) {
        TIFFErrorExtR(tiff, module,
                      "Rows of contiguous samples do not fit the strips of this image, laid out in separate "
                      "planes; write them into a new directory");
        return false;
    }
    return DepthFitsColorMap(tiff, depth);
}

ReadDirectoryUndo::ReadDirectoryUndo(TIFF* tiff)
    : tiff_(DirectoryRead(tiff) && !RowsBeingWritten(tiff) ? tiff : nullptr),
      index_(tiff_ != nullptr ? TIFFCurrentDirectory(tiff) : 0) {}

bool ReadDirectoryUndo::Finish(bool written) {
    if (written || tiff_ == nullptr) return written;
    // libtiff began the strip before its codec refused the row, and reading a directory leaves
    // the strip's ending pending for the codec read with it, which began nothing (LZW ends it from
    // a state never set up). The codec that refused the row ends it now; one without an encoder
    // writes nothing.
    TIFFFlushData(tiff_);
    // The directory in memory was never written: the file still holds it as it was read.
    NoteHandleChange(tiff_);
    if (TIFFSetDirectory(tiff_, index_) == 1) NoteDirectoryChanged(tiff_, true);
    return false;
}

bool ClearOtherSampleTags(TIFF* tiff, bool noExtraSamples) {
    bool ok = true;
    uint16_t format = SAMPLEFORMAT_UINT;
    if (TIFFGetField(tiff, TIFFTAG_SAMPLEFORMAT, &format) == 1 &&
        (format == SAMPLEFORMAT_IEEEFP || format == SAMPLEFORMAT_COMPLEXINT ||
         format == SAMPLEFORMAT_COMPLEXIEEEFP))
        ok = TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT) == 1;
    uint16_t extra = 0;
    const uint16_t* kinds = nullptr;
    if (noExtraSamples && TIFFGetField(tiff, TIFFTAG_EXTRASAMPLES, &extra, &kinds) == 1 && extra > 0)
        ok = TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 0, static_cast<uint16_t*>(nullptr)) == 1 && ok;
    return ok;
}

bool WriteRows(const ExportPass& pass, PictureReader& reader) {
    // Row 0 must be one libtiff can take next; the rows after it follow in order.
    if (!ScanlineWritable(pass.tiff, 0, 0)) return false;
    BeginRows(pass.tiff);
    for (int32_t y = 0; y < reader.height; ++y) {
        pass.convert(pass.buffer, reader.rowPointer, reader.width);
        if (!StillWritable(pass.record, pass.tiff, pass.bufferBytes)) return false;
        if (TIFFWriteScanline(pass.tiff, pass.buffer, static_cast<uint32_t>(y), 0) != 1) return false;
        pass.undo.RowTaken();
        reader.AddPixelRow();
        if (pass.clearAfterRow) ClearMemory(pass.buffer, reader.width);
        if (!YieldDuringRows(pass.self, pass.record, pass.tiff) && y + 1 < reader.height) return false;
    }
    return true;
}

}  // namespace tqv
