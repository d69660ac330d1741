// The write paths against libtiff's plain API (see bench_common.h for the conventions).
//
// Ours: a session as a host program drives it: Create on a scratch file, the Compression (and for
// grey BitsPerSample) property set, Pict (and Mask) set, the write method, Close (which writes the
// directory). The floor: TIFFOpen "w", the tags the plugin writes for that picture, a
// TIFFWriteScanline loop over rows prepared beforehand in the file's layout (the bytes the plugin
// converts the picture into), TIFFClose. After its runs every floor writes the file once more
// through the plugin and requires the two files to be byte-identical, so both sides do the same
// libtiff work (tags, strips, codec).
//
// WriteRGB4096: "WriteRGB as boolean" of a 4096 x 4096 32-bit picture (gradients with noise),
// without a mask (8-bit RGB) and with one (RGBA, the mask's red byte as unassociated alpha),
// uncompressed and LZW.
//
// WriteGray4096: "WriteGray as boolean" of the same picture, 8 bits (BitsPerSample left unset) and
// 16 bits (BitsPerSample set to 16 before the write), uncompressed.
//
// WriteBW8192: "WriteBW as boolean" of an 8192 x 8192 black-and-white page (lines of blocky
// glyphs, rules and a frame), uncompressed and CCITT Group 4; the floor writes packed 1-bit rows.
// Uncompressed, ours reads 256 MiB of picture for an 8 MiB file the floor writes from 8 MiB of
// rows: that read alone is more than a fifth of the floor's time, so 1.2 is out of reach there.
//
// Every write also runs "_FloorPixels": the floor of a program that holds the picture's pixels as
// words in its own memory and converts each row with plain per-pixel code just before writing it
// (byte-identical files too). It measures what the plugin costs on top of that work.
//
// Every write keeps the plugin's one row a strip. The pictures and the floors' rows are made once
// per process; neither side's timing includes them.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bench_common.h"

