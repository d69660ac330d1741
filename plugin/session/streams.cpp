#include "session/streams.h"

#include <fcntl.h>
#include <tiffio.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "bridge/handles.h"
#include "bridge/memory.h"
#include "bridge/services.h"
#include "bridge/text.h"
#include "bridge/values.h"
#include "import/full_colour.h"
#include "picture/composition.h"
#include "session/messages.h"
#include "session/open_close.h"
#include "session/open_limits.h"
#include "session/tiff_data.h"

namespace tqv {
namespace {

constexpr const char* kStreamName = "";
constexpr tmsize_t kMaxWrite = tmsize_t{1} << 40;

TiffData* RecordOf(thandle_t handle) {
    return static_cast<TiffData*>(handle);
}

uint64_t Low32(uint64_t value) {
    return value & 0xFFFFFFFFu;
}

// Positions arrive as 64-bit offsets; the streams keep 32-bit ones, as the classic build did.
uint64_t SeekTo(uint64_t position, uint64_t end, toff_t offset, int whence) {
    switch (whence) {
        case SEEK_SET:
            return Low32(offset);
        case SEEK_CUR:
            return position + Low32(offset);
        case SEEK_END:
            return end + Low32(offset);
        default:
            return position;
    }
}

// ---- Read stream ----------------------------------------------------------------------------

// The byte view, made now if the record holds the string without one.
const rbData* InputView(TiffData* record) {
    if (record->inputData == nullptr && record->inputString != nullptr)
        record->inputData = new (std::nothrow) rbData(record->inputString);
    return record->inputData;
}

tmsize_t ReadRead(thandle_t handle, void* buffer, tmsize_t count) noexcept {
    TiffData* record = RecordOf(handle);
    const rbData* view = InputView(record);
    if (view == nullptr || buffer == nullptr || count < 1) return 0;
    const uint64_t position = Low32(record->streamPosition);
    // Bounded by the bytes really held as well as by the recorded size.
    const uint64_t size =
        std::min<uint64_t>(Low32(record->streamSize), static_cast<uint64_t>(view->Length()));
    if (size <= position || view->Bytes() == nullptr) return 0;
    const uint64_t n = std::min<uint64_t>(static_cast<uint64_t>(count), size - position);
    std::memcpy(buffer, view->Bytes() + position, static_cast<size_t>(n));
    record->streamPosition = position + n;
    return static_cast<tmsize_t>(n);
}

toff_t SeekRead(thandle_t handle, toff_t offset, int whence) noexcept {
    TiffData* record = RecordOf(handle);
    record->streamPosition = SeekTo(record->streamPosition, record->streamSize, offset, whence);
    return Low32(record->streamPosition);
}

toff_t SizeRead(thandle_t handle) noexcept {
    return Low32(RecordOf(handle)->streamSize);
}

tmsize_t WriteRead(thandle_t, void*, tmsize_t) noexcept {
    return 0;
}

}  // namespace

bool WritesNothing(TIFF* tiff) {
    return TIFFGetMode(tiff) == O_RDONLY || TIFFGetWriteProc(tiff) == &WriteRead;
}

namespace {

// ---- Write stream ---------------------------------------------------------------------------

// Grows the buffer to `end` plus one step. A size the handle cannot take disposes of it (the
// session's buffer is then gone); a resize the memory cannot serve leaves it as it was.
bool Grow(TiffData* record, int64_t end) {
    const int64_t wanted = end + kOutputStep;
    record->outputHandle = resizeHandle(record->outputHandle, wanted);
    if (getHandleSize(record->outputHandle) != wanted) return false;
    record->outputCapacity = static_cast<int32_t>(wanted);
    return true;
}

tmsize_t WriteWrite(thandle_t handle, void* buffer, tmsize_t count) noexcept {
    TiffData* record = RecordOf(handle);
    // No real write comes near the limit; it keeps the 64-bit sums below from overflowing.
    if (buffer == nullptr || count < 0 || count > kMaxWrite) return 0;
    const uint64_t position = Low32(record->streamPosition);
    // 64-bit sums: an end past 2 GiB asks for a size the handle refuses instead of wrapping.
    const int64_t end = static_cast<int64_t>(position) + count;
    if (end > record->outputCapacity && !Grow(record, end)) return 0;
    auto* bytes = static_cast<uint8_t*>(lockHandle(record->outputHandle));
    if (bytes == nullptr || end > getHandleSize(record->outputHandle)) {
        unlockHandle(record->outputHandle);
        return 0;
    }
    std::memcpy(bytes + position, buffer, static_cast<size_t>(count));
    unlockHandle(record->outputHandle);
    record->streamPosition += static_cast<uint64_t>(count);
    if (end > record->outputLength) record->outputLength = static_cast<int32_t>(end);
    return count;
}

// The end is the end of the data, not of the allocation.
toff_t SeekWrite(thandle_t handle, toff_t offset, int whence) noexcept {
    TiffData* record = RecordOf(handle);
    const auto end = static_cast<uint64_t>(std::max(record->outputLength, 0));
    record->streamPosition = SeekTo(record->streamPosition, end, offset, whence);
    return Low32(record->streamPosition);
}

toff_t SizeWrite(thandle_t handle) noexcept {
    return static_cast<toff_t>(std::max(RecordOf(handle)->outputLength, 0));
}

// Reads back what was written so far. libtiff reads the previous directory when it links the
// next one, so without this a TIFF written in memory keeps only its first page.
tmsize_t ReadWrite(thandle_t handle, void* buffer, tmsize_t count) noexcept {
    TiffData* record = RecordOf(handle);
    const uint64_t position = Low32(record->streamPosition);
    const auto length = static_cast<uint64_t>(
        std::min<int64_t>(std::max(record->outputLength, 0), getHandleSize(record->outputHandle)));
    if (buffer == nullptr || count < 1 || length <= position) return 0;
    const auto* bytes = static_cast<const uint8_t*>(lockHandle(record->outputHandle));
    if (bytes == nullptr) return 0;
    const uint64_t n = std::min<uint64_t>(static_cast<uint64_t>(count), length - position);
    std::memcpy(buffer, bytes + position, static_cast<size_t>(n));
    unlockHandle(record->outputHandle);
    record->streamPosition = position + n;
    return static_cast<tmsize_t>(n);
}

// ---- Shared ---------------------------------------------------------------------------------

// The session, not libtiff, owns the bytes; a stream is never memory-mapped.
int CloseStream(thandle_t) noexcept {
    return 0;
}
int MapStream(thandle_t, void**, toff_t*) noexcept {
    return 0;
}
void UnmapStream(thandle_t, void*, toff_t) noexcept {}

TIFF* OpenReadStream(TiffData* record, const char* mode) {
    return OpenBoundedClient(kStreamName, mode, record, ReadRead, WriteRead, SeekRead, CloseStream, SizeRead,
                             MapStream, UnmapStream);
}

bool OpenStringWithMode(TiffData* record, REALstring data, const char* mode) {
    // The stream may read the string's own bytes long after this call: a string the host cannot
    // lock for the session cannot be read from.
    record->inputString = StringRef::Borrow(data).Release();
    if (record->inputString == nullptr) return false;
    record->inputData = new rbData(data);
    record->streamSize = Low32(static_cast<uint64_t>(std::max(record->inputData->Length(), 0)));
    record->streamPosition = 0;
    Opening opening(record);
    return opening.Keep(OpenReadStream(record, mode));
}

bool CreateWithMode(REALobject self, int32_t size, const char* mode) {
    TiffData* record = TiffDataOf(self);
    if (record == nullptr) return false;
    TiffClean(record);
    current = self;
    // No larger than the buffer may grow: data past that could not become the output string.
    record->outputHandle = allocateHandle(std::min(std::max<int64_t>(size, kOutputStep), kMaxHandleResize));
    if (record->outputHandle == nullptr) return false;
    record->outputCapacity = static_cast<int32_t>(getHandleSize(record->outputHandle));
    record->streamPosition = 0;
    record->outputLength = 0;
    Opening opening(record);
    return opening.Keep(OpenBoundedClient(kStreamName, mode, record, ReadWrite, WriteWrite, SeekWrite,
                                          CloseStream, SizeWrite, MapStream, UnmapStream));
}

}  // namespace

bool OpenStringRecord(TiffData* record, REALstring data) {
    if (record == nullptr) return false;
    TiffClean(record);
    if (data == nullptr) return false;
    return OpenStringWithMode(record, data, "r");
}

bool OpenStringTiff1(REALobject self, REALstring data) {
    current = self;
    return OpenStringRecord(TiffDataOf(self), data);
}

bool OpenStringTiff2(REALobject self, REALstring data, REALstring mode) {
    TiffData* record = TiffDataOf(self);
    if (record == nullptr) return false;
    TiffClean(record);
    if (data == nullptr) return false;
    current = self;
    rbText modeText(mode);
    return OpenStringWithMode(record, data, modeText.GetUTF8());
}

bool CreateStringTiff1(REALobject self, int32_t size) {
    return CreateWithMode(self, size, "w");
}

bool CreateStringTiff2(REALobject self, int32_t size, REALstring mode) {
    rbText modeText(mode);
    return CreateWithMode(self, size, modeText.GetUTF8());
}

REALstring GetInputBuffer(REALobject self, intptr_t) {
    TiffData* record = TiffDataOf(self);
    return record != nullptr ? StringRef::Borrow(record->inputString).Release() : nullptr;
}

REALstring GetOutputBuffer(REALobject self, intptr_t) {
    TiffData* record = TiffDataOf(self);
    if (record == nullptr || record->outputHandle == nullptr) return nullptr;
    const int64_t length = std::min<int64_t>(record->outputLength, getHandleSize(record->outputHandle));
    const void* bytes = lockHandle(record->outputHandle);
    REALstring copy = REALBuildUnicodeString(bytes, length, kREALTextEncodingUnknown);
    unlockHandle(record->outputHandle);
    return copy;
}

REALobject TIFFStringToTiffPictureTQV(REALstring data) {
    if (data == nullptr) return nullptr;
    ObjectRef made = ObjectRef::Steal(REALnewInstance("TiffPictureTQV"));
    if (!made) return nullptr;
    current = made.get();
    if (!OpenStringRecord(TiffDataOf(made.get()), data)) return nullptr;
    return made.Release();
}

// A record of its own on the stack, zero-filled like a new object's, cleaned on every path.
// Messages go to whichever session is the receiver already.
REALpicture TIFFStringToPictureTQV(REALstring data) {
    if (data == nullptr) return nullptr;
    struct LocalRecord {
        TiffData record{};
        ~LocalRecord() { TiffClean(&record); }
    } local;
    FillLibraryAddresses(&local.record);
    TiffData* record = &local.record;
    // The direct read can fill the picture's own mask as it decodes, which is what attaching the
    // separate mask would give; otherwise the mask is attached as read.
    bool maskAttached = false;
    if (!OpenStringRecord(record, data) || !ReadRGBRecord(record, &maskAttached)) return nullptr;
    if (!maskAttached && !AddPictureMask(record->Pict, record->Mask)) return nullptr;
    return PictureRef::Borrow(record->Pict).Release();
}

}  // namespace tqv
