#include "session/directory_chain.h"

#include <fcntl.h>

#include <cstdint>
#include <cstring>
#include <optional>

namespace tqv {
namespace {

constexpr const char* kModule = "TIFFOpen";

// libtiff writes BigTIFF directories when the mode that creates or appends has an "8", whatever
// the header of a file it appends to says; TIFFIsBigTIFF tells what the header says.
bool WritesBig(const char* mode) {
    return (mode[0] == 'w' || mode[0] == 'a') && std::strchr(mode, '8') != nullptr;
}

// Reads the file through the handle's own procedures, seeking and reading as the writer does,
// so that the walk below meets exactly the bytes, offsets and failures the writer would meet.
class ChainReader {
  public:
    explicit ChainReader(TIFF* tiff)
        : client_(TIFFClientdata(tiff)),
          read_(TIFFGetReadProc(tiff)),
          seek_(TIFFGetSeekProc(tiff)),
          swab_(TIFFIsByteSwapped(tiff) != 0),
          big_(TIFFIsBigTIFF(tiff) != 0),
          start_(seek_(client_, 0, SEEK_CUR)) {}
    // The handle's position is libtiff's: it is left where it was found.
    ~ChainReader() { seek_(client_, start_, SEEK_SET); }
    ChainReader(const ChainReader&) = delete;
    ChainReader& operator=(const ChainReader&) = delete;

    // The first directory's offset in the header; nullopt when the header cannot be read.
    std::optional<uint64_t> FirstDirectory() const {
        if (big_) return ReadOffset64(8);
        uint32_t first = 0;
        if (!ReadAt(4, &first, 4)) return std::nullopt;
        if (swab_) TIFFSwabLong(&first);
        return first;
    }

    // The link of the directory at `offset`, computed as TIFFLinkDirectory computes it; nullopt
    // where the writer stops with an error.
    std::optional<uint64_t> Next(uint64_t offset) const {
        return big_ ? NextBig(offset) : NextClassic(offset);
    }

  private:
    // As libtiff's SeekOK and ReadOK: an offset above the largest signed size is refused.
    bool ReadAt(uint64_t offset, void* bytes, tmsize_t size) const {
        if (offset > static_cast<uint64_t>(INT64_MAX) || seek_(client_, offset, SEEK_SET) != offset)
            return false;
        return Read(bytes, size);
    }
    bool Read(void* bytes, tmsize_t size) const { return read_(client_, bytes, size) == size; }
    std::optional<uint64_t> ReadOffset64(uint64_t offset) const {
        uint64_t value = 0;
        if (!ReadAt(offset, &value, 8)) return std::nullopt;
        if (swab_) TIFFSwabLong8(&value);
        return value;
    }

    std::optional<uint64_t> NextClassic(uint64_t offset) const {
        uint16_t count = 0;
        if (!ReadAt(offset, &count, 2)) return std::nullopt;
        if (swab_) TIFFSwabShort(&count);
        // The writer's sum is 32-bit and its seek unchecked: the link is read wherever it lands.
        const uint32_t link = static_cast<uint32_t>(offset) + 2u + count * 12u;
        seek_(client_, link, SEEK_SET);
        uint32_t next = 0;
        if (!Read(&next, 4)) return std::nullopt;
        if (swab_) TIFFSwabLong(&next);
        return next;
    }
    std::optional<uint64_t> NextBig(uint64_t offset) const {
        const auto count = ReadOffset64(offset);
        if (!count || *count > 0xFFFF) return std::nullopt;
        seek_(client_, offset + 8 + *count * 20, SEEK_SET);
        uint64_t next = 0;
        if (!Read(&next, 8)) return std::nullopt;
        if (swab_) TIFFSwabLong8(&next);
        return next;
    }

    thandle_t client_;
    TIFFReadWriteProc read_;
    TIFFSeekProc seek_;
    bool swab_;
    bool big_;
    toff_t start_;
};

// Follows the chain as the writer does (Brent's cycle detection: no memory per directory and at
// most about three links read per directory). Gives an offset the chain reaches again, or 0 when
// it ends: at a zero link, or at a directory the writer cannot read, where it fails instead.
uint64_t LoopingOffset(const ChainReader& reader, uint64_t first) {
    uint64_t tortoise = first;
    std::optional<uint64_t> hare = reader.Next(first);
    uint64_t power = 1;
    uint64_t length = 1;
    while (hare && *hare != 0) {
        if (*hare == tortoise) return tortoise;
        if (length == power) {
            tortoise = *hare;
            power *= 2;
            length = 0;
        }
        hare = reader.Next(*hare);
        ++length;
    }
    return 0;
}

bool ChainWritable(TIFF* tiff, const char* mode) {
    if (WritesBig(mode) && TIFFIsBigTIFF(tiff) == 0) {
        TIFFErrorExtR(tiff, kModule,
                      "Cannot append BigTIFF directories (mode with \"8\") to a classic TIFF file; append "
                      "without \"8\"");
        return false;
    }
    const ChainReader reader(tiff);
    const std::optional<uint64_t> first = reader.FirstDirectory();
    if (!first || *first == 0) return true;
    const uint64_t loop = LoopingOffset(reader, *first);
    if (loop == 0) return true;
    TIFFErrorExtR(tiff, kModule,
                  "The directory chain loops back to the directory at offset %llu; a file whose chain "
                  "loops opens for reading only",
                  static_cast<unsigned long long>(loop));
    return false;
}

}  // namespace

bool DirectoriesWritable(TIFF* tiff, const char* mode) {
    return tiff == nullptr || TIFFGetMode(tiff) == O_RDONLY || ChainWritable(tiff, mode);
}

}  // namespace tqv