namespace tqvbench {
namespace {

using namespace tqvhost;

constexpr int32_t kSide = 4096;
constexpr uint32_t kWhite = 0xFFFFFF;

// ---- Pictures --------------------------------------------------------------------------------

// The pictures are held for the life of the process.
// Red, green and blue ramps with 4 bits of noise; the mask is a slower grey ramp.
PictureHandle* ColourPicture() {
    static const HostRef picture = [] {
        PluginClass();  // the host is configured before it makes pictures
        PictureHandle* p = makePicture(kSide, kSide, 32);
        PictureHandle* mask = maskOf(p);
        uint32_t noise = 12345;
        for (int32_t y = 0; y < kSide; ++y) {
            for (int32_t x = 0; x < kSide; ++x) {
                noise = noise * 1103515245u + 12345u;
                const uint32_t n = (noise >> 16) & 15;
                const uint32_t r = (uint32_t(x) / 16 + n) & 255, g = (uint32_t(y) / 16 + n) & 255;
                const uint32_t b = (uint32_t(x + y) / 32 + n) & 255;
                p->setPixel(x, y, r << 16 | g << 8 | b);
                const uint32_t a = (uint32_t(x) / 8 + uint32_t(y) / 64) & 255;
                mask->setPixel(x, y, a << 16 | a << 8 | a);
            }
        }
        return HostRef(p);
    }();
    return picture.as<PictureHandle>();
}

PictureHandle* PagePicture() {
    static const HostRef picture = [] {
        PluginClass();
        PictureHandle* p = makePicture(kPageSide, kPageSide, 32);
        for (uint32_t y = 0; y < kPageSide; ++y)
            for (uint32_t x = 0; x < kPageSide; ++x)
                p->setPixel(int32_t(x), int32_t(y), PageBlack(x, y) ? 0 : kWhite);
        return HostRef(p);
    }();
    return picture.as<PictureHandle>();
}

// ---- The three writes --------------------------------------------------------------------------

enum class Kind { RGB, RGBA, Grey8, Grey16, Bilevel };

struct Write {
    Kind kind;
    uint16_t compression;
};

Write RgbWrite(const benchmark::State& state) {
    return {state.range(1) != 0 ? Kind::RGBA : Kind::RGB, static_cast<uint16_t>(state.range(0))};
}
Write GreyWrite(const benchmark::State& state) {
    return {state.range(0) == 16 ? Kind::Grey16 : Kind::Grey8, COMPRESSION_NONE};
}
Write BilevelWrite(const benchmark::State& state) {
    return {Kind::Bilevel, static_cast<uint16_t>(state.range(0))};
}

PictureHandle* PictureOf(Kind kind) {
    return kind == Kind::Bilevel ? PagePicture() : ColourPicture();
}
int32_t SideOf(Kind kind) {
    return kind == Kind::Bilevel ? kPageSide : kSide;
}

const char* MethodOf(Kind kind) {
    switch (kind) {
        case Kind::RGB:
        case Kind::RGBA:
            return "WriteRGB as boolean";
        case Kind::Grey8:
        case Kind::Grey16:
            return "WriteGray as boolean";
        case Kind::Bilevel:
            return "WriteBW as boolean";
    }
    return "";
}

std::string CompressionName(uint16_t c) {
    switch (c) {
        case COMPRESSION_NONE:
            return "none";
        case COMPRESSION_LZW:
            return "LZW";
        case COMPRESSION_CCITTFAX4:
            return "G4";
        default:
            return std::to_string(c);
    }
}

std::string ImageName(const Write& w) {
    switch (w.kind) {
        case Kind::RGB:
            return "4096x4096 RGB " + CompressionName(w.compression);
        case Kind::RGBA:
            return "4096x4096 RGB + mask " + CompressionName(w.compression);
        case Kind::Grey8:
            return "4096x4096 grey 8-bit";
        case Kind::Grey16:
            return "4096x4096 grey 16-bit";
        case Kind::Bilevel:
            return "8192x8192 bilevel page " + CompressionName(w.compression);
    }
    return "";
}

// Per process, so that runs side by side do not write into one file; removed after each row.
std::string FileName(const Write& w, const char* side) {
    return ScratchPath("tqv_bench_write_" + std::to_string(getpid()) + "_" + std::to_string(int(w.kind)) +
                       "_" + std::to_string(w.compression) + "_" + side + ".tif");
}

// One write through the plugin, as a host program makes it.
bool PluginWrite(Session& session, const Write& w, const std::string& path) {
    if (!session.Call("Create(file as folderitem) as boolean", {FolderItemArg(path)}).b) return false;
    session.SetInteger("Compression", w.compression);
    if (w.kind == Kind::Grey16) session.SetInteger("BitsPerSample", 16);
    PictureHandle* picture = PictureOf(w.kind);
    session.SetPict(picture);
    if (w.kind == Kind::RGBA) {
        Value mask;
        mask.kind = TypeKind::Picture;
        mask.handle = HostRef(maskOf(picture));
        session.Set("Mask", mask);
    }
    const bool ok = session.Call(MethodOf(w.kind)).b;
    session.Call("Close");
    return ok;
}

// ---- The floor -------------------------------------------------------------------------------

// The rows the plugin writes for the picture, in the file's layout, one after the other.
struct Rows {
    std::vector<uint8_t> bytes;
    size_t rowBytes = 0;
};

// One picture row (words &h00RRGGBB, the mask's too) in the file's layout, as plain per-pixel
// code, one loop for each layout: what the plugin converts each row of the picture into.
void ConvertRow(Kind kind, const uint32_t* pixels, const uint32_t* mask, int32_t width, uint8_t* row) {
    const auto red = [](uint32_t rgb) { return uint8_t(rgb >> 16); };
    switch (kind) {
        case Kind::RGB:
            for (int32_t x = 0; x < width; ++x) {
                uint8_t* p = row + size_t(x) * 3;
                p[0] = red(pixels[x]), p[1] = uint8_t(pixels[x] >> 8), p[2] = uint8_t(pixels[x]);
            }
            return;
        case Kind::RGBA:
            for (int32_t x = 0; x < width; ++x) {
                uint8_t* p = row + size_t(x) * 4;
                p[0] = red(pixels[x]), p[1] = uint8_t(pixels[x] >> 8), p[2] = uint8_t(pixels[x]);
                p[3] = red(mask[x]);
            }
            return;
        case Kind::Grey8:
            for (int32_t x = 0; x < width; ++x) row[x] = red(pixels[x]);
            return;
        case Kind::Grey16:
            for (int32_t x = 0; x < width; ++x) {
                const auto word = uint16_t(red(pixels[x]) * 257);
                std::memcpy(row + size_t(x) * 2, &word, 2);
            }
            return;
        case Kind::Bilevel:
            // Min-is-black: white is 1 (white means R + G + B of at least 128).
            std::memset(row, 0, (size_t(width) + 7) / 8);
            for (int32_t x = 0; x < width; ++x) {
                const uint32_t rgb = pixels[x];
                if (red(rgb) + uint8_t(rgb >> 8) + uint8_t(rgb) >= 128)
                    row[x >> 3] |= uint8_t(0x80u >> (x & 7));
            }
            return;
    }
}

size_t RowBytes(Kind kind) {
    const auto side = size_t(SideOf(kind));
    return kind == Kind::RGB      ? side * 3
           : kind == Kind::RGBA   ? side * 4
           : kind == Kind::Grey8  ? side
           : kind == Kind::Grey16 ? side * 2
                                  : (side + 7) / 8;
}

// The picture's (and mask's) pixels as words, row after row: what a program that holds its
// image in its own memory would convert.
struct Pixels {
    std::vector<uint32_t> colour, mask;
};

const Pixels& PictureWords(Kind kind) {
    static std::vector<Pixels> made(5);
    Pixels& words = made[size_t(kind)];
    if (words.colour.empty()) {
        PictureHandle* picture = PictureOf(kind);
        PictureHandle* mask = kind == Kind::RGBA ? maskOf(picture) : nullptr;
        const int32_t side = SideOf(kind);
        words.colour.resize(size_t(side) * size_t(side));
        if (mask != nullptr) words.mask.resize(words.colour.size());
        for (int32_t y = 0; y < side; ++y) {
            for (int32_t x = 0; x < side; ++x) {
                words.colour[size_t(y) * size_t(side) + size_t(x)] = picture->pixel(x, y);
                if (mask != nullptr) words.mask[size_t(y) * size_t(side) + size_t(x)] = mask->pixel(x, y);
            }
        }
    }
    return words;
}

Rows MakeRows(Kind kind) {
    const Pixels& words = PictureWords(kind);
    const int32_t side = SideOf(kind);
    Rows rows;
    rows.rowBytes = RowBytes(kind);
    rows.bytes.assign(rows.rowBytes * size_t(side), 0);
    for (int32_t y = 0; y < side; ++y) {
        const size_t at = size_t(y) * size_t(side);
        ConvertRow(kind, words.colour.data() + at, words.mask.empty() ? nullptr : words.mask.data() + at,
                   side, rows.bytes.data() + rows.rowBytes * size_t(y));
    }
    return rows;
}

const Rows& PreparedRows(Kind kind) {
    static std::vector<Rows> made(5);
    Rows& rows = made[size_t(kind)];
    if (rows.bytes.empty()) rows = MakeRows(kind);
    return rows;
}

// The tags the plugin writes for the write with no tag set beforehand but Compression (and for
// 16-bit grey BitsPerSample).
void SetTags(TIFF* tif, const Write& w) {
    const auto side = uint32_t(SideOf(w.kind));
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, side);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, side);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 1);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
    TIFFSetField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tif, TIFFTAG_XRESOLUTION, 72.0);
    TIFFSetField(tif, TIFFTAG_YRESOLUTION, 72.0);
    TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, w.compression);
    switch (w.kind) {
        case Kind::RGB:
        case Kind::RGBA:
            TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
            TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
            TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, w.kind == Kind::RGBA ? 4 : 3);
            if (w.kind == Kind::RGBA) {
                const uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
                TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &alpha);
            }
            break;
        case Kind::Grey8:
        case Kind::Grey16:
        case Kind::Bilevel:
            TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
            TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE,
                         w.kind == Kind::Bilevel  ? 1
                         : w.kind == Kind::Grey16 ? 16
                                                  : 8);
            TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
            break;
    }
}

