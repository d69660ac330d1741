#include "tags/generic_fields.h"

#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "bridge/services.h"
#include "bridge/text.h"
#include "bridge/values.h"
#include "session/open_limits.h"
#include "session/tiff_data.h"
#include "tags/color_map.h"
#include "tags/field_text.h"
#include "tags/tag_access.h"

namespace tqv {
namespace {

constexpr const char* kNilBlock = "memoryblock is nil";

// The Integer, Double and Single getters answer only whether the tag is there.
template <typename T>
bool PresenceGetter(REALobject self, int32_t tag, T* value, Read read) {
    if (value != nullptr) *value = T{};
    TIFF* tiff = OpenTiffOf(self);
    Scratch scratch;
    return tiff != nullptr && GetIntoScratch(tiff, static_cast<uint32_t>(tag), read, scratch) == 1;
}

// The Short and Byte getters deliver the low bytes of libtiff's first output as `Narrow`.
template <typename Narrow>
bool NarrowGetter(REALobject self, int32_t tag, int32_t* value, Read read) {
    if (value != nullptr) *value = 0;
    TIFF* tiff = OpenTiffOf(self);
    Scratch scratch;
    if (tiff == nullptr || GetIntoScratch(tiff, static_cast<uint32_t>(tag), read, scratch) != 1) return false;
    if (value != nullptr) *value = scratch.As<Narrow>(0);
    return true;
}

bool StringGetter(REALobject self, int32_t tag, REALstring* value, Read read) {
    if (value == nullptr) return false;
    if (REALstring old = std::exchange(*value, nullptr)) REALUnlockString(old);
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr) return false;
    const FieldShape shape = ShapeOf(tiff, static_cast<uint32_t>(tag));
    Scratch scratch;
    if (!shape.Text() || GetIntoScratch(tiff, static_cast<uint32_t>(tag), read, scratch) != 1) return false;
    const FieldText text = TextOf(shape, scratch);
    *value = REALBuildUnicodeString(text.bytes, static_cast<int64_t>(text.length), kREALTextEncodingASCII);
    // A text the host could not make is not an empty one.
    return *value != nullptr || text.length == 0;
}

// The codecs' data formats: libtiff sets the depth (and for JPEG the upsampling) to match and
// sizes rows anew itself.
bool SetsCodecFormat(uint32_t tag) {
    return tag == TIFFTAG_SGILOGDATAFMT || tag == TIFFTAG_PIXARLOGDATAFMT || tag == TIFFTAG_JPEGCOLORMODE;
}

// The integer families: one int, or a pair with a zero second half; a tag libtiff does not know
// is refused by libtiff before it reads any argument.
bool SetInt(TIFF* tiff, uint32_t tag, int value) {
    switch (ShapeOf(tiff, tag).SetArgumentKind()) {
        case SetArgument::Unknown:
        case SetArgument::Int:
            return TIFFSetField(tiff, tag, value) == 1;
        case SetArgument::IntPair:
            return TIFFSetField(tiff, tag, value, 0) == 1;
        default:
            return false;
    }
}

// The BitsPerSample a codec's data format sets, 0 for none. The codecs set it behind the field
// guard's back and carry on with their new format when it is refused: a colour map's guard
// refusing it left rows of the new size read from buffers of the old one.
uint16_t DepthOfCodecFormat(uint32_t tag, int value) {
    if (tag == TIFFTAG_PIXARLOGDATAFMT) {
        switch (value) {
            case PIXARLOGDATAFMT_8BIT:
            case PIXARLOGDATAFMT_8BITABGR:
                return 8;
            case PIXARLOGDATAFMT_11BITLOG:
            case PIXARLOGDATAFMT_12BITPICIO:
            case PIXARLOGDATAFMT_16BIT:
                return 16;
            case PIXARLOGDATAFMT_FLOAT:
                return 32;
            default:
                return 0;
        }
    }
    if (tag == TIFFTAG_SGILOGDATAFMT) {
        switch (value) {
            case SGILOGDATAFMT_FLOAT:
            case SGILOGDATAFMT_RAW:
                return 32;
            case SGILOGDATAFMT_16BIT:
                return 16;
            case SGILOGDATAFMT_8BIT:
                return 8;
            default:
                return 0;
        }
    }
    return 0;
}

bool IntSetter(REALobject self, int32_t tag, int value) {
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr) return false;
    const auto utag = static_cast<uint32_t>(tag);
    // Only where the codec in place knows the format: otherwise libtiff refuses the tag itself.
    const uint16_t depth =
        TIFFFindField(tiff, utag, TIFF_ANY) != nullptr ? DepthOfCodecFormat(utag, value) : 0;
    if (depth != 0 && !DepthFitsColorMap(tiff, depth)) return false;
    const bool set = SetInt(tiff, utag, value);
    if (set && SetsCodecFormat(utag)) NoteLayoutSetUp(tiff);
    return set;
}

