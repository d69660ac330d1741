// Picture pixel layouts written from libtiff's RGBA words, shared by the raster path and the
// direct strip/tile path so that both produce the same bytes.
//
// A raster word holds R in bits 0-7, G 8-15, B 16-23, A 24-31; the mask value is 255 - A.
#ifndef TQV_IMPORT_RGBA_LAYOUTS_H
#define TQV_IMPORT_RGBA_LAYOUTS_H

#include <bit>
#include <cstdint>

namespace tqv {

struct Rgba {
    uint8_t r, g, b, v;
};

inline Rgba Unpack(uint32_t word) {
    return {static_cast<uint8_t>(word), static_cast<uint8_t>(word >> 8), static_cast<uint8_t>(word >> 16),
            static_cast<uint8_t>(255u - (word >> 24))};
}

// Four-byte layouts are written as whole words (bytes in memory order, little-endian host), so
// the loops reduce to shifts and masks that the compiler vectorises.
struct ColourXRGB {
    static constexpr int kBytes = 4;
    static uint32_t Word(uint32_t w) { return (w << 8) | 0xFFu; }  // 255, R, G, B
};
struct MaskXRGB {
    static constexpr int kBytes = 4;
    static uint32_t Word(uint32_t w) { return ((255u - (w >> 24)) * 0x01010100u) | 0xFFu; }  // 255, V, V, V
};
struct ColourBGRX {
    static constexpr int kBytes = 4;
    static uint32_t Word(uint32_t w) {  // B, G, R, 0
        return ((w & 0xFFu) << 16) | (w & 0xFF00u) | ((w >> 16) & 0xFFu);
    }
};
struct MaskBGRX {
    static constexpr int kBytes = 4;
    static uint32_t Word(uint32_t w) { return (255u - (w >> 24)) * 0x010101u; }  // V, V, V, 0
};
struct ColourRGB {
    static constexpr int kBytes = 3;
    static void Put(uint8_t* o, Rgba p) { o[0] = p.r, o[1] = p.g, o[2] = p.b; }
};
struct MaskRGB {
    static constexpr int kBytes = 3;
    static void Put(uint8_t* o, Rgba p) { o[0] = p.v, o[1] = p.v, o[2] = p.v; }
};

template <typename Layout>
concept WordLayout = Layout::kBytes == 4;
static_assert(std::endian::native == std::endian::little, "word layouts assume a little-endian host");

}  // namespace tqv

#endif  // TQV_IMPORT_RGBA_LAYOUTS_H
