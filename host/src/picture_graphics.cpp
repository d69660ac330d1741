// Graphics objects, drawing, and the integer properties the plugin reads by name.
#include <algorithm>
#include <cstring>

#include "services.h"
#include "tqvhost/invoke.h"
#include "tqvhost/picture.h"

namespace tqvhost {
namespace {

constexpr const char* kDrawPicture =
    "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, sx as Integer = "
    "0, "
    "sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)";
constexpr int32_t kToEdge = -10000;

void GraphicsDrawPicture(REALgraphics g, REALpicture image, int32_t x, int32_t y, int32_t w, int32_t h,
                         int32_t sx, int32_t sy, int32_t sw, int32_t sh) {
    guardedVoid("DrawPicture", [&] {
        auto* gh = static_cast<GraphicsHandle*>(
            Accounts::check(g, "DrawPicture", [](Kind k) { return k == Kind::Graphics; }));
        PictureHandle* source = asPicture(image, "DrawPicture");
        if (!gh || !source || !gh->picture) return;
        PictureHandle* destination = gh->picture.as<PictureHandle>();
        if (destination->dead()) return;
        drawPicture(destination, source, x, y, w, h, sx, sy, sw, sh);
    });
}

// An unscaled draw between two pictures that store pixels alike (a mask drawn into a picture's
// own mask, the common case) is a block copy, clipped to both pictures. False, with nothing
// drawn, when it is not; the pixel loop then draws.
bool unscaledCopy(PictureHandle* destination, PictureHandle* source, int32_t x, int32_t y, int32_t w,
                  int32_t h, int32_t sx, int32_t sy) {
    if (destination == source) return false;  // keeps the pixel loop's order for overlapping draws
    // Clip in 64 bits: the offsets come from the host program and may be anything.
    int64_t left = std::max<int64_t>({0, -int64_t{x}, -int64_t{sx}});
    int64_t top = std::max<int64_t>({0, -int64_t{y}, -int64_t{sy}});
    int64_t right =
        std::min<int64_t>({int64_t{w}, int64_t{destination->width()} - x, int64_t{source->width()} - sx});
    int64_t bottom =
        std::min<int64_t>({int64_t{h}, int64_t{destination->height()} - y, int64_t{source->height()} - sy});
    if (right <= left || bottom <= top) return true;
    const auto dx = static_cast<int32_t>(x + left), dy = static_cast<int32_t>(y + top);
    const auto fx = static_cast<int32_t>(sx + left), fy = static_cast<int32_t>(sy + top);
    const auto cw = static_cast<int32_t>(right - left), ch = static_cast<int32_t>(bottom - top);
    return destination->copyBlock(*source, dx, dy, fx, fy, cw, ch);
}

}  // namespace

void drawPicture(PictureHandle* destination, PictureHandle* source, int32_t x, int32_t y, int32_t w,
                 int32_t h, int32_t sx, int32_t sy, int32_t sw, int32_t sh) {
    if (sw == kToEdge) sw = source->width() - sx;
    if (sh == kToEdge) sh = source->height() - sy;
    if (w <= 0 || h <= 0 || sw <= 0 || sh <= 0 || source->dead() || destination->dead()) return;
    if (w == sw && h == sh && unscaledCopy(destination, source, x, y, w, h, sx, sy)) return;
    for (int32_t dy = 0; dy < h; ++dy) {
        int64_t ty = int64_t{y} + dy;
        int64_t fy = sy + int64_t{dy} * sh / h;
        if (ty < 0 || ty >= destination->height() || fy < 0 || fy >= source->height()) continue;
        for (int32_t dx = 0; dx < w; ++dx) {
            int64_t tx = int64_t{x} + dx;
            int64_t fx = sx + int64_t{dx} * sw / w;
            if (tx < 0 || tx >= destination->width() || fx < 0 || fx >= source->width()) continue;
            destination->setPixel(static_cast<int32_t>(tx), static_cast<int32_t>(ty),
                                  source->pixel(static_cast<int32_t>(fx), static_cast<int32_t>(fy)));
        }
    }
}

bool pictureIntProperty(Handle* h, const char* name, int32_t* value) {
    if (h->kind() == Kind::Graphics) {
        auto* g = static_cast<GraphicsHandle*>(h);
        return g->picture && pictureIntProperty(g->picture.get(), name, value);
    }
    if (h->kind() == Kind::Picture) {
        auto* p = static_cast<PictureHandle*>(h);
        if (equalsIgnoringCase(name, "Width")) return *value = p->width(), true;
        if (equalsIgnoringCase(name, "Height")) return *value = p->height(), true;
        if (equalsIgnoringCase(name, "Depth")) return *value = p->depth(), true;
        return false;
    }
    if (h->kind() != Kind::Object) return false;
    auto* o = static_cast<ObjectHandle*>(h);
    const Property* prop = o->cls()->findProperty(name);
    if (!prop || prop->type.kind != TypeKind::Integer) return false;
    *value = static_cast<int32_t>(getProperty(o, *prop).i);
    return true;
}

void* graphicsMethod(Handle* h, const char* declaration) {
    if (h->kind() != Kind::Graphics || std::strcmp(declaration, kDrawPicture) != 0) return nullptr;
    return reinterpret_cast<void*>(&GraphicsDrawPicture);
}

}  // namespace tqvhost
