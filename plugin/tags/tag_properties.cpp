#include "tags/tag_properties.h"

#include <cstring>

#include "bridge/services.h"
#include "bridge/text.h"
#include "bridge/values.h"
#include "tags/tag_access.h"

namespace tqv {
namespace {

constexpr int32_t kLibraryVersion = 20100615;

int32_t GetShortTag(REALobject self, uint32_t tag) {
    TIFF* tiff = SessionTiff(self);
    uint16_t value = 0;
    if (tiff == nullptr || TIFFGetFieldDefaulted(tiff, tag, &value) != 1) return 0;
    return value;
}

void SetShortTag(REALobject self, uint32_t tag, int32_t value) {
    if (TIFF* tiff = SessionTiff(self)) TIFFSetField(tiff, tag, static_cast<int>(value & 0xFFFF));
}

int32_t GetLongTag(REALobject self, uint32_t tag) {
    TIFF* tiff = SessionTiff(self);
    uint32_t value = 0;
    if (tiff == nullptr || TIFFGetField(tiff, tag, &value) != 1) return 0;
    return static_cast<int32_t>(value);
}

void SetLongTag(REALobject self, uint32_t tag, int32_t value) {
    if (TIFF* tiff = SessionTiff(self)) TIFFSetField(tiff, tag, value);
}

float GetFloatTag(REALobject self, uint32_t tag) {
    TIFF* tiff = SessionTiff(self);
    float value = 0.0f;
    if (tiff == nullptr || TIFFGetFieldDefaulted(tiff, tag, &value) != 1) return 0.0f;
    return value;
}

void SetFloatTag(REALobject self, uint32_t tag, bool nonNegative, float value) {
    TIFF* tiff = SessionTiff(self);
    if (tiff == nullptr) return;
    if (nonNegative && !(value >= 0.0f)) value = 0.0f;  // also NaN
    TIFFSetField(tiff, tag, static_cast<double>(value));
}

REALstring GetStringTag(REALobject self, uint32_t tag) {
    TIFF* tiff = SessionTiff(self);
    const char* text = nullptr;
    if (tiff == nullptr || TIFFGetField(tiff, tag, &text) != 1 || text == nullptr) return nullptr;
    return REALBuildUnicodeString(text, static_cast<int64_t>(std::strlen(text)), kREALTextEncodingASCII);
}

void SetStringTag(REALobject self, uint32_t tag, REALstring value) {
    TIFF* tiff = SessionTiff(self);
    if (tiff == nullptr) return;
    rbText text(value);
    TIFFSetField(tiff, tag, text.GetUTF8());
}

}  // namespace

#define TQV_DEFINE_SHORT_ACCESSORS(Name, tag)                  \
    int32_t Get##Name(REALobject self, intptr_t) {             \
        return GetShortTag(self, tag);                         \
    }                                                          \
    void Set##Name(REALobject self, intptr_t, int32_t value) { \
        SetShortTag(self, tag, value);                         \
    }
#define TQV_DEFINE_LONG_ACCESSORS(Name, tag)                   \
    int32_t Get##Name(REALobject self, intptr_t) {             \
        return GetLongTag(self, tag);                          \
    }                                                          \
    void Set##Name(REALobject self, intptr_t, int32_t value) { \
        SetLongTag(self, tag, value);                          \
    }
#define TQV_DEFINE_FLOAT_ACCESSORS(Name, tag, nonNegative)   \
    float Get##Name(REALobject self, intptr_t) {             \
        return GetFloatTag(self, tag);                       \
    }                                                        \
    void Set##Name(REALobject self, intptr_t, float value) { \
        SetFloatTag(self, tag, nonNegative, value);          \
    }
#define TQV_DEFINE_STRING_ACCESSORS(Name, tag)                     \
    REALstring tGet##Name(REALobject self, intptr_t) {             \
        return GetStringTag(self, tag);                            \
    }                                                              \
    void tSet##Name(REALobject self, intptr_t, REALstring value) { \
        SetStringTag(self, tag, value);                            \
    }

TQV_SHORT_TAGS(TQV_DEFINE_SHORT_ACCESSORS)
TQV_LONG_TAGS(TQV_DEFINE_LONG_ACCESSORS)
TQV_FLOAT_TAGS(TQV_DEFINE_FLOAT_ACCESSORS)
TQV_STRING_TAGS(TQV_DEFINE_STRING_ACCESSORS)

REALmemoryBlock GetExtraSamples(REALobject self, intptr_t) {
    TIFF* tiff = SessionTiff(self);
    if (tiff == nullptr) return nullptr;
    uint16_t count = 0;
    const uint16_t* values = nullptr;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &count, &values);
    if (count == 0 || values == nullptr) return nullptr;
    return REALBuildMemoryblock(values, int64_t{count} * 2);
}

void SetExtraSamples(REALobject self, intptr_t, REALmemoryBlock value) {
    TIFF* tiff = SessionTiff(self);
    if (tiff == nullptr) return;
    const void* values = value != nullptr ? REALMemoryBlockGetPtr(value) : nullptr;
    // A wrapped block of unknown size carries no samples the plugin could count.
    const int32_t size = value != nullptr ? REALMemoryBlockGetSize(value) : 0;
    const int count = values != nullptr && size > 0 ? size / 2 : 0;
    TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, count, count > 0 ? values : nullptr);
}

int32_t GetBytesPerRow(REALobject self, intptr_t) {
    return ScanlineBytes(SessionTiff(self));
}

int32_t GetVersion(REALobject, intptr_t) {
    return kLibraryVersion;
}

REALstring GetVersionString(REALobject, intptr_t) {
    const char* banner = TIFFGetVersion();
    if (banner == nullptr) return nullptr;
    return REALBuildUnicodeString(banner, static_cast<int64_t>(std::strlen(banner)), kREALTextEncodingASCII);
}

}  // namespace tqv
