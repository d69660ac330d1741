// Every libtiff handle the plugin opens goes through these, so that one hostile file cannot make
// libtiff ask for more memory in one block than a real image of the sizes the host can take
// needs: a few bytes may claim strips that decode to gigabytes. They also record the layout of
// the directory libtiff read (see RowsReadable), and keep files whose directories libtiff's writer
// cannot extend from being opened for writing (directory_chain.h).
#ifndef TQV_SESSION_OPEN_LIMITS_H
#define TQV_SESSION_OPEN_LIMITS_H

#include <fcntl.h>
#include <tiffio.h>

#include <cstring>
#include <memory>

#include "session/directory_chain.h"
#include "session/tiff_data.h"

namespace tqv {

// The largest single block libtiff may allocate for one handle (the same bound as libtiff's own
// tiffcp). Directory arrays, strip and tile buffers and codec state above it fail with an Error.
inline constexpr tmsize_t kMaxLibtiffAllocation = tmsize_t{256} << 20;

namespace open_limits_detail {
struct OptionsFree {
    void operator()(TIFFOpenOptions* options) const noexcept { TIFFOpenOptionsFree(options); }
};
using Options = std::unique_ptr<TIFFOpenOptions, OptionsFree>;

inline Options Bounded() {
    Options options(TIFFOpenOptionsAlloc());
    if (options) TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), kMaxLibtiffAllocation);
    return options;
}

// A handle whose directories libtiff's writer cannot extend is closed before anything is written:
// as read-only, so that closing it does not flush.
inline TIFF* WritableOrClosed(TIFF* tiff, const char* mode) {
    if (DirectoriesWritable(tiff, mode)) return tiff;
    TIFFSetMode(tiff, O_RDONLY);
    TIFFClose(tiff);
    return nullptr;
}
}  // namespace open_limits_detail

// Whether libtiff reads the first directory when it opens with `mode`: "w" creates a file and
// "a" begins a new directory to append, both for writing.
inline bool ReadsDirectory(const char* mode) {
    return std::strpbrk(mode, "wa") == nullptr;
}

// TIFFOpen with the allocation bound; nil when the options cannot be made either.
inline TIFF* OpenBoundedFile(const char* path, const char* mode) {
    const auto options = open_limits_detail::Bounded();
    if (!options) return nullptr;
    TIFF* tiff = open_limits_detail::WritableOrClosed(TIFFOpenExt(path, mode, options.get()), mode);
    NoteDirectoryChanged(tiff, ReadsDirectory(mode));
    return tiff;
}

// TIFFClientOpen with the allocation bound.
inline TIFF* OpenBoundedClient(const char* name, const char* mode, thandle_t client, TIFFReadWriteProc read,
                               TIFFReadWriteProc write, TIFFSeekProc seek, TIFFCloseProc close,
                               TIFFSizeProc size, TIFFMapFileProc map, TIFFUnmapFileProc unmap) {
    const auto options = open_limits_detail::Bounded();
    if (!options) return nullptr;
    TIFF* tiff = open_limits_detail::WritableOrClosed(
        TIFFClientOpenExt(name, mode, client, read, write, seek, close, size, map, unmap, options.get()),
        mode);
    NoteDirectoryChanged(tiff, ReadsDirectory(mode));
    return tiff;
}

}  // namespace tqv

#endif  // TQV_SESSION_OPEN_LIMITS_H
