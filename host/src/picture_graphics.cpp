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
    // In 64 bits: the offsets come from the plugin and may be anything.
    const int64_t fromW = sw == kToEdge ? int64_t{source->width()} - sx : sw;
    const int64_t fromH = sh == kToEdge ? int64_t{source->height()} - sy : sh;
    if (w <= 0 || h <= 0 || fromW <= 0 || fromH <= 0 || source->dead() || destination->dead()) return;
    if (w == fromW && h == fromH && unscaledCopy(destination, source, x, y, w, h, sx, sy)) return;
    // Only the rows and columns that land in the destination are visited, however large w and h.
    const int64_t firstRow = std::max<int64_t>(0, -int64_t{y});
    const int64_t endRow = std::min<int64_t>(h, int64_t{destination->height()} - y);
    const int64_t firstColumn = std::max<int64_t>(0, -int64_t{x});
    const int64_t endColumn = std::min<int64_t>(w, int64_t{destination->width()} - x);
    for (int64_t dy = firstRow; dy < endRow; ++dy) {
        const int64_t fy = sy + dy * fromH / h;
        if (fy < 0 || fy >= source->height()) continue;
        for (int64_t dx = firstColumn; dx < endColumn; ++dx) {
            const int64_t fx = sx + dx * fromW / w;
            if (fx < 0 || fx >= source->width()) continue;
            destination->setPixel(static_cast<int32_t>(x + dx), static_cast<int32_t>(y + dy),
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
