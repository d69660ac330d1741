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
constexpr char kLayoutName[] = "tqv.layout";
constexpr char kLayoutSeenName[] = "tqv.layout.seen";
constexpr char kWriteFailedName[] = "tqv.write.failed";
constexpr char kDirectoryMarkName[] = "tqv.directory.mark";
constexpr char kStripPlanesName[] = "tqv.strip.planes";

uintptr_t ClientValue(TIFF* tiff, const char* name) {
    return reinterpret_cast<uintptr_t>(TIFFGetClientInfo(tiff, name));
}

void SetClientValue(TIFF* tiff, const char* name, uintptr_t value) {
    TIFFSetClientInfo(tiff, reinterpret_cast<void*>(value), name);
}

uintptr_t ChangesOf(TIFF* tiff) {
    return ClientValue(tiff, kChangesName);
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

// The fields that libtiff sizes, decodes and unpacks rows by, folded into one non-zero word.
// libtiff keeps the row size and the codec set up when it read a directory, whatever is set
// since: rows of another width, depth or compression read on into buffers sized by the new
// values. The subsampling counts only where it sizes rows (YCbCr) and is a plain field (old-style
// JPEG reads it from the data).
uintptr_t LayoutOf(TIFF* tiff) {
    uint32_t words[11] = {};
    uint16_t bits = 1, samples = 1, planar = PLANARCONFIG_CONTIG, compression = COMPRESSION_NONE,
             photometric = 0;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &words[0]);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &words[1]);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &words[2]);
    TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &words[3]);
    TIFFGetField(tiff, TIFFTAG_TILELENGTH, &words[4]);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &compression);
    TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
    words[5] = bits, words[6] = samples, words[7] = planar, words[8] = compression;
    words[9] = TIFFIsTiled(tiff) ? 1 : 0;
    if (photometric == PHOTOMETRIC_YCBCR && compression != COMPRESSION_OJPEG) {
        uint16_t horizontal = 0, vertical = 0;
        TIFFGetFieldDefaulted(tiff, TIFFTAG_YCBCRSUBSAMPLING, &horizontal, &vertical);
        words[10] = 1u | uint32_t{horizontal} << 8 | uint32_t{vertical} << 16;
    }
    uint64_t hash = 14695981039346656037ull;  // FNV-1a
    for (uint32_t word : words) {
        for (int shift = 0; shift < 32; shift += 8)
            hash = (hash ^ ((word >> shift) & 0xFFu)) * 1099511628211ull;
    }
    return static_cast<uintptr_t>(hash) | 1u;
}

// Whether the layout is still the one libtiff set the directory up with. It is looked at again
// only after something was set on the handle, so a row loop pays a lookup a row.
bool LayoutKept(TIFF* tiff, const char* module) {
    if (tiff == nullptr) return true;
    // The row loops' common case first: nothing set since the last look.
    const uintptr_t changes = ChangesOf(tiff);
    if (ClientValue(tiff, kLayoutSeenName) == changes) return true;
    const uintptr_t expected = ClientValue(tiff, kLayoutName);
    if (expected == 0) return true;
    if (LayoutOf(tiff) != expected) {
        TIFFErrorExtR(tiff, module,
                      "Cannot read rows of an image whose size, samples, compression or strips were changed "
                      "after its directory was read");
        return false;
    }
    SetClientValue(tiff, kLayoutSeenName, changes);
    return true;
}

}  // namespace

void NoteHandleChange(TIFF* tiff) {
    // One count for every handle of the process, not one a handle: a file closed and another
    // opened in its place by host code run in a yield may get the same address and the same
    // number of changes, never the same mark.
    static std::atomic<uintptr_t> changes{0};
    if (tiff != nullptr) TIFFSetClientInfo(tiff, reinterpret_cast<void*>(++changes), kChangesName);
}

uintptr_t ChangeMark(TIFF* tiff) {
    return tiff != nullptr ? ChangesOf(tiff) : 0;
}

void NoteRowsWritten(TIFF* tiff) {
    // libtiff refuses every row of a file opened for reading: nothing is left pending.
    if (tiff != nullptr && TIFFGetMode(tiff) != O_RDONLY && TIFFGetClientInfo(tiff, kWritingName) == nullptr)
        TIFFSetClientInfo(tiff, tiff, kWritingName);
}

void NoteDirectoryWriteFailed(TIFF* tiff) {
    if (tiff != nullptr && TIFFGetMode(tiff) != O_RDONLY) TIFFSetClientInfo(tiff, tiff, kWriteFailedName);
}

void NoteDirectoryChanged(TIFF* tiff, bool read) {
    if (tiff == nullptr) return;
    if (TIFFGetClientInfo(tiff, kWritingName) != nullptr) TIFFSetClientInfo(tiff, nullptr, kWritingName);
    if (TIFFGetClientInfo(tiff, kWriteFailedName) != nullptr)
        TIFFSetClientInfo(tiff, nullptr, kWriteFailedName);
    // A directory begun for writing has no rows to read yet, and libtiff sizes them when the
    // first is written.
    SetClientValue(tiff, kLayoutName, read ? LayoutOf(tiff) : 0);
    SetClientValue(tiff, kLayoutSeenName, ChangesOf(tiff));
    SetClientValue(tiff, kDirectoryMarkName, ChangesOf(tiff));
    SetClientValue(tiff, kStripPlanesName, read ? PlanesOf(tiff) : 0);
}

void NoteStripPlanes(TIFF* tiff, uint32_t planes) {
    if (tiff != nullptr) SetClientValue(tiff, kStripPlanesName, planes);
}

uint32_t StripPlanes(TIFF* tiff) {
    return tiff != nullptr ? static_cast<uint32_t>(ClientValue(tiff, kStripPlanesName)) : 0;
}

uint32_t PlanesOf(TIFF* tiff) {
    uint16_t samples = 1, planar = PLANARCONFIG_CONTIG;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &planar);
    return planar == PLANARCONFIG_SEPARATE ? samples : 1;
}

bool ChangedSinceSelected(TIFF* tiff) {
    return tiff != nullptr &&
           (RowsBeingWritten(tiff) || ClientValue(tiff, kDirectoryMarkName) != ChangesOf(tiff));
}

void NoteLayoutSetUp(TIFF* tiff) {
    if (tiff == nullptr || ClientValue(tiff, kLayoutName) == 0) return;
    SetClientValue(tiff, kLayoutName, LayoutOf(tiff));
    SetClientValue(tiff, kLayoutSeenName, ChangesOf(tiff));
}

bool DirectoryRead(TIFF* tiff) {
    return tiff != nullptr && ClientValue(tiff, kLayoutName) != 0;
}

bool RowsBeingWritten(TIFF* tiff) {
    return tiff != nullptr && TIFFGetClientInfo(tiff, kWritingName) != nullptr;
}

bool RowsReadable(TIFF* tiff, const char* module) {
    if (tiff != nullptr && TIFFGetClientInfo(tiff, kWriteFailedName) != nullptr) {
        TIFFErrorExtR(tiff, module,
                      "Cannot read rows of an image whose directory could not be written; select an image "
                      "again first");
        return false;
    }
    if (!RowsBeingWritten(tiff)) return LayoutKept(tiff, module);
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
