#include "import/mirror_mask.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "bridge/memory.h"
#include "picture/composition.h"
#include "picture/picture_editor.h"
#include "session/messages.h"
#include "session/scanline_read.h"
#include "session/scanline_write.h"
#include "session/tiff_data.h"

namespace tqv {
namespace {

// Room past the scanline, as the exchange has always allocated.
constexpr int64_t kSlack = 10;

int64_t RowBytes(TIFF* tiff) {
    const uint64_t size = TIFFScanlineSize64(tiff);
    return size > static_cast<uint64_t>(INT32_MAX - kSlack) ? -1 : static_cast<int64_t>(size);
}

// Strip buffers beyond this are refused (the exchange then does not start), as libtiff bounds
// its own single allocations.
constexpr uint64_t kMaxStripBytes = uint64_t{256} << 20;

// How the rows of one handle are read and written during the exchange. libtiff's scanline
// interface cannot do what the exchange needs inside a strip of several rows: reading rows
// bottom-up within a compressed strip fails ("Compression algorithm does not support random
// access"), and a row written right after a read on the same handle is lost (the read takes over
// the buffer that still holds the pending row). So a strip is decoded whole when its first row
// is asked for and its rows are served from there, and the rows written into it are collected
// until all are in, when the strip is rewritten whole (libtiff places a rewritten strip in the
// file at once). Both directions of the exchange finish with one strip before they start the
// next, and read each row of a strip before the strip is rewritten, so neither buffer goes
// stale. Tiled images and layouts whose strips are not whole scanlines keep the scanline calls
// (libtiff refuses scanlines of tiles with -1).
class StripRows {
  public:
    // The exchange touches rows 0 .. touched - 1. False when the strip buffers cannot be had.
    bool Init(TIFF* tiff, uint32_t touched) {
        tiff_ = tiff;
        touched_ = touched;
        uint32_t rowsPerStrip = 0;
        TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
        TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &length_);
        rowsPerStrip_ = std::min(rowsPerStrip, length_);
        rowBytes_ = TIFFScanlineSize64(tiff);
        if (TIFFIsTiled(tiff) || rowsPerStrip_ == 0 || rowBytes_ == 0 ||
            TIFFVStripSize64(tiff, rowsPerStrip_) != rowBytes_ * rowsPerStrip_)
            return true;
        const uint64_t bytes = rowBytes_ * rowsPerStrip_;
        if (bytes > kMaxStripBytes) return false;
        read_.reset(new (std::nothrow) uint8_t[bytes]);
        written_.reset(new (std::nothrow) uint8_t[bytes]);
        return read_ != nullptr && written_ != nullptr;
    }

    // libtiff's scanline results: 1 read, -1 not (the row buffer is then left as it was).
    int Read(uint8_t* row, uint32_t index) {
        if (read_ == nullptr || index >= length_) return ReadScanline(tiff_, row, index, 0);
        const uint32_t first = FirstOf(index);
        if (!readValid_ || first != readFirst_) {
            readValid_ = false;
            const auto bytes = static_cast<tmsize_t>(rowBytes_ * RowsFrom(first));
            const uint32_t strip = TIFFComputeStrip(tiff_, first, 0);
            // A strip not written yet has no bytes; libtiff would read an uncompressed one from
            // the start of the file.
            if (TIFFGetStrileByteCount(tiff_, strip) == 0) {
                TIFFErrorExtR(tiff_, "TIFFReadEncodedStrip", "%u: Strip not written yet", strip);
                return -1;
            }
            if (TIFFReadEncodedStrip(tiff_, strip, read_.get(), bytes) != bytes) return -1;
            readFirst_ = first, readValid_ = true;
        }
        std::memcpy(row, read_.get() + (index - first) * rowBytes_, rowBytes_);
        return 1;
    }

    // 1 written (or collected), 0 or -1 not.
    int Write(uint8_t* row, uint32_t index) {
        if (written_ == nullptr || index >= length_) {
            // Without the writing mark: the exchange reads this handle's rows between its writes,
            // which the mark would refuse.
            return ScanlineWritable(tiff_, index, 0) ? TIFFWriteScanline(tiff_, row, index, 0) : -1;
        }
        const uint32_t first = FirstOf(index);
        const uint32_t rows = RowsFrom(first);
        if (first != writtenFirst_ || filled_ == 0) {
            // Rows of the strip that the exchange does not reach (an output longer than this
            // image) keep what the strip held; the exchange has just read from this strip.
            writtenFirst_ = first, filled_ = 0;
            if (readValid_ && readFirst_ == first)
                std::memcpy(written_.get(), read_.get(), rowBytes_ * rows);
            else
                std::memset(written_.get(), 0, rowBytes_ * rows);
        }
        std::memcpy(written_.get() + (index - first) * rowBytes_, row, rowBytes_);
        if (++filled_ < std::min(first + rows, touched_) - first) return 1;
        filled_ = 0;
        const auto bytes = static_cast<tmsize_t>(rowBytes_ * rows);
        return TIFFWriteEncodedStrip(tiff_, TIFFComputeStrip(tiff_, first, 0), written_.get(), bytes) < 0 ? -1
                                                                                                          : 1;
    }

