#include "tags/tag_access.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <span>
#include <string>

#include "bridge/services.h"
#include "bridge/values.h"
#include "session/messages.h"
#include "session/tiff_data.h"

namespace tqv {
namespace {

bool IsIntegerType(int type) {
    switch (type) {
        case TIFF_BYTE:
        case TIFF_SBYTE:
        case TIFF_SHORT:
        case TIFF_SSHORT:
        case TIFF_LONG:
        case TIFF_SLONG:
        case TIFF_UNDEFINED:
        case TIFF_IFD:
            return true;
        default:
            return false;
    }
}

bool IsFloatingType(int type) {
    return type == TIFF_RATIONAL || type == TIFF_SRATIONAL || type == TIFF_FLOAT || type == TIFF_DOUBLE;
}

// Codec pseudo-tags (JPEGQuality, FaxMode, ...) have no counts; their value is an int, a double
// (LercMaximumError), a uint16 (PerSample) or a function pointer (FaxFillFunc).
SetArgument PseudoArgument(const FieldShape& shape) {
    if (shape.elementSize == 8) return SetArgument::Double;
    if (shape.elementSize == 4 || shape.type == TIFF_SHORT) return SetArgument::Int;
    return SetArgument::Other;
}

// Built-in per-sample shorts (SampleFormat, MinSampleValue, ...) are set and read as one uint16.
bool IsPerSampleShort(const FieldShape& shape) {
    return shape.writeCount < 0 && shape.type == TIFF_SHORT && shape.elementSize == 2;
}

}  // namespace

// Every other tag reaches the directory's setter, which follows the definition.
std::span<const uint32_t> TagsSetByCodec(uint16_t compression) {
    static constexpr uint32_t kOldJpeg[] = {
        TIFFTAG_JPEGPROC,    TIFFTAG_JPEGIFOFFSET, TIFFTAG_JPEGIFBYTECOUNT, TIFFTAG_JPEGRESTARTINTERVAL,
        TIFFTAG_JPEGQTABLES, TIFFTAG_JPEGDCTABLES, TIFFTAG_JPEGACTABLES};
    static constexpr uint32_t kJpeg[] = {TIFFTAG_JPEGTABLES};
    static constexpr uint32_t kPredictor[] = {TIFFTAG_PREDICTOR};
    static constexpr uint32_t kFax[] = {TIFFTAG_GROUP3OPTIONS,
                                        TIFFTAG_GROUP4OPTIONS,
                                        TIFFTAG_BADFAXLINES,
                                        TIFFTAG_CLEANFAXDATA,
                                        TIFFTAG_CONSECUTIVEBADFAXLINES,
                                        TIFFTAG_FAXRECVPARAMS,
                                        TIFFTAG_FAXSUBADDRESS,
                                        TIFFTAG_FAXRECVTIME,
                                        TIFFTAG_FAXDCS};
    static constexpr uint32_t kLerc[] = {TIFFTAG_LERC_PARAMETERS};
    switch (compression) {
        case COMPRESSION_OJPEG:
            return kOldJpeg;
        case COMPRESSION_JPEG:
            return kJpeg;
        case COMPRESSION_LZW:
        case COMPRESSION_ADOBE_DEFLATE:
        case COMPRESSION_DEFLATE:
        case COMPRESSION_LZMA:
        case COMPRESSION_ZSTD:
        case COMPRESSION_PIXARLOG:
            return kPredictor;
        case COMPRESSION_CCITTRLE:
        case COMPRESSION_CCITTRLEW:
        case COMPRESSION_CCITTFAX3:
        case COMPRESSION_CCITTFAX4:
            return kFax;
        case COMPRESSION_LERC:
            return kLerc;
        default:
            return {};
    }
}

bool IsCodecTag(uint32_t tag) {
    // One compression of each codec family covers every list above.
    for (const uint16_t compression :
         {COMPRESSION_OJPEG, COMPRESSION_JPEG, COMPRESSION_LZW, COMPRESSION_CCITTFAX3, COMPRESSION_LERC}) {
        const std::span<const uint32_t> tags = TagsSetByCodec(compression);
        if (std::find(tags.begin(), tags.end(), tag) != tags.end()) return true;
    }
    return false;
}

namespace {

std::set<std::string>& KeptNames() {
    static auto* names = new std::set<std::string>;
    return *names;
}

bool CodecSetsItself(TIFF* tiff, uint32_t tag) {
    uint16_t compression = COMPRESSION_NONE;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &compression);
    const std::span<const uint32_t> tags = TagsSetByCodec(compression);
    return std::find(tags.begin(), tags.end(), tag) != tags.end();
}

uint16_t DefaultedShort(TIFF* tiff, uint32_t tag) {
    uint16_t value = 0;
    TIFFGetFieldDefaulted(tiff, tag, &value);
    return value;
}

// Whether libtiff's default for a tag the directory does not hold is defined. It takes the
// codec state for a predictor's whatever the codec (a type-confused read for JPEG or fax), and
// shifts by BitsPerSample in an int for DotRange and in a long for RGB ReferenceBlackWhite.
// TransferFunction needs no guard: libtiff refuses depths of 62 bits and more, and tables above
// the handle's allocation bound, itself.
bool LibtiffDefaultIsDefined(TIFF* tiff, uint32_t tag) {
    switch (tag) {
        case TIFFTAG_PREDICTOR:
            return CodecSetsItself(tiff, tag);
        case TIFFTAG_DOTRANGE:
            return DefaultedShort(tiff, TIFFTAG_BITSPERSAMPLE) < 31;
        case TIFFTAG_REFERENCEBLACKWHITE: {
            uint16_t photometric = 0;
            const bool yCbCr = TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric) == 1 &&
                               photometric == PHOTOMETRIC_YCBCR;
            return yCbCr || DefaultedShort(tiff, TIFFTAG_BITSPERSAMPLE) < 63;
        }
        default:
            return true;
    }
}

}  // namespace

