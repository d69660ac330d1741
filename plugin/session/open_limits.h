// Every libtiff handle the plugin opens goes through these, so that one hostile file cannot make
// libtiff ask for more memory in one block than a real image of the sizes the host can take
// needs: a few bytes may claim strips that decode to gigabytes. They also record the layout of
// the directory libtiff read (see RowsReadable), and keep files whose directories libtiff's writer
// cannot extend from being opened for writing (directory_chain.h).
#ifndef TQV_SESSION_OPEN_LIMITS_H
#define TQV_SESSION_OPEN_LIMITS_H

#include <fcntl.h>
#include <sys/stat.h>
#include <tiffio.h>
#include <unistd.h>

#include <cerrno>
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

// The flags libtiff's TIFFOpen opens a path with for `mode`; -1 for a mode libtiff refuses.
inline int OpenFlags(const char* mode) {
    switch (mode[0]) {
        case 'r':
            return mode[1] == '+' ? O_RDWR : O_RDONLY;
        case 'w':
            return O_RDWR | O_CREAT | O_TRUNC;
        case 'a':
            return O_RDWR | O_CREAT;
        default:
            return -1;
    }
}

// Opens `path` as TIFFOpen does, with its messages, but without waiting: open() and every read
// of a named pipe no program writes to block for good. libtiff seeks, so it can neither read nor
// write a TIFF through a pipe or socket: those are refused with an Error. Directories and devices
// go on to libtiff, which answers for them as it always has. -1 once the failure is reported.
inline int OpenWithoutWaiting(const char* path, int flags) {
    constexpr const char* kModule = "TIFFOpen";
    const int fd = open(path, flags | O_NONBLOCK, 0666);
    if (fd < 0) {
        const char* reason = errno > 0 ? std::strerror(errno) : nullptr;
        TIFFErrorExtR(nullptr, kModule, "%s: %s", path, reason != nullptr ? reason : "Cannot open");
        return -1;
    }
    // Asked of the descriptor, not the path: what is checked is what libtiff gets.
    struct stat status;
    if (fstat(fd, &status) != 0 || S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode)) {
        close(fd);
        TIFFErrorExtR(nullptr, kModule, "%s: Cannot use a pipe or socket: a TIFF file must allow seeking",
                      path);
        return -1;
    }
    const int statusFlags = fcntl(fd, F_GETFL);
    if (statusFlags == -1 || fcntl(fd, F_SETFL, statusFlags & ~O_NONBLOCK) == -1) {
        const char* reason = std::strerror(errno);
        close(fd);
        TIFFErrorExtR(nullptr, kModule, "%s: %s", path, reason != nullptr ? reason : "Cannot open");
        return -1;
    }
    return fd;
}

// TIFFOpenExt through OpenWithoutWaiting.
inline TIFF* OpenPathExt(const char* path, const char* mode, TIFFOpenOptions* options) {
    const int flags = OpenFlags(mode);
    // libtiff reports a bad mode itself, before it opens anything.
    if (flags == -1) return TIFFOpenExt(path, mode, options);
    const int fd = OpenWithoutWaiting(path, flags);
    if (fd == -1) return nullptr;
    TIFF* tiff = TIFFFdOpenExt(fd, path, mode, options);
    if (tiff == nullptr) close(fd);
    return tiff;
}
}  // namespace open_limits_detail

// Whether libtiff reads the first directory when it opens with `mode`: "w" creates a file and
// "a" begins a new directory to append, both for writing.
inline bool ReadsDirectory(const char* mode) {
    return std::strpbrk(mode, "wa") == nullptr;
}

// TIFFOpen with the allocation bound, refusing pipes and sockets; nil when the options cannot be
// made either.
inline TIFF* OpenBoundedFile(const char* path, const char* mode) {
    const auto options = open_limits_detail::Bounded();
    if (!options) return nullptr;
    TIFF* tiff = open_limits_detail::WritableOrClosed(
        open_limits_detail::OpenPathExt(path, mode, options.get()), mode);
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