  private:
    uint32_t FirstOf(uint32_t index) const { return index - index % rowsPerStrip_; }
    uint32_t RowsFrom(uint32_t first) const { return std::min(rowsPerStrip_, length_ - first); }

    TIFF* tiff_ = nullptr;
    uint32_t touched_ = 0;
    uint32_t length_ = 0;
    uint32_t rowsPerStrip_ = 0;
    uint64_t rowBytes_ = 0;
    std::unique_ptr<uint8_t[]> read_;
    uint32_t readFirst_ = 0;  // the first row of the strip in read_
    bool readValid_ = false;
    std::unique_ptr<uint8_t[]> written_;
    uint32_t writtenFirst_ = 0;  // the first row of the strip being collected
    uint32_t filled_ = 0;        // rows of it collected so far
};

// The exchange for rows i = 0 .. length - 1 (an empty image exchanges nothing and succeeds).
// libtiff's -1 (a failed read, a write to a file not open for writing) is passed over: only 0
// ends it, or an Error or Warning handler closing either session (libtiff closes the handle when
// the call returns; the rows left would only raise the same message again, once a row).
bool Exchange(const TiffData* record, const TiffData* other, uint32_t length, uint8_t* a, uint8_t* b) {
    TIFF* const self = record->tiff;
    TIFF* const output = other->tiff;
    StripRows selfRows, outputRows;
    if (!selfRows.Init(self, length) || !outputRows.Init(output, length)) return false;
    uint32_t j = length - 1;
    for (uint32_t i = 0; i < length; ++i, --j) {
        if (selfRows.Read(a, i) == 0) return false;
        if (outputRows.Read(b, j) == 0) return false;
        if (selfRows.Write(b, i) == 0) return false;
        if (outputRows.Write(a, j) == 0) return false;
        if (record->tiff != self || other->tiff != output) return false;
    }
    return true;
}

}  // namespace

bool MirrorVertical(REALobject self, REALobject output) {
    TiffData* record = TiffDataOf(self);
    TiffData* other = TiffDataOf(output);
    if (record == nullptr || other == nullptr) return false;
    current = self;
    if (record->tiff == nullptr || other->tiff == nullptr) return false;
    // The strips are read whole, past the reads' own check for rows being written.
    if (!RowsReadable(record->tiff, "MirrorVertical") || !RowsReadable(other->tiff, "MirrorVertical"))
        return false;
    uint32_t length = 0, width = 0;
    if (TIFFGetField(record->tiff, TIFFTAG_IMAGELENGTH, &length) != 1) return false;
    if (TIFFGetField(record->tiff, TIFFTAG_IMAGEWIDTH, &width) != 1) return false;
    // Rows written past an output's height would wait in libtiff's strip buffer, which the next
    // strip read takes over: the row was lost while the call answered true.
    uint32_t outputLength = 0;
    TIFFGetField(other->tiff, TIFFTAG_IMAGELENGTH, &outputLength);
    if (outputLength < length) {
        TIFFErrorExtR(record->tiff, "MirrorVertical",
                      "The output image has %u rows, fewer than this image's %u", outputLength, length);
        return false;
    }
    // Both buffers are sized by this image's rows; libtiff reads and writes the output's rows
    // through them at the output's row length, so an output without a file or with longer rows
    // would make libtiff run past them.
    const int64_t bytes = RowBytes(record->tiff);
    if (bytes < 0 || other->tiff == nullptr || RowBytes(other->tiff) < 0 ||
        RowBytes(other->tiff) > bytes + kSlack)
        return false;
    // A session exchanged with itself swaps every pair of rows twice, which leaves them as they
    // are; done row by row on one handle, a read would take over rows still waiting in its strip
    // buffer.
    if (record->tiff == other->tiff) return true;
    const ClearMemoryPtr<uint8_t> a(static_cast<uint8_t*>(AllocateClearMemory(bytes + kSlack)));
    const ClearMemoryPtr<uint8_t> b(static_cast<uint8_t*>(AllocateClearMemory(bytes + kSlack)));
    if (a == nullptr || b == nullptr) return false;
    return Exchange(record, other, length, a.get(), b.get());
}

REALpicture CombinePictureWithMask(REALobject self) {
    TiffData* record = TiffDataOf(self);
    if (record == nullptr || record->Pict == nullptr) return nullptr;
    const int32_t width = GetPictureWidth(record->Pict);
    const int32_t height = GetPictureHeight(record->Pict);
    return CreatePictureWithMask(record->Pict, record->Mask, true, width, height);
}

}  // namespace tqv
