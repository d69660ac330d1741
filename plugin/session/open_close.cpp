#include "session/open_close.h"

#include <utility>

#include "bridge/entry_guard.h"
#include "bridge/path.h"
#include "bridge/text.h"
#include "bridge/values.h"
#include "session/messages.h"
#include "session/open_limits.h"
#include "session/tiff_data.h"

namespace tqv {
namespace {

// The opens in progress, innermost first.
Opening* gOpenings = nullptr;

void CloseNow(void* tiff) {
    TIFFClose(static_cast<TIFF*>(tiff));
}

// Only the handle: pictures, the input string and the output buffer outlive a file open. Asked
// from an Error or Warning handler, the handle may be the one libtiff is working on: the session
// lets go of it at once and libtiff closes it when the outermost plugin call returns.
void CloseHandle(TiffData* record) {
    TIFF* tiff = std::exchange(record->tiff, nullptr);
    if (tiff == nullptr) return Opening::CloseAsked(record);
    if (gMessageHandlerDepth == 0) return CloseNow(tiff);
    try {
        gDeferredWork.push_back({CloseNow, tiff, record});
    } catch (...) {
        // No memory to remember it: leaking the handle is safer than closing it under libtiff.
    }
}

bool RefuseNilFile(REALfolderItem file) {
    if (file != nullptr) return false;
    RaiseException("NilObjectException", "folderitem is nil", kREALTextEncodingASCII);
    return true;
}

// A folder item the host cannot place has no path; libtiff is not asked to open nil.
bool OpenPath(TiffData* record, REALfolderItem file, const char* mode) {
    rbPath path(file);
    const char* unixPath = path.GetUnixPath();
    if (unixPath == nullptr) return false;
    Opening opening(record);
    return opening.Keep(OpenBoundedFile(unixPath, mode));
}

const char* CreateMode(int32_t endian) {
    switch (endian) {
        case 2:
            return "wl";
        case 1:
            return "wb";
        default:
            return "w";
    }
}

}  // namespace

Opening::Opening(TiffData* record) : record_(record), outer_(std::exchange(gOpenings, this)) {}

Opening::~Opening() {
    gOpenings = outer_;
}

bool Opening::Keep(TIFF* tiff) {
    // libtiff has returned: the handle is nobody else's yet.
    if (tiff != nullptr && closeAsked_) TIFFClose(std::exchange(tiff, nullptr));
    record_->tiff = tiff;
    return tiff != nullptr;
}

void Opening::CloseAsked(const TiffData* record) {
    for (Opening* opening = gOpenings; opening != nullptr; opening = opening->outer_)
        if (opening->record_ == record) opening->closeAsked_ = true;
}

bool OpenTiff2(REALobject self, REALfolderItem file, REALstring mode) {
    TiffData* record = TiffDataOf(self);
    if (RefuseNilFile(file) || record == nullptr) return false;
    current = self;
    CloseHandle(record);
    rbText modeText(mode);
    return OpenPath(record, file, mode != nullptr ? modeText.GetASCII() : "r");
}

bool OpenTiff1(REALobject self, REALfolderItem file) {
    return OpenTiff2(self, file, nullptr);
}

bool CreateTiff2(REALobject self, REALfolderItem file, int32_t endian) {
    TiffData* record = TiffDataOf(self);
    if (RefuseNilFile(file) || record == nullptr) return false;
    CloseHandle(record);
    current = self;
    return OpenPath(record, file, CreateMode(endian));
}

bool CreateTiff1(REALobject self, REALfolderItem file) {
    return CreateTiff2(self, file, 0);
}

void CloseTiff(REALobject self) {
    if (TiffData* record = TiffDataOf(self)) CloseHandle(record);
}

}  // namespace tqv
