// The 4-byte picture layouts read a whole pixel at a time: one 32-bit word, its channels picked
// by byte position. Row loops written on words become shifts and masks the compiler vectorises,
// where byte-by-byte loops over interleaved channels stay scalar.
#ifndef TQV_EXPORT_PIXEL_WORDS_H
#define TQV_EXPORT_PIXEL_WORDS_H

#include <bit>
#include <cstdint>
#include <cstring>

namespace tqv {

inline constexpr bool kLittleEndian = std::endian::native == std::endian::little;

// Where byte `index` (0 at the lowest address) of a word loaded from memory sits.
constexpr int ByteShift(int index) {
    return kLittleEndian ? 8 * index : 24 - 8 * index;
}

inline uint32_t LoadWord(const uint8_t* p) {
    uint32_t word;
    std::memcpy(&word, p, sizeof word);
    return word;
}

inline void StoreWord(uint8_t* p, uint32_t word) {
    std::memcpy(p, &word, sizeof word);
}

template <int Index>
constexpr uint32_t ByteOf(uint32_t word) {
    return (word >> ByteShift(Index)) & 0xFFu;
}

// The pixel's red, green and blue as bytes 0, 1 and 2 of a word in memory; byte 3 is zero.
// Channels already in that order (the desktop's spare, R, G, B) take a single shift.
template <int R, int G, int B>
constexpr uint32_t RgbWord(uint32_t pixel) {
    if constexpr (G == R + 1 && B == R + 2 && kLittleEndian) {
        return (pixel >> ByteShift(R)) & 0xFFFFFFu;
    } else {
        return ByteOf<R>(pixel) << ByteShift(0) | ByteOf<G>(pixel) << ByteShift(1) |
               ByteOf<B>(pixel) << ByteShift(2);
    }
}

}  // namespace tqv

#endif  // TQV_EXPORT_PIXEL_WORDS_H
