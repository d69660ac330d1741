// The instance record of a TiffPictureTQV object and its life cycle.
#ifndef TQV_SESSION_TIFF_DATA_H
#define TQV_SESSION_TIFF_DATA_H

#include <tiffio.h>
#include <tqv/plugin_abi.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "bridge/memory.h"
#include "bridge/text.h"
#include "bridge/yield.h"

namespace tqv {

// Lies inside each host object at the class's data offset; the host hands it over zero-filled.
// The field order is public: code outside the plugin that is handed a record reads the six
// library addresses at its end.
struct TiffData {
    REALpicture Mask;                // held mask picture, one lock
    REALpicture Pict;                // held picture, one lock
    TIFF* tiff;                      // the open TIFF (file or memory stream), or nil
    int32_t outputCapacity;          // allocated bytes of outputHandle
    int32_t outputLength;            // highest byte offset written to the output stream
    RelocatableHandle outputHandle;  // bytes of the output stream, owned
    void* progressEvent;             // handler of the Progress event, looked up at construction
    YieldData yield;                 // YieldTicks (the YieldTicks property) and lastYieldTick
    REALstring inputString;          // source of the input stream, one lock
    rbData* inputData;               // owned byte view of inputString
    uint64_t streamSize;             // length of the input stream (high half 0)
    uint64_t streamPosition;         // position of whichever memory stream is open
    TIFFRGBAImage* rgbaImage;        // pending RGBA memory read; AllocateClearMemory'd, owned
    decltype(&TIFFSetField) setField;
    decltype(&TIFFGetField) getField;
    decltype(&TIFFReadScanline) readScanline;
    decltype(&TIFFScanlineSize) scanlineSize;
    decltype(&TIFFWriteScanline) writeScanline;
    decltype(&TIFFGetFieldDefaulted) getFieldDefaulted;
};
static_assert(std::is_standard_layout_v<TiffData> && std::is_trivial_v<TiffData>);
static_assert(sizeof(TiffData) % 16 == 0, "the host rounds instance data to 16 bytes");

// The record of one of our objects; nil for nil.
TiffData* TiffDataOf(REALobject object);

// Fills the six library addresses, as every record (also a local one) must carry them.
void FillLibraryAddresses(TiffData* record);

// Releases everything the record holds: RGBA read state, the TIFF, both pictures, the input
// string and its view, the output buffer; clears the stream counters.
void TiffClean(TiffData* record);

// The yield point of long pixel loops: yields only when YieldTicks is above 0, then makes `self`
// the message target again, since the host may have run other objects' code meanwhile.
void YieldToHost(REALobject self, TiffData* record);

// Counts a change that host code made to a handle behind a row loop's back: a field set (which
// may put a new codec in place in the middle of a strip) or a flush (which ends the codec's
// stream in the middle of one).
void NoteHandleChange(TIFF* tiff);
// The number of the last change noted on `tiff`. Every directory that libtiff reads or begins sets
// fields and so takes a new number too; numbers are never reused, not even by another handle.
uintptr_t ChangeMark(TIFF* tiff);

// Scanlines written into the handle's current directory wait in libtiff's strip buffer and codec
// state until the strip is full, which reading any row of the same directory takes over: the
// pending rows are lost and a compressing codec can be left in a state that stops the process
// when the file is closed. Scanline writes note themselves; a directory written or another one
// selected ends it. RowsReadable is false then, after an Error event naming `module`; so it is
// when the image's size, samples, compression or strips were set to other values since libtiff
// read the directory (it would decode rows as it set them up, into buffers sized by the new
// values). NoteDirectoryChanged records the layout of a directory just opened or read (`read`),
// or that the directory now current was begun for writing.
void NoteRowsWritten(TIFF* tiff);
void NoteDirectoryChanged(TIFF* tiff, bool read);
// libtiff's directory writers give the strip buffer up before they write, and a write that then
// fails leaves libtiff taking the buffer for still loaded: a row read from that strip would read
// freed memory. Rows stay unreadable until a directory is selected or begun again.
void NoteDirectoryWriteFailed(TIFF* tiff);
// Whether anything was set on the handle, flushed or written into it since its current directory
// was read or begun: what a flush could have to write.
bool ChangedSinceSelected(TIFF* tiff);
// libtiff sized the rows of the current directory anew: a codec's data format (JPEGColorMode,
// SGILogDataFmt, PixarLogDataFmt) sets the depth or the upsampling and recomputes the row size
// with it. Nothing to do for a directory begun for writing.
void NoteLayoutSetUp(TIFF* tiff);
bool RowsBeingWritten(TIFF* tiff);
// libtiff counts the strips of one plane when it reads a directory, or lays out the strip tables
// for the first row written, and never again: rows written later are placed by that count. These
// keep the number of planes (samples per pixel when they are separate, else 1) that count was
// made for; 0 when the directory has no strip tables yet, or was begun for writing.
void NoteStripPlanes(TIFF* tiff, uint32_t planes);
uint32_t StripPlanes(TIFF* tiff);
// The planes the current PlanarConfig and SamplesPerPixel make.
uint32_t PlanesOf(TIFF* tiff);
// Whether the current directory was read from the file (opened, selected), not begun for writing.
bool DirectoryRead(TIFF* tiff);
bool RowsReadable(TIFF* tiff, const char* module);

// YieldToHost for a loop reading or writing the rows of `tiff`. True when host code run by the
// yield left that handle as the loop had it: still the session's, no field set, not flushed, and
// at the same row and strip (host code that read or wrote rows of it moved them). Otherwise the
// loop must stop: libtiff's state for its next row is gone.
bool YieldDuringRows(REALobject self, TiffData* record, TIFF* tiff);

void TiffConstructor(REALobject object);
void TiffDestructor(REALobject object);

}  // namespace tqv

#endif  // TQV_SESSION_TIFF_DATA_H
