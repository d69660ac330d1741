#include "import/mirror_mask.h"

#include <tiffio.h>

#include <cstdint>

#include "bridge/memory.h"
#include "picture/composition.h"
#include "picture/picture_editor.h"
#include "session/messages.h"
#include "session/tiff_data.h"

namespace tqv {
namespace {

// Room past the scanline, as the exchange has always allocated.
constexpr int64_t kSlack = 10;

int64_t RowBytes(TIFF* tiff) {
    const uint64_t size = TIFFScanlineSize64(tiff);
    return size > static_cast<uint64_t>(INT32_MAX - kSlack) ? -1 : static_cast<int64_t>(size);
}

// How rows are written to one handle, chosen before the exchange. libtiff's scanline writer
// loses a row written right after a read on the same handle (the read takes over the buffer that
// still holds the pending row), so one-row strips inside the image are rewritten as whole strips,
// which libtiff places in the file at once. Other rows go through the scanline writer.
struct RowWriter {
    TIFF* tiff;
    bool wholeStrips;
    uint32_t length;

    static RowWriter For(TIFF* tiff) {
        uint32_t rowsPerStrip = 0, length = 0;
        TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
        TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &length);
        return {tiff, rowsPerStrip == 1 && !TIFFIsTiled(tiff), length};
    }
    // libtiff's scanline result: 1 written, 0 or -1 not.
    int Write(uint8_t* row, uint32_t index) const {
        if (!wholeStrips || index >= length) return TIFFWriteScanline(tiff, row, index, 0);
        return TIFFWriteEncodedStrip(tiff, TIFFComputeStrip(tiff, index, 0), row, TIFFScanlineSize(tiff)) < 0
                   ? -1
                   : 1;
    }
};

// The exchange for rows i = 0 .. length - 1 (an empty image exchanges nothing and succeeds).
// libtiff's -1 (a failed read, a write to a file not open for writing) is passed over: only 0
// ends it.
bool Exchange(TIFF* self, TIFF* output, uint32_t length, uint8_t* a, uint8_t* b) {
    const RowWriter selfWriter = RowWriter::For(self), outputWriter = RowWriter::For(output);
    uint32_t j = length - 1;
    for (uint32_t i = 0; i < length; ++i, --j) {
        if (TIFFReadScanline(self, a, i, 0) == 0) return false;
        if (TIFFReadScanline(output, b, j, 0) == 0) return false;
        if (selfWriter.Write(b, i) == 0) return false;
        if (outputWriter.Write(a, j) == 0) return false;
    }
    return true;
}

}  // namespace

bool MirrorVertical(REALobject self, REALobject output) {
    TiffData* record = TiffDataOf(self);
    TiffData* other = TiffDataOf(output);
    if (record == nullptr || other == nullptr) return false;
    current = self;
    if (record->tiff == nullptr) return false;
    uint32_t length = 0, width = 0;
    if (TIFFGetField(record->tiff, TIFFTAG_IMAGELENGTH, &length) != 1) return false;
    if (TIFFGetField(record->tiff, TIFFTAG_IMAGEWIDTH, &width) != 1) return false;
    // Both buffers are sized by this image's rows; libtiff reads and writes the output's rows
    // through them at the output's row length, so an output without a file or with longer rows
    // would make libtiff run past them.
    const int64_t bytes = RowBytes(record->tiff);
    if (bytes < 0 || other->tiff == nullptr || RowBytes(other->tiff) < 0 ||
        RowBytes(other->tiff) > bytes + kSlack)
        return false;
    const ClearMemoryPtr<uint8_t> a(static_cast<uint8_t*>(AllocateClearMemory(bytes + kSlack)));
    const ClearMemoryPtr<uint8_t> b(static_cast<uint8_t*>(AllocateClearMemory(bytes + kSlack)));
    if (a == nullptr || b == nullptr) return false;
    return Exchange(record->tiff, other->tiff, length, a.get(), b.get());
}

REALpicture CombinePictureWithMask(REALobject self) {
    TiffData* record = TiffDataOf(self);
    if (record == nullptr || record->Pict == nullptr) return nullptr;
    const int32_t width = GetPictureWidth(record->Pict);
    const int32_t height = GetPictureHeight(record->Pict);
    return CreatePictureWithMask(record->Pict, record->Mask, true, width, height);
}

}  // namespace tqv
