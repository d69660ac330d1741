// In-memory TIFFs: a session reading a TIFF held in a host string, or writing one into a growing
// buffer that the program takes out as the OutputBuffer string; and the two global conversions.
//
// Both are libtiff client streams over fields of the session record. Positions follow 32-bit
// arithmetic (libtiff is told the low 32 bits), but no callback ever reads or writes outside the
// input bytes or the output buffer.
#ifndef TQV_SESSION_STREAMS_H
#define TQV_SESSION_STREAMS_H

#include <tiffio.h>
#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

struct TiffData;

// The output buffer starts at the requested size but at least this, and grows to the end of a
// write that does not fit plus this.
inline constexpr int64_t kOutputStep = 1048576;

// Whether nothing written through `tiff` can reach its file: a handle open for reading, or one
// on the bytes of a string, which every mode opens for reading only.
bool WritesNothing(TIFF* tiff);

// Cleans the record, then opens `data` (its bytes exactly as the host stores them) for reading.
// On failure the string stays held until the next clean-up.
bool OpenStringRecord(TiffData* record, REALstring data);

// "OpenString(data as string) as boolean"
bool OpenStringTiff1(REALobject self, REALstring data);
// "OpenString(data as string, Mode as string) as boolean": libtiff's mode letters (nil: "").
bool OpenStringTiff2(REALobject self, REALstring data, REALstring mode);
// "CreateString(Size as integer) as boolean": mode "w".
bool CreateStringTiff1(REALobject self, int32_t size);
// "CreateString(Size as integer, Mode as string) as boolean"
bool CreateStringTiff2(REALobject self, int32_t size, REALstring mode);

// Property "InputBuffer": the string given to the last OpenString (the same string), or nil.
REALstring GetInputBuffer(REALobject self, intptr_t param);
// Property "OutputBuffer": a binary (0xFFFF) copy of the bytes written so far, or nil.
REALstring GetOutputBuffer(REALobject self, intptr_t param);

// "TIFFStringToTiffPictureTQV(data as string) as TiffPictureTQV": a new session on `data`.
REALobject TIFFStringToTiffPictureTQV(REALstring data);
// "TIFFStringToPictureTQV(data as string) as picture": the first image with its mask attached.
REALpicture TIFFStringToPictureTQV(REALstring data);

}  // namespace tqv

#endif  // TQV_SESSION_STREAMS_H
