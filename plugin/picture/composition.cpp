#include "picture/composition.h"

#include <cstring>

#include "bridge/handles.h"
#include "bridge/services.h"
#include "picture/picture_editor.h"

namespace tqv {
namespace {

constexpr const char* kDrawPictureDeclaration =
    "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, sx as Integer = "
    "0, "
    "sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)";
constexpr double kRuntimeDrawBefore = 2012.0;

REALobject AsObject(void* handle) {
    return static_cast<REALobject>(handle);
}

// One pixel record locked as a description for the duration of a copy.
struct LockedRecord {
    REALpicture picture = nullptr;
    REALpictureDescription description{};
    bool Lock(REALpicture p) {
        picture = p;
        return REALLockPictureDescriptionX(p, &description, REALpictureTypePixelRecord);
    }
    const REALpixelRecord* Record() const {
        return static_cast<const REALpixelRecord*>(description.pictureData);
    }
};

bool SameShapedRecords(const REALpixelRecord* to, const REALpixelRecord* from) {
    return to != nullptr && from != nullptr && to->width == from->width && to->height == from->height &&
           to->layout == 0 && from->layout == 0 && to->rows != nullptr && from->rows != nullptr &&
           to->width >= 0 && to->width <= INT32_MAX / 4;
}

bool CopyRecords(const REALpixelRecord* to, const REALpixelRecord* from) {
    if (!SameShapedRecords(to, from)) return false;
    const size_t rowBytes = static_cast<size_t>(to->width) * 4;
    for (int32_t y = 0; y < to->height; ++y) std::memcpy(to->rows[y], from->rows[y], rowBytes);
    return true;
}

}  // namespace

bool GraphicsDrawPicture(REALgraphics graphics, REALpicture destination, REALpicture source, int32_t x,
                         int32_t y, int32_t w, int32_t h, int32_t sx, int32_t sy, int32_t sw, int32_t sh) {
    if (graphics != nullptr && source != nullptr) {
        auto draw = reinterpret_cast<REALGraphicsDrawPictureProc>(
            REALLoadObjectMethod(AsObject(graphics), kDrawPictureDeclaration));
        if (draw != nullptr) {
            draw(graphics, source, x, y, w, h, sx, sy, sw, sh);
            return true;
        }
        // Older hosts are asked for their runtime drawing function, as they expect the lookup;
        // its answer is not used.
        if (rbversion_rbversion < kRuntimeDrawBefore && gResolver != nullptr)
            (void)gResolver("RuntimeGraphicsDrawPicture");
    }
    return OwnCopy(destination, source, x, y, w, h, sx, sy, sw, sh);
}

bool GraphicsDrawPicture(REALpicture destination, REALpicture source, int32_t x, int32_t y, int32_t w,
                         int32_t h, int32_t sx, int32_t sy, int32_t sw, int32_t sh) {
    REALgraphics graphics = destination != nullptr ? REALGetPictureGraphics(destination) : nullptr;
    const bool drawn = GraphicsDrawPicture(graphics, destination, source, x, y, w, h, sx, sy, sw, sh);
    if (graphics != nullptr) REALUnlockObject(AsObject(graphics));
    return drawn;
}

bool OwnCopy(REALpicture destination, REALpicture source, int32_t x, int32_t y, int32_t w, int32_t h,
             int32_t sx, int32_t sy, int32_t sw, int32_t sh) {
    if (destination == nullptr || source == nullptr) return false;
    if (x != 0 || y != 0 || sx != 0 || sy != 0 || sw != w || sh != h) return false;
    LockedRecord from, to;
    if (!from.Lock(source)) return false;
    if (!to.Lock(destination)) {
        REALUnlockPictureDescription(source);
        REALPictureClearCache(destination);
        return false;
    }
    const bool copied = CopyRecords(to.Record(), from.Record());
    REALUnlockPictureDescription(destination);
    REALUnlockPictureDescription(source);
    REALPictureClearCache(destination);
    return copied;
}

bool AddPictureMask(REALpicture picture, REALpicture mask) {
    const int32_t w = GetPictureWidth(picture);
    const int32_t h = GetPictureHeight(picture);
    if (h < 1 || w < 1 || picture == nullptr) return false;
    if (mask == nullptr) return true;
    const PictureRef pictureMask = PictureRef::Steal(REALGetPictureMask(picture, true));
    if (!pictureMask) return false;
    return GraphicsDrawPicture(pictureMask.get(), mask, 0, 0, w, h, 0, 0, w, h);
}

REALpicture CreatePictureWithMask(REALpicture picture, REALpicture mask, bool makeNew, int32_t width,
                                  int32_t height) {
    if (picture == nullptr) return nullptr;
    if (mask == nullptr) return PictureRef::Borrow(picture).Release();
    if (makeNew) {
        PictureRef made = PictureRef::Steal(REALNewPicture(width, height, 32));
        if (!made) return nullptr;
        const PictureRef madeMask = PictureRef::Steal(REALGetPictureMask(made.get(), true));
        if (!madeMask) return nullptr;
        GraphicsDrawPicture(made.get(), picture, 0, 0, width, height, 0, 0, width, height);
        GraphicsDrawPicture(madeMask.get(), mask, 0, 0, width, height, 0, 0, width, height);
        return made.Release();
    }
    if (height < 1 || width < 1) return nullptr;
    const PictureRef ownMask = PictureRef::Steal(REALGetPictureMask(picture, true));
    if (!ownMask) return nullptr;
    if (!GraphicsDrawPicture(ownMask.get(), mask, 0, 0, width, height, 0, 0, width, height)) return nullptr;
    return PictureRef::Borrow(picture).Release();
}

}  // namespace tqv
