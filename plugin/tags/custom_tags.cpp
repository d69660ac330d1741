#include "tags/custom_tags.h"

#include <tiffio.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "bridge/text.h"
#include "bridge/values.h"
#include "session/open_limits.h"
#include "tags/field_text.h"
#include "tags/tag_access.h"

namespace tqv {
namespace {

// The declaration in a form libtiff 4.5 handles: ASCII plain (-1) or counted (-3, the only
// counted ASCII form it accepts without aborting), other counted types with a variable count,
// and fixed counts without a count argument. Variable counts without a count argument would be
// truncated to one byte per value, so they are refused, as are unknown types. Every private
// field lives in libtiff's custom bit: any other bit would mark a built-in field as set.
std::optional<TIFFFieldInfo> SafeFieldInfo(int32_t tag, int32_t readCount, int32_t writeCount, int32_t type,
                                           int32_t okToChange, int32_t passCount) {
    if (!IsTiffType(type)) return std::nullopt;
    // libtiff 4.5 holds IFD values in 8 bytes but writes them from a 4-byte array (100, 200 became
    // 100, 0); as LONG they are held in 4 bytes, as the classic build held IFD values, and written
    // as they are.
    if (type == TIFF_IFD) type = TIFF_LONG;
    auto reads = static_cast<short>(readCount);
    auto writes = static_cast<short>(writeCount);
    const bool counted = (passCount & 0xFF) != 0;
    if (type == TIFF_ASCII) {
        reads = writes = counted ? TIFF_VARIABLE2 : TIFF_VARIABLE;
    } else if (counted) {
        reads = writes = reads == TIFF_VARIABLE2 ? TIFF_VARIABLE2 : TIFF_VARIABLE;
    } else if (reads < 1 || writes < 1) {
        return std::nullopt;
    }
    TIFFFieldInfo info{};
    info.field_tag = static_cast<uint32_t>(tag);
    info.field_readcount = reads;
    info.field_writecount = writes;
    info.field_type = static_cast<TIFFDataType>(type);
    info.field_bit = FIELD_CUSTOM;
    info.field_oktochange = static_cast<unsigned char>(okToChange & 0xFF);
    info.field_passcount = counted ? 1 : 0;
    return info;
}

REALstring BinaryString(const void* bytes, int64_t length) {
    return REALBuildUnicodeString(bytes, length, kREALTextEncodingUnknown);
}

// Every name with its NUL. While InkNames is set, libtiff 4.5 keeps NumberOfInks at the number of
// names and holds each one NUL-terminated within the value (it refuses any other value).
REALstring InkNamesData(TIFF* tiff, const Scratch& scratch) {
    const char* names = scratch.As<const char*>(0);
    if (names == nullptr) return nullptr;
    uint16_t inks = 0;
    if (TIFFGetField(tiff, TIFFTAG_NUMBEROFINKS, &inks) != 1 || inks == 0) inks = 1;
    size_t length = 0;
    for (uint16_t i = 0; i < inks; ++i) length += std::strlen(names + length) + 1;
    return BinaryString(names, static_cast<int64_t>(length));
}

REALstring GetTagData(TIFF* tiff, uint32_t tag) {
    if (tiff == nullptr) return nullptr;
    const FieldShape shape = ShapeOf(tiff, tag);
    Scratch scratch;
    if (!shape.HasForm() || !(shape.passCount || shape.Text()) ||
        GetIntoScratch(tiff, tag, Read::Plain, scratch) == 0)
        return nullptr;
    if (shape.inkNames) return InkNamesData(tiff, scratch);
    if (!shape.passCount) {
        const FieldText text = TextOf(shape, scratch);
        return BinaryString(text.bytes, static_cast<int64_t>(text.length));
    }
    // count values of at least one byte each: count bytes are always there.
    const uint32_t count = shape.GetCountSize() == 4 ? scratch.As<uint32_t>(0) : scratch.As<uint16_t>(0);
    return BinaryString(scratch.As<const void*>(1), count);
}

// One value per byte: values wider than a byte get the string's bytes first and zeros after,
// so libtiff never copies past the string.
bool SetCountedBytes(TIFF* tiff, const FieldShape& shape, uint32_t tag, const rbData& data) {
    const auto count = static_cast<uint32_t>(data.Length());
    // A value libtiff may not allocate is refused by the field guard before any value is read:
    // no need to widen it first.
    if (shape.elementSize <= 1 || uint64_t{count} * static_cast<uint64_t>(shape.elementSize) >
                                      static_cast<uint64_t>(kMaxLibtiffAllocation))
        return SetCounted(tiff, shape, tag, count, data.Bytes());
    std::vector<uint8_t> values(size_t{count} * static_cast<size_t>(shape.elementSize));
    if (count > 0) std::copy(data.Bytes(), data.Bytes() + count, values.begin());
    return SetCounted(tiff, shape, tag, count, values.data());
}

bool SetTagData(TIFF* tiff, uint32_t tag, REALstring string) {
    if (tiff == nullptr) return false;
    const rbData data(string);
    const FieldShape shape = ShapeOf(tiff, tag);
    switch (shape.SetArgumentKind()) {
        case SetArgument::Unknown:  // libtiff reports the unknown tag without reading further
            return TIFFSetField(tiff, tag, data.Length(), data.Bytes()) == 1;
        case SetArgument::Counted:
            return SetCountedBytes(tiff, shape, tag, data);
        case SetArgument::Text: {
            const std::string text(reinterpret_cast<const char*>(data.Bytes()),
                                   static_cast<size_t>(data.Length()));
            return TIFFSetField(tiff, tag, text.c_str()) == 1;
        }
        default:
            return false;
    }
}

// 64-bit values: libtiff writes them into a classic TIFF as 32-bit values, and one that does not
// fit makes the whole directory fail to write, so the file no longer opens.
bool Is64BitType(int32_t type) {
    return type == TIFF_LONG8 || type == TIFF_SLONG8 || type == TIFF_IFD8;
}

// Why a declaration that has a safe form is still refused; nullptr when it is not.
const char* RefusalOf(TIFF* tiff, uint32_t tag, int32_t type) {
    // A codec's tag under another definition shadows the codec's own once its compression is set:
    // the value would be written while the codec encodes without it (Predictor 2 over rows never
    // differenced).
    if (IsCodecTag(tag)) return "belongs to a compression's codec: set Compression, then the tag";
    if (Is64BitType(type) && TIFFIsBigTIFF(tiff) == 0)
        return "cannot hold 64-bit values outside a BigTIFF file";
    return nullptr;
}

}  // namespace

bool AddCustomTag(REALobject self, int32_t tag, int32_t readCount, int32_t writeCount, int32_t type,
                  int32_t /*fieldBit*/, int32_t okToChange, int32_t passCount, REALstring name) {
    TIFF* tiff = OpenTiffOf(self);
    if (tiff == nullptr) return false;
    // Numbers above 65535 cannot be in a file: libtiff uses them for its codecs' controls, which
    // the codec's own setter takes in its own form once the codec is the image's.
    if (static_cast<uint32_t>(tag) > 65535 &&
        TIFFFindField(tiff, static_cast<uint32_t>(tag), TIFF_ANY) == nullptr)
        return false;
    std::optional<TIFFFieldInfo> info =
        SafeFieldInfo(tag, readCount, writeCount, type, okToChange, passCount);
    if (!info) return false;
    if (const char* refusal = RefusalOf(tiff, static_cast<uint32_t>(tag), type)) {
        TIFFErrorExtR(tiff, "AddCustomTag", "Tag %u %s", static_cast<unsigned>(tag), refusal);
        return false;
    }
    rbText text(name);
    info->field_name = KeepFieldName(text.GetUTF8());
    TIFFMergeFieldInfo(tiff, &*info, 1);  // libtiff copies the record; a known tag is skipped
    return true;
}

REALstring GetData(REALobject self, int32_t tag) {
    return GetTagData(OpenTiffOf(self), static_cast<uint32_t>(tag));
}
bool SetData(REALobject self, int32_t tag, REALstring data) {
    return SetTagData(OpenTiffOf(self), static_cast<uint32_t>(tag), data);
}

REALstring GetColorProfile(REALobject self) {
    return GetTagData(OpenTiffOf(self), TIFFTAG_ICCPROFILE);
}
bool SetColorProfile(REALobject self, REALstring profile) {
    return SetTagData(OpenTiffOf(self), TIFFTAG_ICCPROFILE, profile);
}
REALstring GetXMP(REALobject self) {
    return GetTagData(OpenTiffOf(self), TIFFTAG_XMLPACKET);
}
bool SetXMP(REALobject self, REALstring packet) {
    return SetTagData(OpenTiffOf(self), TIFFTAG_XMLPACKET, packet);
}

}  // namespace tqv
