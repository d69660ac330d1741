#include "read_everything.h"

namespace hard {
namespace {

using tqvhost::TypeKind;

void ReadHeaderValues(Session& s) {
    for (const std::string& name : s.PropertyNames()) (void)s.Get(name);
    (void)s.Call("GetColorProfile");
    (void)s.Call("GetXMP");
    (void)s.Call("GetColorMap", {Ref(Nil(TypeKind::MemoryBlock)), Ref(Nil(TypeKind::MemoryBlock)),
                                 Ref(Nil(TypeKind::MemoryBlock))});
    (void)s.Call("Scanline", {Int(0)});
    (void)s.Call("IsLastImage");
}

void ReadMemoryTiles(Session& s, uint32_t steer) {
    if (!s.Call("ReadRGBMemoryBegin", {Ref(Nil(TypeKind::String))}).b) return;
    (void)s.Call("ReadRGBMemoryStep", {Int(0), Int(0), Int(16), Int(16)});
    const uint32_t a = steer & 0xFF;
    const uint32_t b = (steer >> 8) & 0xFF;
    (void)s.Call("ReadRGBMemoryStep", {Int(a % 64), Int(b % 64), Int(1 + a % 33), Int(1 + b % 33)});
    (void)s.Call("ReadRGBMemoryStep", {Int(-1), Int(0), Int(4), Int(4)});
    s.Call("ReadRGBMemoryEnd");
}

}  // namespace

void ReadHeaders(Session& s, int64_t maxPages) {
    const int64_t pages = s.Call("ImageCount").i;
    for (int64_t i = 0; i < pages && i < maxPages; ++i) {
        if (!s.Call("SetImageIndex", {Int(i), Bool(true)}).b) continue;
        ReadHeaderValues(s);
    }
    (void)s.Call("SetImageIndex", {Int(0), Bool(true)});
}

ReadOutcome ReadPictures(Session& s, uint32_t steer) {
    ReadOutcome out;
    out.rgb = s.Call("ReadRGB").b;
    (void)s.Call("CombinePictureWithMask");
    (void)s.Call("ReadPreviewRGB", {Int(2)});
    out.bw = s.Call("ReadBW").b;
    (void)s.Call("ReadPreviewBW");
    (void)s.Call("ReadBW", {Int(1), Int(1), Int(7), Int(5)});
    out.lut = s.Call("ReadWithLUT", {Colours({0x000000, 0x404040, 0x808080, 0xFFFFFF})}).b;
    (void)s.Call("ReadRGB", {Ref(Nil(TypeKind::String))});
    ReadMemoryTiles(s, steer);
    Session mirror;
    (void)s.Call("MirrorVertical", {Object(mirror)});
    return out;
}

ReadOutcome ReadEverything(std::string_view bytes, int64_t maxPages, uint32_t steer,
                           int64_t maxPicturePixels) {
    ReadOutcome out;
    Session s;
    out.opened = s.Call("OpenString", {Bytes(bytes)}).b;
    if (out.opened) {
        out.pages = s.Call("ImageCount").i;
        ReadHeaders(s, maxPages);
        // The properties are 32-bit host integers: a width above 2^31 reads negative.
        const auto side = [&](const char* name) { return int64_t{static_cast<uint32_t>(s.Get(name).i)}; };
        const int64_t pixels = side("Width") * side("Height");
        const ReadOutcome pictures = pixels <= maxPicturePixels ? ReadPictures(s, steer) : ReadOutcome{};
        out.rgb = pictures.rgb;
        out.bw = pictures.bw;
        out.lut = pictures.lut;
        (void)s.Call("NextImage");
    }
    s.Call("Close");
    return out;
}

}  // namespace hard
