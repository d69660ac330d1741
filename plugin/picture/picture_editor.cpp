#include "picture/picture_editor.h"

#include <cstdint>
#include <utility>

#include "bridge/handles.h"
#include "bridge/services.h"
#include "picture/composition.h"
#include "platform/frameworks.h"
#include "platform/page_advice.h"

namespace tqv {

bool IsDesktop = false;
bool IsConsole = false;

namespace {

constexpr double kUnlockAfterFailedLockBefore = 2012.0;
constexpr int16_t kDepthXRGB = 32;
constexpr int16_t kDepthRGB = 24;
// A reader may work on one copy of a picture it cannot read directly; a copy that again needs
// copying (a host whose new pictures are themselves unreadable) fails instead of recursing.
constexpr int kCopiesAllowed = 1;

REALobject AsObject(void* handle) {
    return static_cast<REALobject>(handle);
}

// Only while neither flag is set: a host without any application class is asked again later.
void DetectBackEnd() {
    if (IsConsole || IsDesktop) return;
    const bool desktop = REALGetClassRef("Application") != nullptr;
    const bool web = REALGetClassRef("WebApplication") != nullptr;
    const bool console = REALGetClassRef("ConsoleApplication") != nullptr;
    if (desktop)
        IsDesktop = true;
    else if (web || console)
        IsConsole = true;
}

template <typename Proc>
Proc Bound(Proc& cache, const char* name) {
    if (cache == nullptr) cache = reinterpret_cast<Proc>(LoadFrameworkFunction("ApplicationServices", name));
    return cache;
}

}  // namespace

PixMapHandle GetGWorldPixMap(GWorldPtr world) {
    static GetGWorldPixMapProc fn = nullptr;
    return Bound(fn, "GetGWorldPixMap") ? fn(world) : nullptr;
}
int16_t GetPixDepth(PixMapHandle pixMap) {
    static GetPixDepthProc fn = nullptr;
    return Bound(fn, "GetPixDepth") ? fn(pixMap) : int16_t{0};
}
bool LockPixels(PixMapHandle pixMap) {
    static LockPixelsProc fn = nullptr;
    return Bound(fn, "LockPixels") ? fn(pixMap) : false;
}
void UnlockPixels(PixMapHandle pixMap) {
    static UnlockPixelsProc fn = nullptr;
    if (Bound(fn, "UnlockPixels")) fn(pixMap);
}
void* GetPixBaseAddr(PixMapHandle pixMap) {
    static GetPixBaseAddrProc fn = nullptr;
    return Bound(fn, "GetPixBaseAddr") ? fn(pixMap) : nullptr;
}
long GetPixRowBytes(PixMapHandle pixMap) {
    static GetPixRowBytesProc fn = nullptr;
    return Bound(fn, "GetPixRowBytes") ? fn(pixMap) : 0L;
}

bool REALLockPictureDescriptionX(REALpicture picture, REALpictureDescription* description, int32_t type) {
    const bool locked = REALLockPictureDescription(picture, description, type);
    if (!locked && rbversion_rbversion < kUnlockAfterFailedLockBefore) REALUnlockPictureDescription(picture);
    return locked;
}

int32_t GetPictureWidth(REALpicture picture) {
    int32_t value = 0;
    if (picture == nullptr || !REALGetPropValueInt32(AsObject(picture), "Width", &value)) return 0;
    return value;
}

int32_t GetPictureHeight(REALpicture picture) {
    int32_t value = 0;
    if (picture == nullptr || !REALGetPropValueInt32(AsObject(picture), "Height", &value)) return 0;
    return value;
}

REALpicture ClonePicture(REALpicture picture) {
    if (picture == nullptr) return nullptr;
    const int32_t w = GetPictureWidth(picture);
    const int32_t h = GetPictureHeight(picture);
    if (w < 1 || h < 1) return nullptr;
    PictureRef copy = PictureRef::Steal(REALNewPicture(w, h, 32));
    if (!copy) return nullptr;
    if (REALgraphics graphics = REALGetPictureGraphics(copy.get())) {
        GraphicsDrawPicture(graphics, copy.get(), picture, 0, 0, w, h, 0, 0, w, h);
        REALUnlockObject(AsObject(graphics));
    }
    return copy.Release();
}

// ---- PictureEditor ---------------------------------------------------------------------------

PictureEditor::~PictureEditor() {
    Release();
}
PictureReader::~PictureReader() {
    Release();
}
PictureWriter::~PictureWriter() {
    Release();
}

void PictureEditor::Release() {
    if (PixMapHandle map = std::exchange(pixMap, nullptr)) UnlockPixels(map);
    if (descriptionLocked) {
        if (picture != nullptr) REALUnlockPictureDescription(picture);
        descriptionLocked = false;
    }
    // The host may keep a rendering of the old pixels.
    if (forWriting && picture != nullptr) REALPictureClearCache(picture);
    if (REALpicture held = std::exchange(picture, nullptr)) REALUnlockObject(AsObject(held));
}

void PictureEditor::clear() {
    Release();
}

bool PictureEditor::GetPictureEditor(REALpicture source, bool mayCopyIt, bool writing) {
    return Lock(source, mayCopyIt, writing, kCopiesAllowed);
}

bool PictureEditor::Lock(REALpicture source, bool mayCopyIt, bool writing, int copiesLeft) {
    Release();
    if (source == nullptr) return false;
    forWriting = writing;
    mayCopy = mayCopyIt;
    DetectBackEnd();
    if (!IsConsole) return LockDesktop(source, copiesLeft);
    return LockConsole(source);
}

// Takes the editor's own lock on `source` before dropping any older one (it may be the same).
// False, holding nothing new, on a host that cannot lock it.
bool PictureEditor::Hold(REALpicture source) {
    if (!ObjectLocks::Lock(AsObject(source))) return false;
    if (REALpicture old = std::exchange(picture, source)) REALUnlockObject(AsObject(old));
    return true;
}

bool PictureEditor::LockCopy(REALpicture copy, int copiesLeft) {
    const PictureRef local = PictureRef::Steal(copy);
    return Lock(local.get(), mayCopy, false, copiesLeft - 1);
}

bool PictureEditor::LockDesktop(REALpicture source, int copiesLeft) {
    if (!REALLockPictureDescription(source, &description)) return false;
    if (description.pictureType == REALpictureTypePixMap) return LockPixMap(source, copiesLeft);
    // Not a pixel map: a reader works on a copy. The description stays locked on this path, as
    // the host in use may not expect it to be unlocked for pictures of other kinds.
    if (mayCopy && !forWriting && copiesLeft > 0) {
        if (REALpicture copy = ClonePicture(source)) return LockCopy(copy, copiesLeft);
    }
    return LockConsole(source);
}

bool PictureEditor::FailPixMap(REALpicture source) {
    pixMap = nullptr;
    rowPointer = nullptr;
    REALUnlockPictureDescription(source);
    return false;
}

bool PictureEditor::LockPixMap(REALpicture source, int copiesLeft) {
    IsDesktop = true;
    if (description.pictureData == nullptr) {
        REALUnlockPictureDescription(source);
        return false;
    }
    // `pixMap` records only pixels this editor locked: Release unlocks what it records.
    PixMapHandle map = GetGWorldPixMap(static_cast<GWorldPtr>(description.pictureData));
    if (map == nullptr) return FailPixMap(source);
    const int16_t depth = GetPixDepth(map);
    if (depth != kDepthXRGB && depth != kDepthRGB) {
        REALUnlockPictureDescription(source);
        return LockCopyOfDepth(source, copiesLeft);
    }
    pixelType = depth == kDepthXRGB ? kPixelTypeXRGB : kPixelTypeRGB;
    bytesPerPixel = depth == kDepthXRGB ? 4 : 3;
    if (!LockPixels(map)) return FailPixMap(source);
    baseAddress = rowPointer = static_cast<uint8_t*>(GetPixBaseAddr(map));
    if (baseAddress == nullptr || !Hold(source)) {
        UnlockPixels(map);
        return FailPixMap(source);
    }
    pixMap = map;
    descriptionLocked = true;
    rowBytes = static_cast<int32_t>(GetPixRowBytes(pixMap));
    width = description.width;
    height = description.height;
    column = rowIndex = 0;
    return true;
}

// A pixel map of another depth: writers refuse it, readers read a 32-bit copy drawn by the host.
bool PictureEditor::LockCopyOfDepth(REALpicture source, int copiesLeft) {
    if (forWriting || copiesLeft < 1) return false;
    const int32_t w = description.width;
    const int32_t h = description.height;
    if (w < 1 || h < 1) return false;
    REALpicture copy = REALNewPicture(w, h, 32);
    if (copy == nullptr) return false;
    if (REALgraphics graphics = REALGetPictureGraphics(copy)) {
        GraphicsDrawPicture(graphics, copy, source, 0, 0, w, h, 0, 0, w, h);
        REALUnlockObject(AsObject(graphics));
    }
    return LockCopy(copy, copiesLeft);
}

bool PictureEditor::LockConsole(REALpicture source) {
    if (IsDesktop) return false;
    if (!REALLockPictureDescriptionX(source, &description, REALpictureTypePixelRecord)) return false;
    IsConsole = true;
    const auto* record = static_cast<const REALpixelRecord*>(description.pictureData);
    // A row of more than 2 GiB cannot be described by the 32-bit rowBytes.
    if (description.pictureType != REALpictureTypePixelRecord || record == nullptr || record->layout != 0 ||
        record->rows == nullptr || record->storage == nullptr || description.width < 0 ||
        description.width > INT32_MAX / 4) {
        REALUnlockPictureDescription(source);
        return false;
    }
    if (!Hold(source)) {
        REALUnlockPictureDescription(source);
        return false;
    }
    descriptionLocked = true;
    pixelType = kPixelTypeBGRX;
    column = rowIndex = 0;
    rowBytes = description.width * 4;
    bytesPerPixel = 4;
    width = description.width;
    height = description.height;
    rowTable = record->rows;
    baseAddress = rowPointer = rowTable[0];
    return true;
}

void PictureEditor::AddPixelRow() {
    column = 0;
    ++rowIndex;
    if (rowIndex >= height) {
        rowPointer = baseAddress;
    } else if (pixelType == kPixelTypeBGRX) {
        rowPointer = rowTable[rowIndex];
    } else {
        rowPointer = baseAddress + static_cast<intptr_t>(rowIndex) * rowBytes;
    }
}

REALpicture PictureEditor::RenderPictureWriter() {
    REALpicture result = nullptr;
    if (picture != nullptr) {
        // The caller's own lock; a host that cannot lock gets no picture.
        if (ObjectLocks::Lock(AsObject(picture))) {
            REALPictureClearCache(picture);
            result = picture;
        }
    } else if (buffer != nullptr) {
        result = REALBuildPictureFromBuffer(width, height, REALpictureTypeBuffer, buffer, rowBytes);
    }
    Release();
    return result;
}

void PictureEditor::AdviseFreshPixels() const {
    if (baseAddress == nullptr || rowBytes <= 0 || height < 1) return;
    const size_t stride = static_cast<size_t>(rowBytes);
    const size_t last = static_cast<size_t>(height - 1) * stride;
    if (rowTable != nullptr && rowTable[height - 1] != baseAddress + last) return;
    AdviseWholeWrite(baseAddress, last + stride);
}

bool PictureWriter::NewPictureWriter(int32_t w, int32_t h) {
    if (w < 1 || w > kMaxWriterSide || h < 1 || h > kMaxWriterSide) return false;
    const PictureRef made = PictureRef::Steal(REALNewPicture(w, h, 32));
    if (!made || !GetPictureEditor(made.get(), false, true)) return false;
    AdviseFreshPixels();
    return true;
}

}  // namespace tqv
