#include "session/picture_properties.h"

#include "bridge/handles.h"
#include "session/tiff_data.h"

namespace tqv {
namespace {

REALpicture Held(REALpicture TiffData::*field, REALobject self) {
    TiffData* record = TiffDataOf(self);
    if (record == nullptr) return nullptr;
    return PictureRef::Borrow(record->*field).Release();
}

// Locks the new picture before releasing the old, so assigning the held picture again is safe.
void Hold(REALpicture TiffData::*field, REALobject self, REALpicture value) {
    TiffData* record = TiffDataOf(self);
    if (record == nullptr) return;
    PictureRef previous = PictureRef::Steal(record->*field);
    record->*field = PictureRef::Borrow(value).Release();
}

}  // namespace

REALpicture GetPict(REALobject self, intptr_t) {
    return Held(&TiffData::Pict, self);
}
void SetPict(REALobject self, intptr_t, REALpicture value) {
    Hold(&TiffData::Pict, self, value);
}
REALpicture GetMask(REALobject self, intptr_t) {
    return Held(&TiffData::Mask, self);
}
void SetMask(REALobject self, intptr_t, REALpicture value) {
    Hold(&TiffData::Mask, self, value);
}

}  // namespace tqv
