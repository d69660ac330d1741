#include "tags/directories.h"

#include <tiffio.h>

#include "bridge/handles.h"
#include "bridge/path.h"
#include "bridge/services.h"
#include "import/full_colour.h"
#include "session/open_limits.h"
#include "session/tiff_data.h"
#include "tags/tag_access.h"

namespace tqv {
namespace {

// A directory written or selected ends the rows being written; a failed call leaves libtiff's
// directory, and rows still pending in it, as they were. `read`: selected (read from the file),
// else written (a new one begun).
bool Noted(TIFF* tiff, bool changed, bool read) {
    if (changed) NoteDirectoryChanged(tiff, read);
    return changed;
}

// The decode's own result is not the method's: the directory did change. A handler that closed
// the session meanwhile (libtiff reading the directory or the image raised its message) ends the
// selection with false, as it ends any operation.
bool AfterDirectoryChange(REALobject self, TIFF* tiff, bool changed, bool headerOnly) {
    if (!changed || OpenTiffOf(self) != tiff) return false;
    if (!headerOnly) ReadRGB(self);
    return OpenTiffOf(self) == tiff;
}

// libtiff's directory readers leave the strip still waiting in its buffer: the last rows of a
// page being written were lost, and the next row written into the other page flushed that strip
// under its old number, past the end of the new page's strip tables (the process stopped). When
// the page to select exists, the strip and the directory go to the file first, as Close writes
// them, and libtiff's handle then holds a new, empty directory that knows no next one: pages are
// selected by number. A page that does not exist leaves the rows pending, as any failed
// selection leaves the current page.
bool SelectAfterPendingRows(REALobject self, TIFF* tiff, uint64_t index, bool headerOnly) {
    // A page begun for writing joins the file as its last.
    const uint64_t pages = uint64_t{TIFFNumberOfDirectories(tiff)} + (DirectoryRead(tiff) ? 0 : 1);
    if (index >= pages) return false;
    NoteHandleChange(tiff);
    if (TIFFFlush(tiff) != 1) return false;
    const bool changed = TIFFSetDirectory(tiff, static_cast<tdir_t>(index)) != 0;
    return AfterDirectoryChange(self, tiff, Noted(tiff, changed, true), headerOnly);
}

bool ReadDirectory(REALobject self, bool headerOnly) {
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr) return false;
    if (!RowsBeingWritten(tiff))
        return AfterDirectoryChange(self, tiff, Noted(tiff, TIFFReadDirectory(tiff) != 0, true), headerOnly);
    // A page begun for writing is the last: it has no next one.
    if (!DirectoryRead(tiff)) return false;
    return SelectAfterPendingRows(self, tiff, uint64_t{TIFFCurrentDirectory(tiff)} + 1, headerOnly);
}

// libtiff 4.5 takes 32-bit directory numbers and fails on 65536; the host's index is 16-bit.
bool SetDirectory(REALobject self, int32_t index, bool headerOnly) {
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr) return false;
    const auto directory = static_cast<uint16_t>(index);
    if (RowsBeingWritten(tiff)) return SelectAfterPendingRows(self, tiff, directory, headerOnly);
    return AfterDirectoryChange(self, tiff, Noted(tiff, TIFFSetDirectory(tiff, directory) != 0, true),
                                headerOnly);
}

template <typename Call>
bool OnOpenTiff(REALobject self, Call call) {
    TIFF* tiff = OpenTiffOf(self);
    return tiff != nullptr && call(tiff);
}

}  // namespace

bool rbTIFFReadDirectory1(REALobject self) {
    return ReadDirectory(self, false);
}
bool rbTIFFReadDirectory2(REALobject self, bool headerOnly) {
    return ReadDirectory(self, headerOnly);
}
bool rbTIFFSetDirectory2(REALobject self, int32_t index) {
    return SetDirectory(self, index, false);
}
bool rbTIFFSetDirectory3(REALobject self, int32_t index, bool headerOnly) {
    return SetDirectory(self, index, headerOnly);
}

bool rbTIFFRewriteDirectory(REALobject self) {
    return OnOpenTiff(self, [](TIFF* tiff) { return Noted(tiff, TIFFRewriteDirectory(tiff) != 0, false); });
}
bool rbTIFFWriteDirectory(REALobject self) {
    return OnOpenTiff(self, [](TIFF* tiff) { return Noted(tiff, TIFFWriteDirectory(tiff) != 0, false); });
}
bool rbTIFFLastDirectory(REALobject self) {
    return OnOpenTiff(self, [](TIFF* tiff) { return TIFFLastDirectory(tiff) == 1; });
}
bool rbTIFFFlush(REALobject self) {
    return OnOpenTiff(self, [](TIFF* tiff) {
        NoteHandleChange(tiff);
        return TIFFFlush(tiff) == 1;
    });
}
bool rbTIFFFlushData(REALobject self) {
    return OnOpenTiff(self, [](TIFF* tiff) {
        NoteHandleChange(tiff);
        return TIFFFlushData(tiff) == 1;
    });
}

int32_t rbTIFFNumberOfDirectories(REALobject self) {
    TIFF* tiff = OpenTiffOf(self);
    return tiff != nullptr ? static_cast<uint16_t>(TIFFNumberOfDirectories(tiff)) : 0;
}

// Before the first directory of a new file exists libtiff answers 4294967295; cut to 16 bits
// that is 65535, the number older hosts saw.
int32_t rbTIFFCurrentDirectory(REALobject self) {
    TIFF* tiff = OpenTiffOf(self);
    return tiff != nullptr ? static_cast<uint16_t>(TIFFCurrentDirectory(tiff)) : 0;
}

REALobject OpenTifffile2(REALfolderItem file, bool headerOnly) {
    if (RaiseIfNil(file, "folderitem is nil")) return nullptr;
    rbPath path(file);
    const char* unixPath = path.GetUnixPath();
    TIFF* tiff = unixPath != nullptr ? OpenBoundedFile(unixPath, "r") : nullptr;
    if (tiff == nullptr) return nullptr;
    ObjectRef object = ObjectRef::Steal(REALnewInstance("TiffPictureTQV"));
    TiffData* record = TiffDataOf(object.get());
    if (record == nullptr) {
        TIFFClose(tiff);
        return nullptr;
    }
    record->tiff = tiff;
    if (!headerOnly) ReadRGB(object.get());
    return object.Release();
}

}  // namespace tqv
