// Row-by-row access to the pixels of host pictures, whichever picture back end the host has.
//
// Desktop hosts hand out pixel maps (reached through the pixel-map framework); console and web
// hosts hand out pixel records with a table of row pointers. A PictureEditor hides which one is
// in use. Callers check `pixelType`, then for each row from the top read or write `width` pixels
// from `rowPointer` (stepping `bytesPerPixel`) and call AddPixelRow.
//
//   pixelType 13: desktop depth 32, bytes spare, R, G, B
//   pixelType 12: desktop depth 24, bytes R, G, B
//   pixelType  8: console/web record, bytes B, G, R, spare (rows through the row table)
#ifndef TQV_PICTURE_PICTURE_EDITOR_H
#define TQV_PICTURE_PICTURE_EDITOR_H

#include <tqv/pixmap_framework.h>
#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

inline constexpr int32_t kPixelTypeXRGB = 13;
inline constexpr int32_t kPixelTypeRGB = 12;
inline constexpr int32_t kPixelTypeBGRX = 8;

// The largest width or height a writer makes.
inline constexpr int32_t kMaxWriterSide = 32767;

// Which back end the host has; each flag, once set, stays set for the life of the process.
extern bool IsDesktop;
extern bool IsConsole;

class PictureEditor {
  public:
    PictureEditor() = default;
    virtual ~PictureEditor();
    PictureEditor(const PictureEditor&) = delete;
    PictureEditor& operator=(const PictureEditor&) = delete;

    // Releases whatever is held, then locks `picture`. True when rows of the picture (or of a
    // 32-bit copy of it, for a reader) can now be accessed.
    bool GetPictureEditor(REALpicture picture, bool mayCopy, bool forWriting);
    // Steps to the next row; after the last row `rowPointer` goes back to row 0.
    void AddPixelRow();
    // The held picture with one lock for the caller (nil when idle); releases the editor.
    REALpicture RenderPictureWriter();
    // Releases everything held; the editor can be used again.
    void clear();
    // For a picture just made, about to be written whole: the memory hint of AdviseWholeWrite
    // (platform/page_advice.h) when its rows lie one after another.
    void AdviseFreshPixels() const;

    int32_t rowBytes = 0;
    int32_t width = 0;
    int32_t height = 0;
    int32_t bytesPerPixel = 0;
    int32_t pixelType = 0;
    uint8_t* rowPointer = nullptr;
    REALpictureDescription description{};
    uint8_t* buffer = nullptr;  // never filled by this system; kept for RenderPictureWriter
    uint8_t* baseAddress = nullptr;
    int32_t column = 0;
    int32_t rowIndex = 0;
    REALpicture picture = nullptr;  // one lock while held
    PixMapHandle pixMap = nullptr;
    uint8_t** rowTable = nullptr;
    bool mayCopy = false;
    bool forWriting = false;
    bool descriptionLocked = false;

  private:
    bool Lock(REALpicture picture, bool mayCopy, bool forWriting, int copiesLeft);
    bool LockDesktop(REALpicture picture, int copiesLeft);
    bool LockPixMap(REALpicture picture, int copiesLeft);
    bool LockCopyOfDepth(REALpicture source, int copiesLeft);
    bool LockConsole(REALpicture picture);
    bool LockCopy(REALpicture copy, int copiesLeft);
    bool Hold(REALpicture picture);
    bool FailPixMap(REALpicture picture);

  protected:
    void Release();
};

class PictureReader : public PictureEditor {
  public:
    ~PictureReader() override;
    bool GetPictureReader(REALpicture picture) { return GetPictureEditor(picture, true, false); }
};

class PictureWriter : public PictureEditor {
  public:
    ~PictureWriter() override;
    // A new 32-bit picture of 1..32767 × 1..32767 pixels, locked for writing.
    bool NewPictureWriter(int32_t width, int32_t height);
};

// The three-argument lock; older hosts (before 2012) leave a picture locked after a failed lock,
// so it is unlocked then.
bool REALLockPictureDescriptionX(REALpicture picture, REALpictureDescription* description, int32_t type);
// A new 32-bit picture with `picture` drawn into it at full size, one lock for the caller; nil
// for nil or an empty picture.
REALpicture ClonePicture(REALpicture picture);
// The host properties "Width" and "Height"; 0 for nil or when the host cannot answer.
int32_t GetPictureWidth(REALpicture picture);
int32_t GetPictureHeight(REALpicture picture);

// The pixel-map framework's calls, bound by name on first use; 0, nil or false (UnlockPixels:
// nothing) while the framework or the function cannot be found.
PixMapHandle GetGWorldPixMap(GWorldPtr world);
int16_t GetPixDepth(PixMapHandle pixMap);
bool LockPixels(PixMapHandle pixMap);
void UnlockPixels(PixMapHandle pixMap);
void* GetPixBaseAddr(PixMapHandle pixMap);
long GetPixRowBytes(PixMapHandle pixMap);

}  // namespace tqv

#endif  // TQV_PICTURE_PICTURE_EDITOR_H
