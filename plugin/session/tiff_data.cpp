#include "session/tiff_data.h"

#include <fcntl.h>

#include <atomic>
#include <utility>

#include "bridge/entry_guard.h"
#include "bridge/registration.h"
#include "bridge/services.h"
#include "session/messages.h"

namespace tqv {
namespace {

template <typename T>
void ReleasePicture(T& field) {
    if (auto* picture = std::exchange(field, nullptr))
        REALUnlockObject(reinterpret_cast<REALobject>(picture));
}

}  // namespace

TiffData* TiffDataOf(REALobject object) {
    if (object == nullptr) return nullptr;
    return reinterpret_cast<TiffData*>(reinterpret_cast<char*>(object) + tiffClass.dataOffset);
}

void FillLibraryAddresses(TiffData* record) {
    record->setField = &TIFFSetField;
    record->getField = &TIFFGetField;
    record->readScanline = &TIFFReadScanline;
    record->scanlineSize = &TIFFScanlineSize;
    record->writeScanline = &TIFFWriteScanline;
    record->getFieldDefaulted = &TIFFGetFieldDefaulted;
}

void TiffClean(TiffData* record) {
    if (record == nullptr) return;
    // A handle a message handler closed must not outlive its record (its stream callbacks use it).
    RunDeferredWork(record);
    if (TIFFRGBAImage* image = std::exchange(record->rgbaImage, nullptr)) {
        TIFFRGBAImageEnd(image);
        FreeMemoryNow(image);
    }
    // Closing a handle opened for writing writes its pending directory.
    if (TIFF* tiff = std::exchange(record->tiff, nullptr)) TIFFClose(tiff);
    ReleasePicture(record->Mask);
    ReleasePicture(record->Pict);
    if (REALstring input = std::exchange(record->inputString, nullptr)) REALUnlockString(input);
    delete std::exchange(record->inputData, nullptr);
    freeHandle(std::exchange(record->outputHandle, nullptr));
    record->outputCapacity = 0;
    record->outputLength = 0;
    record->streamSize = 0;
    record->streamPosition = 0;
}

void YieldToHost(REALobject self, TiffData* record) {
    if (record == nullptr || record->yield.YieldTicks <= 0) return;
    record->yield.DoYield();
    current = self;
}

namespace {

// The last change's number and the writing mark live with the handle, in libtiff's own list of client
// data, and go with it.
constexpr char kChangesName[] = "tqv.changes";
constexpr char kWritingName[] = "tqv.writing";

uintptr_t ChangesOf(TIFF* tiff) {
    return reinterpret_cast<uintptr_t>(TIFFGetClientInfo(tiff, kChangesName));
}

struct HandleMark {
    uintptr_t changes;
    uint32_t row;
    uint32_t strip;
    bool operator==(const HandleMark&) const = default;
};

HandleMark MarkOf(TIFF* tiff) {
    return {ChangesOf(tiff), TIFFCurrentRow(tiff), TIFFCurrentStrip(tiff)};
}

}  // namespace

void NoteHandleChange(TIFF* tiff) {
    // One count for every handle of the process, not one a handle: a file closed and another
    // opened in its place by host code run in a yield may get the same address and the same
    // number of changes, never the same mark.
    static std::atomic<uintptr_t> changes{0};
    if (tiff != nullptr) TIFFSetClientInfo(tiff, reinterpret_cast<void*>(++changes), kChangesName);
}

void NoteRowsWritten(TIFF* tiff) {
    // libtiff refuses every row of a file opened for reading: nothing is left pending.
    if (tiff != nullptr && TIFFGetMode(tiff) != O_RDONLY && TIFFGetClientInfo(tiff, kWritingName) == nullptr)
        TIFFSetClientInfo(tiff, tiff, kWritingName);
}

void NoteDirectoryChanged(TIFF* tiff) {
    if (tiff != nullptr && TIFFGetClientInfo(tiff, kWritingName) != nullptr)
        TIFFSetClientInfo(tiff, nullptr, kWritingName);
}

bool RowsBeingWritten(TIFF* tiff) {
    return tiff != nullptr && TIFFGetClientInfo(tiff, kWritingName) != nullptr;
}

bool RowsReadable(TIFF* tiff, const char* module) {
    if (!RowsBeingWritten(tiff)) return true;
    TIFFErrorExtR(tiff, module, "Cannot read rows of an image while its rows are being written");
    return false;
}

bool YieldDuringRows(REALobject self, TiffData* record, TIFF* tiff) {
    // Without yields no host code runs between the rows (the default): nothing to compare.
    if (record->yield.YieldTicks <= 0) return record->tiff == tiff;
    const HandleMark before = MarkOf(tiff);
    YieldToHost(self, record);
    // A handle closed by the yield is never looked at: only the session's own one is.
    return record->tiff == tiff && MarkOf(tiff) == before;
}

void TiffConstructor(REALobject object) {
    TiffData* record = TiffDataOf(object);
    if (record == nullptr) return;
    current = object;
    record->progressEvent = REALGetEventInstance(object, EventWord(TiffEvent::Progress));
    FillLibraryAddresses(record);
}

void TiffDestructor(REALobject object) {
    TiffClean(TiffDataOf(object));
    if (current == object) current = nullptr;
}

}  // namespace tqv
