// The Pict and Mask properties: the session's two held pictures.
#ifndef TQV_SESSION_PICTURE_PROPERTIES_H
#define TQV_SESSION_PICTURE_PROPERTIES_H

#include <tqv/plugin_abi.h>

#include <cstdint>

namespace tqv {

// Getters return the held picture with one lock for the caller, or nil. Setters share the new
// picture (one lock held) and release the old one; nil just releases.
REALpicture GetPict(REALobject self, intptr_t param);
void SetPict(REALobject self, intptr_t param, REALpicture value);
REALpicture GetMask(REALobject self, intptr_t param);
void SetMask(REALobject self, intptr_t param, REALpicture value);

}  // namespace tqv

#endif  // TQV_SESSION_PICTURE_PROPERTIES_H
