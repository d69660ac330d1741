#include "tags/value_guard.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "session/open_limits.h"

namespace tqv {
namespace {

// The tags libtiff's directory keeps in fields of its own (libtiff 4.5's setter handles each by
// name); every other tag it knows holds a custom value.
bool DirectoryField(uint32_t tag) {
    static constexpr uint32_t kTags[] = {TIFFTAG_SUBFILETYPE,      TIFFTAG_IMAGEWIDTH,
                                         TIFFTAG_IMAGELENGTH,      TIFFTAG_BITSPERSAMPLE,
                                         TIFFTAG_COMPRESSION,      TIFFTAG_PHOTOMETRIC,
                                         TIFFTAG_THRESHHOLDING,    TIFFTAG_FILLORDER,
                                         TIFFTAG_ORIENTATION,      TIFFTAG_SAMPLESPERPIXEL,
                                         TIFFTAG_ROWSPERSTRIP,     TIFFTAG_MINSAMPLEVALUE,
                                         TIFFTAG_MAXSAMPLEVALUE,   TIFFTAG_XRESOLUTION,
                                         TIFFTAG_YRESOLUTION,      TIFFTAG_PLANARCONFIG,
                                         TIFFTAG_XPOSITION,        TIFFTAG_YPOSITION,
                                         TIFFTAG_RESOLUTIONUNIT,   TIFFTAG_PAGENUMBER,
                                         TIFFTAG_TRANSFERFUNCTION, TIFFTAG_HALFTONEHINTS,
                                         TIFFTAG_INKNAMES,         TIFFTAG_NUMBEROFINKS,
                                         TIFFTAG_COLORMAP,         TIFFTAG_EXTRASAMPLES,
                                         TIFFTAG_SAMPLEFORMAT,     TIFFTAG_SMINSAMPLEVALUE,
                                         TIFFTAG_SMAXSAMPLEVALUE,  TIFFTAG_YCBCRSUBSAMPLING,
                                         TIFFTAG_YCBCRPOSITIONING, TIFFTAG_REFERENCEBLACKWHITE,
                                         TIFFTAG_MATTEING,         TIFFTAG_DATATYPE,
                                         TIFFTAG_IMAGEDEPTH,       TIFFTAG_TILEWIDTH,
                                         TIFFTAG_TILELENGTH,       TIFFTAG_TILEDEPTH,
                                         TIFFTAG_SUBIFD,           TIFFTAG_PERSAMPLE};
    return std::find(std::begin(kTags), std::end(kTags), tag) != std::end(kTags);
}

// The number of values a custom set carries, read from `ap` (unread for the setter) as libtiff's
// setter reads it.
uint64_t CountOf(const TIFFField* field, TIFF* tiff, va_list ap) {
    const int writeCount = TIFFFieldWriteCount(field);
    if (TIFFFieldDataType(field) == TIFF_ASCII) {
        if (TIFFFieldPassCount(field)) return PeekArgument<uint32_t>(ap);
        const char* text = PeekArgument<const char*>(ap);
        return text != nullptr ? std::strlen(text) + 1 : 0;
    }
    if (TIFFFieldPassCount(field)) {
        // A count passed as int is stored as uint32: a negative one asks for billions of values.
        return writeCount == TIFF_VARIABLE2 ? PeekArgument<uint32_t>(ap)
                                            : static_cast<uint32_t>(PeekArgument<int>(ap));
    }
    if (writeCount == TIFF_VARIABLE || writeCount == TIFF_VARIABLE2) return 1;
    if (writeCount == TIFF_SPP) {
        uint16_t samples = 1;
        TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
        return samples;
    }
    return writeCount > 0 ? static_cast<uint64_t>(writeCount) : 0;
}

}  // namespace

int FitCustomValue(TIFF* tiff, uint32_t tag, va_list ap) {
    const TIFFField* field = TIFFFindField(tiff, tag, TIFF_ANY);
    if (field == nullptr) return -1;  // libtiff refuses an unknown tag before it touches anything
    const char* name = TIFFFieldName(field) != nullptr ? TIFFFieldName(field) : "Tag";
    if (tag == TIFFTAG_SUBIFD) {
        if (static_cast<uint16_t>(PeekArgument<int>(ap)) != 0) return -1;  // read as uint16_vap
        TIFFErrorExtR(tiff, name, "A SubIFD tag needs at least one offset");
        return 0;
    }
    if (DirectoryField(tag)) return -1;
    const int size = TIFFFieldSetGetSize(field);
    if (size == 0) {
        TIFFErrorExtR(tiff, name, "Bad field type %d for \"%s\"", static_cast<int>(TIFFFieldDataType(field)),
                      name);
        return 0;
    }
    const uint64_t count = CountOf(field, tiff, ap);
    // Counted text of no bytes is stored as an empty value, which libtiff writes; values of any
    // other type need at least one.
    if (count == 0 && TIFFFieldDataType(field) != TIFF_ASCII) {
        TIFFErrorExtR(tiff, name, "Null count for \"%s\"", name);
        return 0;
    }
    if (count > static_cast<uint64_t>(kMaxLibtiffAllocation) / static_cast<uint64_t>(size)) {
        TIFFErrorExtR(tiff, name, "A value of %llu items is more than a tag can hold",
                      static_cast<unsigned long long>(count));
        return 0;
    }
    return -1;
}

}  // namespace tqv