char* KeepFieldName(const char* name) {
    // libtiff never writes through field_name; the record type merely lacks the const.
    return const_cast<char*>(KeptNames().insert(name).first->c_str());
}

bool IsCodecDefinition(const TIFFField* field) {
    if (field == nullptr || TIFFFieldIsAnonymous(field)) return false;
    const char* name = TIFFFieldName(field);
    if (name == nullptr) return true;
    const auto kept = KeptNames().find(name);
    return kept == KeptNames().end() || kept->c_str() != name;
}

TIFF* OpenTiffOf(REALobject self) {
    TiffData* record = TiffDataOf(self);
    return record != nullptr ? record->tiff : nullptr;
}

TIFF* SessionTiff(REALobject self) {
    if (self != nullptr) current = self;
    return OpenTiffOf(self);
}

bool BlockHolds(REALmemoryBlock block, int64_t bytes) {
    if (block == nullptr) return false;
    const int32_t size = REALMemoryBlockGetSize(block);
    return size == REAL_MEMORYBLOCK_UNKNOWN_SIZE || bytes <= size;
}

int32_t ScanlineBytes(TIFF* tiff) {
    if (tiff == nullptr) return 0;
    const tmsize_t size = TIFFScanlineSize(tiff);
    return size > 0 && size <= INT32_MAX ? static_cast<int32_t>(size) : 0;
}

bool RaiseIfNil(const void* value, const char* message) {
    if (value != nullptr) return false;
    RaiseException("NilObjectException", message, kREALTextEncodingASCII);
    return true;
}

int GetIntoScratch(TIFF* tiff, uint32_t tag, Read read, Scratch& scratch) {
    scratch = Scratch{};
    auto* s = scratch.slot;
    // Where libtiff's default is undefined, only a value the directory holds is given.
    if (read == Read::Defaulted && LibtiffDefaultIsDefined(tiff, tag))
        return TIFFGetFieldDefaulted(tiff, tag, &s[0], &s[1], &s[2], &s[3]);
    return TIFFGetField(tiff, tag, &s[0], &s[1], &s[2], &s[3]);
}

FieldShape ShapeOf(TIFF* tiff, uint32_t tag) {
    FieldShape shape;
    shape.field = tiff != nullptr ? TIFFFindField(tiff, tag, TIFF_ANY) : nullptr;
    if (shape.field == nullptr) return shape;
    shape.type = static_cast<int>(TIFFFieldDataType(shape.field));
    shape.readCount = TIFFFieldReadCount(shape.field);
    shape.writeCount = TIFFFieldWriteCount(shape.field);
    shape.passCount = TIFFFieldPassCount(shape.field) != 0;
    shape.elementSize = TIFFFieldSetGetSize(shape.field);
    shape.inkNames = tag == TIFFTAG_INKNAMES;
    shape.codecOwn = !IsCodecDefinition(shape.field) && CodecSetsItself(tiff, tag);
    return shape;
}

bool IsTiffType(int type) {
    return (type >= TIFF_BYTE && type <= TIFF_IFD) || (type >= TIFF_LONG8 && type <= TIFF_IFD8);
}

// libtiff's own definitions use no type (TIFF_ANY) for pseudo-tags and SMin/SMaxSampleValue.
bool FieldShape::HasForm() const {
    return Known() && (type == TIFF_NOTYPE || IsTiffType(type)) && !codecOwn;
}

int FieldShape::GetCountSize() const {
    if (!passCount || inkNames) return 0;
    return readCount == TIFF_VARIABLE2 ? 4 : 2;
}

SetArgument FieldShape::SetArgumentKind() const {
    if (!Known()) return SetArgument::Unknown;
    if (!HasForm()) return SetArgument::Other;
    if (passCount) return SetArgument::Counted;
    if (type == TIFF_ASCII) return SetArgument::Text;
    if (readCount == 0 && writeCount == 0) return PseudoArgument(*this);
    if (type == TIFF_SHORT && readCount == 2 && elementSize == 4) return SetArgument::IntPair;
    // libtiff copies elementSize bytes from a local of the width it reads the int into: a private
    // IFD field (8-byte values) would be copied from beyond a 4-byte local.
    if (IsIntegerType(type) && elementSize <= 4 && (writeCount == 1 || IsPerSampleShort(*this)))
        return SetArgument::Int;
    if (IsFloatingType(type) && writeCount == 1) return SetArgument::Double;
    return SetArgument::Other;
}

int FieldShape::FirstOutputWidth() const {
    if (inkNames) return static_cast<int>(sizeof(char*));
    switch (SetArgumentKind()) {
        case SetArgument::Unknown:
            return 0;
        case SetArgument::Counted:
            return GetCountSize();
        case SetArgument::IntPair:
            return 2;
        case SetArgument::Int:
            if (readCount == 0) return type == TIFF_SHORT ? 2 : 4;
            return elementSize;
        case SetArgument::Double:
            return elementSize;
        default:
            return static_cast<int>(sizeof(void*));  // a pointer, a 64-bit value or a double
    }
}

int FieldShape::SecondOutputWidth() const {
    if (inkNames) return 0;
    switch (SetArgumentKind()) {
        case SetArgument::Counted:
            return static_cast<int>(sizeof(void*));
        case SetArgument::IntPair:
            return 2;
        default:
            return 0;
    }
}

}  // namespace tqv