// The floor's write: rows(y) gives row y in the file's layout.
template <typename RowAt>
bool FloorWrite(const Write& w, const std::string& path, RowAt rows) {
    TIFF* tif = TIFFOpen(path.c_str(), "w");
    if (tif == nullptr) return false;
    SetTags(tif, w);
    bool ok = true;
    const auto side = uint32_t(SideOf(w.kind));
    // TIFFWriteScanline takes a non-const buffer; with these codecs it only reads it.
    for (uint32_t y = 0; ok && y < side; ++y) ok = TIFFWriteScanline(tif, rows(y), y, 0) == 1;
    TIFFClose(tif);
    return ok;
}

// ---- Benchmarks ------------------------------------------------------------------------------

void Ours(benchmark::State& state, const Write& w, const char* operation) {
    Session session;
    PictureOf(w.kind);
    const std::string path = FileName(w, "ours");
    double peak = 0;
    for (auto _ : state) {
        ResetPeakMemory();
        if (!PluginWrite(session, w, path)) state.SkipWithError("the write failed");
        peak = std::max(peak, PeakMemoryMB());
    }
    std::remove(path.c_str());
    state.SetLabel(std::string(operation) + "|" + ImageName(w) + "|1.2");
    SetPeakMemoryCounter(state, peak);
    state.SetItemsProcessed(int64_t{SideOf(w.kind)} * SideOf(w.kind) * state.iterations());
}