bool DoubleSetter(REALobject self, int32_t tag, double value) {
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr) return false;
    const auto utag = static_cast<uint32_t>(tag);
    const SetArgument kind = ShapeOf(tiff, utag).SetArgumentKind();
    if (kind != SetArgument::Unknown && kind != SetArgument::Double) return false;
    return TIFFSetField(tiff, utag, value) == 1;
}

int32_t CountOf(const FieldShape& shape, const Scratch& scratch) {
    if (shape.GetCountSize() != 4) return scratch.As<uint16_t>(0);
    const uint32_t count = scratch.As<uint32_t>(0);
    return count > INT32_MAX ? INT32_MAX : static_cast<int32_t>(count);
}

// Copies one output slot into the caller's block, only when the block has room for it.
bool CopyOut(REALmemoryBlock mem, const ScratchSlot& slot, int width) {
    if (width <= 0) return true;
    void* target = REALMemoryBlockGetPtr(mem);
    if (target == nullptr || !BlockHolds(mem, width)) return false;
    std::memcpy(target, slot.bytes, static_cast<size_t>(width));
    return true;
}

}  // namespace

bool SetFieldString(REALobject self, int32_t tag, REALstring value) {
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr) return false;
    rbText text(value);
    return SetFieldText(tiff, static_cast<uint32_t>(tag), text.GetUTF8(), text.LengthUTF8());
}

bool GetFieldString(REALobject self, int32_t tag, REALstring* value) {
    return StringGetter(self, tag, value, Read::Plain);
}
bool GetFieldDefaultedString(REALobject self, int32_t tag, REALstring* value) {
    return StringGetter(self, tag, value, Read::Defaulted);
}

bool SetFieldInteger(REALobject self, int32_t tag, int32_t value) {
    return IntSetter(self, tag, value);
}
bool GetFieldInteger(REALobject self, int32_t tag, int32_t* value) {
    return PresenceGetter(self, tag, value, Read::Plain);
}
bool GetFieldDefaultedInteger(REALobject self, int32_t tag, int32_t* value) {
    return PresenceGetter(self, tag, value, Read::Defaulted);
}

bool SetFieldShort(REALobject self, int32_t tag, int32_t value) {
    return IntSetter(self, tag, static_cast<int16_t>(value & 0xFFFF));
}
bool GetFieldShort(REALobject self, int32_t tag, int32_t* value) {
    return NarrowGetter<int16_t>(self, tag, value, Read::Plain);
}
bool GetFieldDefaultedShort(REALobject self, int32_t tag, int32_t* value) {
    return NarrowGetter<int16_t>(self, tag, value, Read::Defaulted);
}

bool SetFieldDouble(REALobject self, int32_t tag, double value) {
    return DoubleSetter(self, tag, value);
}
bool GetFieldDouble(REALobject self, int32_t tag, double* value) {
    return PresenceGetter(self, tag, value, Read::Plain);
}
bool GetFieldDefaultedDouble(REALobject self, int32_t tag, double* value) {
    return PresenceGetter(self, tag, value, Read::Defaulted);
}

bool SetFieldSingle(REALobject self, int32_t tag, float value) {
    return DoubleSetter(self, tag, value);
}
bool GetFieldSingle(REALobject self, int32_t tag, float* value) {
    return PresenceGetter(self, tag, value, Read::Plain);
}
bool GetFieldDefaultedSingle(REALobject self, int32_t tag, float* value) {
    return PresenceGetter(self, tag, value, Read::Defaulted);
}

