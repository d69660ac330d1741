// What the grey and bilevel exports share: filling in image tags by rule, and the pass that turns
// the rows of a locked picture into scanlines.
#ifndef TQV_EXPORT_EXPORT_COMMON_H
#define TQV_EXPORT_EXPORT_COMMON_H

#include <tiffio.h>
#include <tqv/plugin_abi.h>

#include <cstdint>
#include <span>

namespace tqv {

class PictureReader;
struct TiffData;

// ---- Tags -----------------------------------------------------------------------------------

enum class TagRule {
    Always,         // set whatever the image holds
    IfUnset,        // keep what the caller set
    IfUnsetOrZero,  // as IfUnset, and replace a value of 0 (integer or float)
    AtLeastOne,     // resolutions: set when unset, and replace anything below 1
};

// How the value travels through TIFFSetField: 32-bit integer (what libtiff takes for both its
// 16- and 32-bit integer tags) or double (resolutions).
struct TagValue {
    bool real;
    uint32_t integer;
    double number;
};
constexpr TagValue TagInt(uint32_t value) {
    return {false, value, 0.0};
}
constexpr TagValue TagReal(double value) {
    return {true, 0, value};
}

struct TagStep {
    ttag_t tag;
    TagRule rule;
    TagValue value;
};

// Applies the steps in order; every step is made even after one failed. True when every tag is
// present or was set.
bool ApplyTagSteps(TIFF* tiff, std::span<const TagStep> steps);
// The value of a 16-bit tag the image holds, else `fallback`.
uint16_t TagOr(TIFF* tiff, ttag_t tag, uint16_t fallback);
// TIFFScanlineSize as a host-sized count: 0 when libtiff fails or a host integer cannot count it.
int64_t ScanlineBytes64(TIFF* tiff);

// What the grey and bilevel exports keep of a directory that holds them: the height (WriteBW;
// else the picture's) and the depth (else `unsetDepth`).
struct KeptLayout {
    bool height;
    uint16_t unsetDepth;
};
// The start every export shares: `object` becomes the message target; its Pict is locked in
// `reader`, then the host may run (a yield). The session's TIFF after that, or nil when nothing
// is open, Pict is nil or cannot be locked, host code closed the file meanwhile, or the directory
// cannot take the picture's rows (ReadyForRows: an Error event, before any tag is set).
TIFF* BeginExport(REALobject object, PictureReader& reader, KeptLayout kept);
// Whether the current directory can take `height` rows of `depth` bits a sample as scanlines,
// checked before an export sets any tag; false with an Error event for a file opened for
// reading, a tiled image, a directory read from the file whose strip tables were laid out for
// another number of strips (libtiff does not lay them out again: rows past the old strips would
// be lost, or the directory could not be written at all), or a colour map sized for another
// depth (its guard would refuse the depth halfway through the tags). Refused first, the
// directory stays as it was read.
bool ReadyForRows(TIFF* tiff, uint32_t height, uint16_t depth);
// What an export set in a directory read from the file, undone when the export fails before
// libtiff took its first row: the directory is read again from the file, with everything set in
// it since (by the program too). Left set, Close wrote the new size and layout over the old
// image's strips, or could not write the directory at all (a codec without an encoder, such as
// old-style JPEG, refuses both the rows and its own tags), and the file no longer read. Armed
// only for a directory read from the file with no rows pending; once a row is taken, the rows
// may already be in the file and the export's failure stands as it is.
class ReadDirectoryUndo {
  public:
    explicit ReadDirectoryUndo(TIFF* tiff);
    void RowTaken() { tiff_ = nullptr; }
    // `written`, after reading the directory again when the export failed with no row taken.
    bool Finish(bool written);

  private:
    TIFF* tiff_;
    tdir_t index_;
};

// Tags about samples that the exports do not write, which a directory read from a file (or the
// program) may hold: a floating-point or complex SampleFormat becomes unsigned integer, and with
// `noExtraSamples` (the exports that set SamplesPerPixel themselves) ExtraSamples becomes empty:
// left as they were, no reader takes the file. True when every change was made.
bool ClearOtherSampleTags(TIFF* tiff, bool noExtraSamples);

// ---- Rows -----------------------------------------------------------------------------------

// Whether rows may still go into `tiff`, the handle a write started with: host code run by a
// yield may have closed the session's file, opened another in its place, or changed the image
// so that its scanlines no longer fit the `bufferBytes` that libtiff reads each of them from.
bool StillWritable(const TiffData* record, TIFF* tiff, int64_t bufferBytes);

// Converts one picture row (`count` pixels of the reader's layout) into a scanline; chosen once
// for the picture's layout.
using PixelRowConverter = void (*)(uint8_t* out, const uint8_t* in, int32_t count);

struct ExportPass {
    REALobject self;
    TiffData* record;
    TIFF* tiff;
    uint8_t* buffer;
    int64_t bufferBytes;
    PixelRowConverter convert;
    // Bilevel rows are or-ed into the buffer, which is zeroed again after every row.
    bool clearAfterRow;
    ReadDirectoryUndo& undo;
};

// Writes the picture's rows from the top, one scanline each, yielding after every row. False as
// soon as a scanline is not written, or when host code run by a yield has taken the session's
// TIFF away (or replaced it with one whose rows no longer fit the buffer).
bool WriteRows(const ExportPass& pass, PictureReader& reader);

}  // namespace tqv

#endif  // TQV_EXPORT_EXPORT_COMMON_H