// `pixels`: the floor of a program that converts its own picture words into each row just before
// writing it (the "_FloorPixels" runs), else rows prepared beforehand.
void Floor(benchmark::State& state, const Write& w, bool pixels = false) {
    const Rows& rows = PreparedRows(w.kind);
    const Pixels& words = PictureWords(w.kind);
    std::vector<uint8_t> row(rows.rowBytes);
    const auto side = size_t(SideOf(w.kind));
    const auto prepared = [&](uint32_t y) {
        return const_cast<uint8_t*>(rows.bytes.data() + rows.rowBytes * y);
    };
    const auto converted = [&](uint32_t y) {
        const size_t at = size_t(y) * side;
        ConvertRow(w.kind, words.colour.data() + at, words.mask.empty() ? nullptr : words.mask.data() + at,
                   int32_t(side), row.data());
        return row.data();
    };
    const std::string path = FileName(w, "floor");
    double peak = 0;
    for (auto _ : state) {
        ResetPeakMemory();
        if (!(pixels ? FloorWrite(w, path, converted) : FloorWrite(w, path, prepared)))
            state.SkipWithError("the floor's write failed");
        peak = std::max(peak, PeakMemoryMB());
    }
    SetPeakMemoryCounter(state, peak);
    state.SetItemsProcessed(int64_t(side * side) * state.iterations());
    Session session;
    const std::string reference = FileName(w, "reference");
    if (!PluginWrite(session, w, reference) || FileBytes(reference) != FileBytes(path))
        state.SkipWithError("the floor's file differs from the plugin's");
    std::remove(path.c_str());
    std::remove(reference.c_str());
}

void WriteRGB4096(benchmark::State& state) {
    Ours(state, RgbWrite(state), "WriteRGB");
}
void WriteRGB4096_Floor(benchmark::State& state) {
    Floor(state, RgbWrite(state));
}
void WriteRGB4096_FloorPixels(benchmark::State& state) {
    Floor(state, RgbWrite(state), true);
}
void RgbArgs(benchmark::internal::Benchmark* b) {
    b->ArgNames({"compression", "mask"});
    for (int64_t mask : {0, 1})
        for (int64_t c : {COMPRESSION_NONE, COMPRESSION_LZW}) b->Args({c, mask});
    b->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
}
BENCHMARK(WriteRGB4096)->Apply(RgbArgs);
BENCHMARK(WriteRGB4096_Floor)->Apply(RgbArgs);
BENCHMARK(WriteRGB4096_FloorPixels)->Apply(RgbArgs);

void WriteGray4096(benchmark::State& state) {
    Ours(state, GreyWrite(state), "WriteGray");
}
void WriteGray4096_Floor(benchmark::State& state) {
    Floor(state, GreyWrite(state));
}
void WriteGray4096_FloorPixels(benchmark::State& state) {
    Floor(state, GreyWrite(state), true);
}
void GreyArgs(benchmark::internal::Benchmark* b) {
    b->ArgName("bits")->Arg(8)->Arg(16);
    b->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
}
BENCHMARK(WriteGray4096)->Apply(GreyArgs);
BENCHMARK(WriteGray4096_Floor)->Apply(GreyArgs);
BENCHMARK(WriteGray4096_FloorPixels)->Apply(GreyArgs);

void WriteBW8192(benchmark::State& state) {
    Ours(state, BilevelWrite(state), "WriteBW");
}
void WriteBW8192_Floor(benchmark::State& state) {
    Floor(state, BilevelWrite(state));
}
void WriteBW8192_FloorPixels(benchmark::State& state) {
    Floor(state, BilevelWrite(state), true);
}
void BilevelArgs(benchmark::internal::Benchmark* b) {
    b->ArgName("compression")->Arg(COMPRESSION_NONE)->Arg(COMPRESSION_CCITTFAX4);
    b->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
}
BENCHMARK(WriteBW8192)->Apply(BilevelArgs);
BENCHMARK(WriteBW8192_Floor)->Apply(BilevelArgs);
BENCHMARK(WriteBW8192_FloorPixels)->Apply(BilevelArgs);

}  // namespace
}  // namespace tqvbench
