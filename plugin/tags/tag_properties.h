// The typed tag properties of TiffPictureTQV, one getter and one setter per row of the tables
// below. Every accessor makes its object the message target, reads or writes one tag of the
// current directory, and gives the no-file value (0, 0.0, nil) when nothing is open or libtiff
// reports the tag absent; setters with nothing open do nothing.
#ifndef TQV_TAGS_TAG_PROPERTIES_H
#define TQV_TAGS_TAG_PROPERTIES_H

#include <tiffio.h>
#include <tqv/plugin_abi.h>

#include <cstdint>

// X(Name, tag): uint16 tags read with their libtiff default; the setter passes the low 16 bits.
#define TQV_SHORT_TAGS(X)                       \
    X(FillOrder, TIFFTAG_FILLORDER)             \
    X(BitsPerSample, TIFFTAG_BITSPERSAMPLE)     \
    X(SamplesPerPixel, TIFFTAG_SAMPLESPERPIXEL) \
    X(Orientation, TIFFTAG_ORIENTATION)         \
    X(ResolutionUnit, TIFFTAG_RESOLUTIONUNIT)   \
    X(Compression, TIFFTAG_COMPRESSION)         \
    X(Photometric, TIFFTAG_PHOTOMETRIC)         \
    X(PlanarConfig, TIFFTAG_PLANARCONFIG)

// X(Name, tag): 32-bit tags read without a default (absent reads 0); the setter passes the whole
// integer.
#define TQV_LONG_TAGS(X)                \
    X(JPEGQuality, TIFFTAG_JPEGQUALITY) \
    X(Width, TIFFTAG_IMAGEWIDTH)        \
    X(Height, TIFFTAG_IMAGELENGTH)      \
    X(RowsPerStrip, TIFFTAG_ROWSPERSTRIP)

// X(Name, tag, non-negative): float tags read with their default; positions are written as 0 when
// negative, because libtiff 4.5 cannot write a directory holding a negative position.
#define TQV_FLOAT_TAGS(X)                               \
    X(HorizontalResolution, TIFFTAG_XRESOLUTION, false) \
    X(VerticalResolution, TIFFTAG_YRESOLUTION, false)   \
    X(HorizontalPosition, TIFFTAG_XPOSITION, true)      \
    X(VerticalPosition, TIFFTAG_YPOSITION, true)

// X(Name, tag): ASCII tags, written as UTF-8 and read back labelled ASCII; empty reads nil.
#define TQV_STRING_TAGS(X)                        \
    X(Copyright, TIFFTAG_COPYRIGHT)               \
    X(DateTime, TIFFTAG_DATETIME)                 \
    X(DocumentName, TIFFTAG_DOCUMENTNAME)         \
    X(HostComputer, TIFFTAG_HOSTCOMPUTER)         \
    X(ImageDescription, TIFFTAG_IMAGEDESCRIPTION) \
    X(Make, TIFFTAG_MAKE)                         \
    X(Model, TIFFTAG_MODEL)                       \
    X(PageName, TIFFTAG_PAGENAME)                 \
    X(Software, TIFFTAG_SOFTWARE)

namespace tqv {

#define TQV_DECLARE_INTEGER_ACCESSORS(Name, ...)        \
    int32_t Get##Name(REALobject self, intptr_t param); \
    void Set##Name(REALobject self, intptr_t param, int32_t value);
#define TQV_DECLARE_FLOAT_ACCESSORS(Name, ...)        \
    float Get##Name(REALobject self, intptr_t param); \
    void Set##Name(REALobject self, intptr_t param, float value);
#define TQV_DECLARE_STRING_ACCESSORS(Name, ...)             \
    REALstring tGet##Name(REALobject self, intptr_t param); \
    void tSet##Name(REALobject self, intptr_t param, REALstring value);

TQV_SHORT_TAGS(TQV_DECLARE_INTEGER_ACCESSORS)
TQV_LONG_TAGS(TQV_DECLARE_INTEGER_ACCESSORS)
TQV_FLOAT_TAGS(TQV_DECLARE_FLOAT_ACCESSORS)
TQV_STRING_TAGS(TQV_DECLARE_STRING_ACCESSORS)

#undef TQV_DECLARE_INTEGER_ACCESSORS
#undef TQV_DECLARE_FLOAT_ACCESSORS
#undef TQV_DECLARE_STRING_ACCESSORS

// One uint16 per extra sample (libtiff's codes, machine order), or nil when there are none.
REALmemoryBlock GetExtraSamples(REALobject self, intptr_t param);
// size / 2 samples from the block; nil sets none.
void SetExtraSamples(REALobject self, intptr_t param, REALmemoryBlock value);

// TIFFScanlineSize of the current directory; 0 when it does not fit a host integer.
int32_t GetBytesPerRow(REALobject self, intptr_t param);
// Always 20100615, whether or not a file is open; does not change the message target.
int32_t GetVersion(REALobject self, intptr_t param);
// libtiff's version banner, ASCII; does not change the message target.
REALstring GetVersionString(REALobject self, intptr_t param);

}  // namespace tqv

#endif  // TQV_TAGS_TAG_PROPERTIES_H
