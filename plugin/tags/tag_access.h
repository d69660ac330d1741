// What every tag, directory and scanline operation needs: the session's libtiff handle, the
// room of a host memory block, and the shape of a field as libtiff really defines it.
//
// libtiff's get and set calls are variadic: the caller must pass exactly the argument shape the
// field's definition asks for, or libtiff reads and writes through the wrong types. Where a host
// program chooses the tag and the value type, the plugin looks the definition up first
// (TIFFFindField) and calls libtiff only with a matching shape; getters hand libtiff scratch slots
// wide enough for anything it may write.
#ifndef TQV_TAGS_TAG_ACCESS_H
#define TQV_TAGS_TAG_ACCESS_H

#include <tiffio.h>
#include <tqv/plugin_abi.h>

#include <cstdint>
#include <cstring>
#include <span>

namespace tqv {

// The open handle of `self`, or nil. SessionTiff also makes `self` the message target.
TIFF* OpenTiffOf(REALobject self);
TIFF* SessionTiff(REALobject self);

// True when the block has room for `bytes` bytes. A block whose size the host does not know
// (a wrapped pointer) is taken at the caller's word.
bool BlockHolds(REALmemoryBlock block, int64_t bytes);

// TIFFScanlineSize as a host integer: 0 when libtiff fails or the row is wider than a host
// integer can count.
int32_t ScanlineBytes(TIFF* tiff);

// Raises "NilObjectException" with `message` when `value` is nil; true when it raised.
bool RaiseIfNil(const void* value, const char* message);

// libtiff writes at most three outputs, none wider than 8 bytes; four 16-byte slots cover every
// tag, whatever output type the caller had in mind.
struct alignas(16) ScratchSlot {
    unsigned char bytes[16];
};
struct Scratch {
    ScratchSlot slot[4]{};
    template <typename T>
    T As(int index) const {
        T value;
        std::memcpy(&value, slot[index].bytes, sizeof value);
        return value;
    }
};

enum class Read { Plain, Defaulted };
// TIFFGetField or TIFFGetFieldDefaulted into the scratch slots; libtiff's result. A defaulted read
// of a tag whose default libtiff cannot compute safely for this directory is a plain read.
int GetIntoScratch(TIFF* tiff, uint32_t tag, Read read, Scratch& scratch);

// TIFF's own data type codes: 1 to 13, and BigTIFF's 16 to 18.
bool IsTiffType(int type);

// How the value of a field travels through TIFFSetField.
enum class SetArgument {
    Unknown,  // libtiff does not know the tag: it refuses before reading any argument
    Int,      // one int (every integer type up to 32 bits)
    IntPair,  // two ints (PageNumber, HalftoneHints, YCbCrSubsampling)
    Double,   // one double (every floating and rational scalar)
    Text,     // one char*
    Counted,  // a count (int or uint32) and a pointer to the values
    Other,    // pointers, 64-bit values, per-sample arrays: no generic family fits
};

// The tags a codec's own field setter takes in libtiff 4.5, in its own form and into its own
// state, while the codec is the image's.
std::span<const uint32_t> TagsSetByCodec(uint16_t compression);
// Whether any codec takes the tag so (Predictor, JPEGTables, the fax tags, ...).
bool IsCodecTag(uint32_t tag);

// libtiff keeps a definition's name pointer for the life of the handle, and handles outlive any
// one call: names given to AddCustomTag live for the process (one copy of each distinct name).
char* KeepFieldName(const char* name);

// Whether the definition is libtiff's own: neither one libtiff made for a tag met in a file
// (anonymous) nor one the program gave (AddCustomTag).
bool IsCodecDefinition(const TIFFField* field);

struct FieldShape {
    const TIFFField* field = nullptr;
    // A plain integer: libtiff keeps a file's own type code for a tag it met there (513, 65535,
    // ...), which no TIFFDataType value stands for.
    int type = TIFF_NOTYPE;
    int readCount = 0;
    int writeCount = 0;
    bool passCount = false;
    int elementSize = 0;  // bytes of one value as libtiff takes and hands it out
    // InkNames: set with a count and the NUL-separated names, handed out as one char* only.
    bool inkNames = false;
    // A definition libtiff made itself for a tag met in a file before the current codec defined
    // it (AddCustomTag declares no codec tag): that codec's own setter and getter take the tag in their own
    // form (old-style JPEG's offsets as uint64, LERC's parameters as ints, ...), not the definition's, and
    // keep its value where the directory writer never looks.
    bool codecOwn = false;

    bool Known() const { return field != nullptr; }
    // Whether the definition says how the value travels. libtiff has none for a type code outside
    // TIFF's own (its writer aborts on 14 and 15, a file's unknown codes get no size), nor for a
    // codec's tag under a definition not its own: such a field takes no value of any family.
    bool HasForm() const;
    bool Text() const { return HasForm() && type == TIFF_ASCII; }
    // Bytes of the count that TIFFGetField writes first for a counted field; 0 for none.
    int GetCountSize() const;
    // TIFFSetField takes the count as uint32 (else as int).
    bool SetCountIsUInt32() const { return writeCount == TIFF_VARIABLE2; }
    SetArgument SetArgumentKind() const;
    // Bytes of TIFFGetField's first and second outputs.
    int FirstOutputWidth() const;
    int SecondOutputWidth() const;
};

FieldShape ShapeOf(TIFF* tiff, uint32_t tag);

}  // namespace tqv

#endif  // TQV_TAGS_TAG_ACCESS_H