bool SetFieldByte(REALobject self, int32_t tag, int32_t value) {
    return IntSetter(self, tag, value & 0xFF);
}
bool GetFieldByte(REALobject self, int32_t tag, int32_t* value) {
    return NarrowGetter<uint8_t>(self, tag, value, Read::Plain);
}
bool GetFieldDefaultedByte(REALobject self, int32_t tag, int32_t* value) {
    return NarrowGetter<uint8_t>(self, tag, value, Read::Defaulted);
}

bool GetField(REALobject self, int32_t tag, REALmemoryBlock mem) {
    if (RaiseIfNil(mem, kNilBlock)) return false;
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr) return false;
    const auto utag = static_cast<uint32_t>(tag);
    Scratch scratch;
    if (GetIntoScratch(tiff, utag, Read::Plain, scratch) != 1) return false;
    return CopyOut(mem, scratch.slot[0], ShapeOf(tiff, utag).FirstOutputWidth());
}

bool GetFieldCount(REALobject self, int32_t tag, int32_t* count, REALmemoryBlock mem) {
    if (RaiseIfNil(mem, kNilBlock)) return false;
    if (count != nullptr) *count = 0;
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr) return false;
    const auto utag = static_cast<uint32_t>(tag);
    const FieldShape shape = ShapeOf(tiff, utag);
    // No count to give: InkNames hands out only its text, a field without a known form hands out
    // whatever its codec keeps, and an uncounted field wider than the 16-bit count (a text's
    // pointer, a LONG) would give some of its bits as a count.
    if (shape.inkNames || !shape.HasForm()) return false;
    if (!shape.passCount && shape.FirstOutputWidth() > 2) return false;
    Scratch scratch;
    const int result = GetIntoScratch(tiff, utag, Read::Plain, scratch);
    if (count != nullptr) *count = CountOf(shape, scratch);
    return result == 1 && CopyOut(mem, scratch.slot[1], shape.SecondOutputWidth());
}

REALmemoryBlock GetFieldMemory(REALobject self, int32_t tag, int32_t* itemCount) {
    if (itemCount != nullptr) *itemCount = 0;
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr) return nullptr;
    const auto utag = static_cast<uint32_t>(tag);
    const FieldShape shape = ShapeOf(tiff, utag);
    Scratch scratch;
    // Only a counted field hands out a count and a pointer.
    if (!shape.HasForm() || !shape.passCount || shape.inkNames ||
        GetIntoScratch(tiff, utag, Read::Plain, scratch) != 1)
        return nullptr;
    if (itemCount != nullptr) *itemCount = CountOf(shape, scratch);
    const void* values = scratch.As<const void*>(1);
    return values != nullptr ? REALPtrToMemoryBlock(values) : nullptr;
}

bool SetFieldMemory(REALobject self, int32_t tag, int32_t itemCount, REALmemoryBlock data) {
    if (RaiseIfNil(data, kNilBlock)) return false;
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr) return false;
    const FieldShape shape = ShapeOf(tiff, static_cast<uint32_t>(tag));
    if (!shape.Known()) return TIFFSetField(tiff, static_cast<uint32_t>(tag), itemCount, nullptr) == 1;
    if (shape.SetArgumentKind() != SetArgument::Counted || itemCount < 0) return false;
    // libtiff copies itemCount values of the field's size: the block must hold all of them.
    const void* values = REALMemoryBlockGetPtr(data);
    const int64_t bytes = int64_t{itemCount} * (shape.elementSize > 0 ? shape.elementSize : 1);
    if ((values == nullptr && itemCount > 0) || !BlockHolds(data, bytes)) return false;
    // The block may wrap libtiff's own array of this very field (GetFieldMemory hands it out), which
    // libtiff frees before it copies the new values: they are copied out of it first.
    std::unique_ptr<unsigned char[]> copy;
    if (bytes > 0 && bytes <= kMaxLibtiffAllocation) {
        copy.reset(new (std::nothrow) unsigned char[static_cast<size_t>(bytes)]);
        if (copy == nullptr) return false;
        std::memcpy(copy.get(), values, static_cast<size_t>(bytes));
        values = copy.get();
    }
    return SetCounted(tiff, shape, static_cast<uint32_t>(tag), static_cast<uint32_t>(itemCount), values);
}

}  // namespace tqv
