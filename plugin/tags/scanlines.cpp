#include "tags/scanlines.h"

#include <tiffio.h>

#include "bridge/memory.h"
#include "bridge/services.h"
#include "bridge/values.h"
#include "session/scanline_read.h"
#include "session/scanline_write.h"
#include "session/tiff_data.h"
#include "tags/tag_access.h"

namespace tqv {
namespace {

constexpr const char* kNilBlock = "memoryblock is nil";
// The row buffer of a single-row read is this much longer than the row.
constexpr int64_t kRowSlack = 10;
// The largest block a host integer can size.
constexpr int64_t kMaxBlockBytes = 2147483646;

// libtiff's sample number is 16-bit: 65536 reads plane 0.
uint16_t Plane(int32_t sample) {
    return static_cast<uint16_t>(sample);
}

// libtiff's result for the row, or -1 when an Error or Warning handler closed the session while
// libtiff read it: the read stops, as any operation does whose session a handler closed.
int ReadRow(REALobject self, TIFF* tiff, void* row, int64_t index, int32_t sample) {
    const int read = ReadScanline(tiff, row, static_cast<uint32_t>(index), Plane(sample));
    return OpenTiffOf(self) == tiff ? read : -1;
}

void WriteRow(TIFF* tiff, const uint8_t* row, int64_t index, int32_t sample) {
    WriteScanline(tiff, const_cast<uint8_t*>(row), static_cast<uint32_t>(index), Plane(sample));
}

}  // namespace

uint8_t rbTIFFReadScanline(REALobject self, REALmemoryBlock mem, int32_t index, int32_t sample) {
    if (RaiseIfNil(mem, kNilBlock)) return 0;
    TIFF* tiff = SessionTiff(self);
    if (tiff == nullptr) return 0;
    void* row = REALMemoryBlockGetPtr(mem);
    const int32_t rowBytes = ScanlineBytes(tiff);
    if (row == nullptr || rowBytes == 0 || !BlockHolds(mem, rowBytes)) return 0;
    return static_cast<uint8_t>(ReadRow(self, tiff, row, index, sample));
}

REALmemoryBlock rbTIFFReadScanline2(REALobject self, int32_t index, int32_t sample) {
    TIFF* tiff = SessionTiff(self);
    const int32_t rowBytes = ScanlineBytes(tiff);
    if (rowBytes == 0) return nullptr;
    const ClearMemoryPtr<uint8_t> row(static_cast<uint8_t*>(AllocateClearMemory(rowBytes + kRowSlack)));
    if (row == nullptr || ReadRow(self, tiff, row.get(), index, sample) != 1) return nullptr;
    return REALBuildMemoryblock(row.get(), rowBytes);
}

REALmemoryBlock rbTIFFReadScanlines(REALobject self, int32_t index, int32_t count, int32_t sample) {
    TIFF* tiff = SessionTiff(self);
    const int64_t rowBytes = ScanlineBytes(tiff);
    if (rowBytes == 0 || count <= 0 || rowBytes * count > kMaxBlockBytes) return nullptr;
    const ClearMemoryPtr<uint8_t> rows(static_cast<uint8_t*>(AllocateClearMemory(rowBytes * count)));
    if (rows == nullptr) return nullptr;
    for (int64_t i = 0; i < count; ++i) {
        if (ReadRow(self, tiff, rows.get() + i * rowBytes, int64_t{index} + i, sample) != 1) return nullptr;
    }
    return REALBuildMemoryblock(rows.get(), rowBytes * count);
}

void rbTIFFWriteScanline(REALobject self, int32_t index, int32_t sample, REALmemoryBlock value) {
    rbTIFFWriteScanlines(self, index, 1, sample, value);
}

void rbTIFFWriteScanlines(REALobject self, int32_t index, int32_t count, int32_t sample,
                          REALmemoryBlock value) {
    if (RaiseIfNil(value, kNilBlock)) return;
    TIFF* tiff = SessionTiff(self);
    const int64_t rowBytes = ScanlineBytes(tiff);
    const auto* rows = static_cast<const uint8_t*>(value != nullptr ? REALMemoryBlockGetPtr(value) : nullptr);
    if (rowBytes == 0 || rows == nullptr) return;
    // Rows past the end of the block are not there to write.
    for (int64_t i = 0; i < count && BlockHolds(value, (i + 1) * rowBytes); ++i) {
        WriteRow(tiff, rows + i * rowBytes, int64_t{index} + i, sample);
    }
}

}  // namespace tqv
