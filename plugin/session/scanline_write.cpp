#include "session/scanline_write.h"

#include <fcntl.h>

#include "session/scanline_read.h"
#include "session/tiff_data.h"

namespace tqv {
namespace {

// Whether the strip tables have an entry for `strip`, or will make one for it.
bool StripInTables(TIFF* tiff, uint32_t strip) {
    uint64_t* offsets = nullptr;
    // Before the first row the tables do not exist yet; the first row sizes them for the height.
    if (TIFFGetField(tiff, TIFFTAG_STRIPOFFSETS, &offsets) != 1 || offsets == nullptr)
        return strip <= TIFFNumberOfStrips(tiff);
    // One entry past the end is added when the row is written.
    int missing = 0;
    if (strip > 0) TIFFGetStrileOffsetWithErr(tiff, strip - 1, &missing);
    return missing == 0;
}

const char* Refusal(TIFF* tiff, uint32_t index, uint16_t sample) {
    uint32_t rowsPerStrip = 0;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
    if (rowsPerStrip == 0) return "RowsPerStrip is 0";
    if (!StripTablesHold(tiff, TIFFNumberOfStrips(tiff)))
        return "Height or RowsPerStrip changed after the image's strips were laid out";
    if (!StripPlanesHold(tiff, PlanesOf(tiff)))
        return "PlanarConfig or SamplesPerPixel changed after the image's strips were laid out";
    if (index == UINT32_MAX) return "Row is past the largest image height";
    const uint32_t strip = TIFFComputeStrip(tiff, index, sample);
    if (!StripInTables(tiff, strip)) return "Row lies more than one strip past the end of the image";
    const bool current = strip == TIFFCurrentStrip(tiff);
    const bool continues = current && index == TIFFCurrentRow(tiff) && RowsBeingWritten(tiff);
    const bool starts = !current && index % rowsPerStrip == 0;
    if (!continues && !starts) return "Rows of a strip are written in order, from its first row";
    return nullptr;
}

}  // namespace

bool StripTablesHold(TIFF* tiff, uint64_t strips) {
    uint64_t* offsets = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_STRIPOFFSETS, &offsets) != 1 || offsets == nullptr) return true;
    if (strips > UINT32_MAX) return false;
    int beyond = 1, last = 0;  // no table holds 2^32 entries
    if (strips < UINT32_MAX) TIFFGetStrileOffsetWithErr(tiff, static_cast<uint32_t>(strips), &beyond);
    if (strips > 0) TIFFGetStrileOffsetWithErr(tiff, static_cast<uint32_t>(strips - 1), &last);
    return beyond != 0 && last == 0;
}

bool StripPlanesHold(TIFF* tiff, uint32_t planes) {
    uint64_t* offsets = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_STRIPOFFSETS, &offsets) != 1 || offsets == nullptr) {
        NoteStripPlanes(tiff, planes);
        return true;
    }
    const uint32_t laidOut = StripPlanes(tiff);
    return laidOut == 0 || laidOut == planes;
}

void BeginRows(TIFF* tiff) {
    // libtiff's JPEG encoder keeps the tables of a directory read from the file and writes strips
    // that refer to them while it quantises with tables of its own: the new rows decoded with the
    // old image's tables, in other colours. Tables of eight zero bytes make it build them anew.
    if (!RowsBeingWritten(tiff) && DirectoryRead(tiff) && TIFFGetMode(tiff) != O_RDONLY) {
        uint16_t compression = COMPRESSION_NONE;
        TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &compression);
        uint32_t count = 0;
        void* tables = nullptr;
        if (compression == COMPRESSION_JPEG && TIFFGetField(tiff, TIFFTAG_JPEGTABLES, &count, &tables) == 1 &&
            count > 0) {
            static const uint8_t kRenew[8] = {};
            TIFFSetField(tiff, TIFFTAG_JPEGTABLES, uint32_t{sizeof kRenew}, kRenew);
        }
    }
    NoteRowsWritten(tiff);
}

bool ScanlineWritable(TIFF* tiff, uint32_t index, uint16_t sample) {
    // libtiff refuses scanlines of tiles, and every row of a file opened for reading, itself.
    if (TIFFIsTiled(tiff) || TIFFGetMode(tiff) == O_RDONLY) return true;
    const char* refusal = Refusal(tiff, index, sample);
    if (refusal == nullptr) return true;
    TIFFErrorExtR(tiff, "TIFFWriteScanline", "%u: %s", index, refusal);
    return false;
}

int WriteScanline(TIFF* tiff, void* row, uint32_t index, uint16_t sample) {
    sample = CodecSample(tiff, sample);
    if (!ScanlineWritable(tiff, index, sample)) return -1;
    BeginRows(tiff);
    return TIFFWriteScanline(tiff, row, index, sample);
}

}  // namespace tqv
