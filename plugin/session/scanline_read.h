// The one way the plugin reads a scanline.
//
// libtiff 4.5 starts decoding a strip with a division by the directory's strips per image, a
// count it sets only when the directory is read from a file or set up for writing. A directory
// made by Create or CreateString whose first row has not been written has none yet. For most
// compressions libtiff refuses the read earlier (the strip's byte count is 0), but old-style JPEG
// reads its data itself and skips that check, and the division by zero stops the host. So a
// scanline read of a striped image without strip offsets fails here with libtiff's failure value,
// reported like libtiff's own errors. So does a read of an image whose rows are being written
// (session/tiff_data.h).
#ifndef TQV_SESSION_SCANLINE_READ_H
#define TQV_SESSION_SCANLINE_READ_H

#include <tiffio.h>

#include <cstdint>

#include "session/tiff_data.h"

namespace tqv {

// The sample number libtiff is given for a row. For a contiguous image libtiff passes it on to the
// codec, which has no planes to choose from: every codec ignores it there except the SGILog ones,
// which stop the process on any but 0. Such images are given 0.
inline uint16_t CodecSample(TIFF* tiff, uint16_t sample) {
    if (sample == 0) return 0;
    uint16_t planar = PLANARCONFIG_CONTIG;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &planar);
    return planar == PLANARCONFIG_SEPARATE ? sample : 0;
}

// False, after an Error event, for a striped image without strip offsets. Row loops ask once
// before their first row, so that the refusal is reported once, not once a row.
inline bool StripsReadable(TIFF* tiff) {
    if (TIFFIsTiled(tiff)) return true;
    uint64_t* offsets = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_STRIPOFFSETS, &offsets) == 1 && offsets != nullptr) return true;
    TIFFErrorExtR(tiff, "TIFFReadScanline", "No strips to read: no row of the image was written");
    return false;
}

inline int ReadScanline(TIFF* tiff, void* row, uint32_t index, uint16_t sample) {
    if (!RowsReadable(tiff, "TIFFReadScanline") || !StripsReadable(tiff)) return -1;
    return TIFFReadScanline(tiff, row, index, CodecSample(tiff, sample));
}

}  // namespace tqv

#endif  // TQV_SESSION_SCANLINE_READ_H
