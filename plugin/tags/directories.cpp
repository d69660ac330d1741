#include "tags/directories.h"

#include <fcntl.h>
#include <tiffio.h>

#include "bridge/handles.h"
#include "bridge/path.h"
#include "bridge/services.h"
#include "import/full_colour.h"
#include "session/open_limits.h"
#include "session/streams.h"
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

// libtiff gives the current directory up before it has read the next one whole: a selection that
// fails on a damaged page can leave the handle on that half-read page, or pointing at it, and the
// next directory written would go over that page or link it into the chain a second time. The
// page that was current is selected again; a page begun for writing that was never written has
// nothing to go back to, and begins anew (its fields are gone, as any selection drops them).
struct Position {
    tdir_t index;
    uint64_t offset;
    bool read;
};

Position Here(TIFF* tiff) {
    return {TIFFCurrentDirectory(tiff), TIFFCurrentDirOffset(tiff), DirectoryRead(tiff)};
}

void SelectAgain(TIFF* tiff, tdir_t index, bool read) {
    if (read && TIFFSetDirectory(tiff, index) != 0) {
        NoteDirectoryChanged(tiff, true);
        return;
    }
    // The codec's state goes with its compression; the fields with the directory.
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFFreeDirectory(tiff);
    TIFFCreateDirectory(tiff);
    NoteDirectoryChanged(tiff, false);
}

// A selection by libtiff's `select` on a handle with nothing to write first.
template <typename Select>
bool SelectInPlace(REALobject self, TIFF* tiff, bool headerOnly, Select select) {
    const Position before = Here(tiff);
    const bool changed = select() != 0;
    if (!changed &&
        (TIFFCurrentDirectory(tiff) != before.index || TIFFCurrentDirOffset(tiff) != before.offset))
        SelectAgain(tiff, before.index, before.read);
    return AfterDirectoryChange(self, tiff, Noted(tiff, changed, true), headerOnly);
}

// Selecting another page drops what libtiff holds for the current one: rows still waiting in its
// strip buffer (the last rows of a page being written were lost, and the next row written into
// the other page flushed that strip under its old number, past the end of the new page's strip
// tables: the process stopped), and fields set on a page of the file. So on a handle that can
// write, the current page goes to the file first, as Close writes it, and libtiff's handle then
// holds a new, empty directory that knows no next one: pages are selected by number. A page
// begun for writing goes to the file only when rows were written into it. A page that does not
// exist, or a page that cannot be written, leaves the current page as it is.
bool WritesFirst(TIFF* tiff) {
    return RowsBeingWritten(tiff) || (DirectoryRead(tiff) && !WritesNothing(tiff));
}

bool SelectAfterWriting(REALobject self, TIFF* tiff, uint64_t index, bool headerOnly) {
    // A page begun for writing joins the file as its last.
    const uint64_t pages = uint64_t{TIFFNumberOfDirectories(tiff)} + (DirectoryRead(tiff) ? 0 : 1);
    if (index >= pages) return false;
    const auto was = static_cast<tdir_t>(DirectoryRead(tiff) ? TIFFCurrentDirectory(tiff) : pages - 1);
    NoteHandleChange(tiff);
    if (TIFFFlush(tiff) != 1) {
        NoteDirectoryWriteFailed(tiff);
        return false;
    }
    const bool changed = TIFFSetDirectory(tiff, static_cast<tdir_t>(index)) != 0;
    if (!changed) SelectAgain(tiff, was, true);
    return AfterDirectoryChange(self, tiff, Noted(tiff, changed, true), headerOnly);
}

bool ReadDirectory(REALobject self, bool headerOnly) {
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr) return false;
    if (WritesFirst(tiff)) {
        // A page begun for writing is the last: it has no next one.
        if (!DirectoryRead(tiff)) return false;
        return SelectAfterWriting(self, tiff, uint64_t{TIFFCurrentDirectory(tiff)} + 1, headerOnly);
    }
    return SelectInPlace(self, tiff, headerOnly, [tiff] { return TIFFReadDirectory(tiff); });
}

// libtiff 4.5 takes 32-bit directory numbers and fails on 65536; the host's index is 16-bit.
bool SetDirectory(REALobject self, int32_t index, bool headerOnly) {
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr) return false;
    const auto directory = static_cast<uint16_t>(index);
    if (WritesFirst(tiff)) return SelectAfterWriting(self, tiff, directory, headerOnly);
    return SelectInPlace(self, tiff, headerOnly,
                         [tiff, directory] { return TIFFSetDirectory(tiff, directory); });
}

// A directory written ends the rows being written.
bool WriteDirectory(TIFF* tiff, bool rewrite) {
    // On a file open for reading libtiff writes nothing and answers true; the image stays as it
    // was read, so its layout stays guarded.
    if (!rewrite && TIFFGetMode(tiff) == O_RDONLY) return TIFFWriteDirectory(tiff) != 0;
    // libtiff would fail only after clearing its own record of where the first image is, or
    // moving its link to the image: pages were lost for the rest of the session.
    if (rewrite && WritesNothing(tiff)) {
        TIFFErrorExtR(tiff, "TIFFRewriteDirectory", "File not open for writing");
        return false;
    }
    // libtiff writes a directory it read from the file back where it was, with its values after
    // it, over whatever follows there (the next image's directory, pixels): that is SaveImage's
    // work, which moves it where it fits.
    if (!rewrite && DirectoryRead(tiff)) {
        TIFFErrorExtR(tiff, "TIFFWriteDirectory",
                      "Cannot add an image read from the file as a new one; SaveImage writes it back");
        return false;
    }
    const bool written = (rewrite ? TIFFRewriteDirectory(tiff) : TIFFWriteDirectory(tiff)) != 0;
    if (!written) NoteDirectoryWriteFailed(tiff);
    return Noted(tiff, written, false);
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
    return OnOpenTiff(self, [](TIFF* tiff) { return WriteDirectory(tiff, true); });
}
bool rbTIFFWriteDirectory(REALobject self) {
    return OnOpenTiff(self, [](TIFF* tiff) { return WriteDirectory(tiff, false); });
}
bool rbTIFFLastDirectory(REALobject self) {
    return OnOpenTiff(self, [](TIFF* tiff) { return TIFFLastDirectory(tiff) == 1; });
}
bool rbTIFFFlush(REALobject self) {
    return OnOpenTiff(self, [](TIFF* tiff) {
        // As SaveImage: libtiff would clear its record of the first page before the write failed.
        if (WritesNothing(tiff) && TIFFGetMode(tiff) != O_RDONLY && ChangedSinceSelected(tiff)) {
            TIFFErrorExtR(tiff, "TIFFFlush", "File not open for writing");
            return false;
        }
        const Position before = Here(tiff);
        NoteHandleChange(tiff);
        if (TIFFFlush(tiff) != 1) {
            NoteDirectoryWriteFailed(tiff);
            return false;
        }
        // A changed directory is written and libtiff begins a new, empty one (its offset 0). The
        // program stays on a page read from the file, which is selected again by its number, as
        // after any page written before a selection; a page begun for writing is now in the file,
        // and the next one begins.
        if (TIFFCurrentDirOffset(tiff) == before.offset && TIFFCurrentDirectory(tiff) == before.index)
            return true;
        if (before.read)
            SelectAgain(tiff, before.index, true);
        else
            NoteDirectoryChanged(tiff, false);
        return true;
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
