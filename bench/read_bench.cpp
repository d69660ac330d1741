// The read paths beyond ReadRGB: RGBA memory blocks (whole image, and rectangles between Begin
// and End), bilevel pictures and lookup-table pictures, each against the same work through
// libtiff's plain API (see bench_common.h for the conventions).
//
// ReadRGBMemory: "ReadRGB(byref ErrorMessage as string) as memoryblock" of a 4096 x 4096 RGB
// image (16 rows a strip, uncompressed and LZW with predictor) against TIFFRGBAImageBegin, Get
// and End into a fresh buffer of the same size.
//
// ReadRGBMemorySteps: ReadRGBMemoryBegin, ReadRGBMemoryStep over the image in 1024 x 1024
// rectangles (each block released before the next), ReadRGBMemoryEnd; the floor sets
// row_offset and col_offset and renders each rectangle into a fresh buffer of its size. On the
// 30000 x 30000 tiled image the peak memory must stay under 128 MB.
//
// ReadBW / ReadPreviewBW of an 8192 x 8192 page of text (1 bit, MinIsWhite), uncompressed and
// CCITT Group 4, against a TIFFReadScanline loop over every row into one row buffer. ReadBW
// also fills a host picture of 8192 x 8192 32-bit pixels (256 MiB), which the floor does not.
//
// ReadWithLUT with a full table (256 or 65536 colours) of a 4096 x 4096 grey image, 8 and 16
// bits, against the same scanline loop; ours also fills a 64 MiB host picture.
//
// Those three also run "_FloorPixels": the floor loop of a program that makes the same 32-bit
// pixels itself, into a malloc'ed buffer of the picture's size, with plain per-pixel code. It
// measures what the plugin costs on top of work that any reader producing such pixels does.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "bench_common.h"

namespace tqvbench {
namespace {

using namespace tqvhost;

constexpr int kSide = 4096;
constexpr int kStepSide = 1024;
constexpr int kHugeSide = 30000;
constexpr int kHugeTile = 256;

const char* const kReadRGBMemory = "ReadRGB(byref ErrorMessage as string) as memoryblock";
const char* const kBegin = "ReadRGBMemoryBegin(byref ErrorMessage as string) as boolean";
const char* const kStep =
    "ReadRGBMemoryStep(x as integer, y as integer, width as integer, height as integer) as memoryblock";
const char* const kEnd = "ReadRGBMemoryEnd";
const char* const kOpen = "Open(file as folderitem) as boolean";

// Files are made once and kept in the scratch folder (the 30000 x 30000 image takes a while):
// written under a temporary name and renamed, so an interrupted run leaves no partial file.
template <typename Make>
const std::string& Cached(const std::string& name, Make make) {
    static std::map<std::string, std::string> files;
    auto it = files.find(name);
    if (it == files.end()) {
        const std::string path = ScratchPath(name);
        if (FILE* f = std::fopen(path.c_str(), "rb")) {
            std::fclose(f);
        } else {
            const std::string partial = path + ".partial";
            make(partial);
            std::rename(partial.c_str(), path.c_str());
        }
        it = files.emplace(name, path).first;
    }
    return it->second;
}

// ---- Images ----------------------------------------------------------------------------------

// 4096 x 4096 RGB, gradients with some noise, 16 rows a strip.
const std::string& RgbFile(int64_t compression) {
    return Cached("tqv_rd_rgb4096_" + std::to_string(compression) + ".tif", [&](const std::string& p) {
        TIFF* tif = TIFFOpen(p.c_str(), "w");
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, kSide);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, kSide);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 3);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, static_cast<uint16_t>(compression));
        if (compression != COMPRESSION_NONE) TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 16);
        std::vector<uint8_t> row(size_t{kSide} * 3);
        uint32_t noise = 12345;
        for (uint32_t y = 0; y < kSide; ++y) {
            for (uint32_t x = 0; x < kSide; ++x) {
                noise = noise * 1103515245u + 12345u;
                const auto n = static_cast<uint8_t>((noise >> 16) & 15);
                uint8_t* px = row.data() + size_t{x} * 3;
                px[0] = static_cast<uint8_t>(x / 16 + n);
                px[1] = static_cast<uint8_t>(y / 16 + n);
                px[2] = static_cast<uint8_t>((x + y) / 32 + n);
            }
            TIFFWriteScanline(tif, row.data(), y, 0);
        }
        TIFFClose(tif);
    });
}

// 30000 x 30000 RGB in 256 x 256 Deflate tiles with predictor: a flat colour with slow
// gradients, a few MB on disk.
const std::string& HugeTiledFile() {
    return Cached("tqv_rd_rgb30000_tiled.tif", [](const std::string& p) {
        TIFF* tif = TIFFOpen(p.c_str(), "w8");
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, kHugeSide);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, kHugeSide);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 3);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
        TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
        TIFFSetField(tif, TIFFTAG_TILEWIDTH, kHugeTile);
        TIFFSetField(tif, TIFFTAG_TILELENGTH, kHugeTile);
        std::vector<uint8_t> tile(size_t{kHugeTile} * kHugeTile * 3);
        for (uint32_t ty = 0; ty < kHugeSide; ty += kHugeTile) {
            for (uint32_t tx = 0; tx < kHugeSide; tx += kHugeTile) {
                for (uint32_t j = 0; j < kHugeTile; ++j) {
                    for (uint32_t i = 0; i < kHugeTile; ++i) {
                        const uint32_t x = tx + i, y = ty + j;
                        uint8_t* px = tile.data() + (size_t{j} * kHugeTile + i) * 3;
                        px[0] = 200;
                        px[1] = static_cast<uint8_t>(60 + y / 200);
                        px[2] = static_cast<uint8_t>(x * 255u / kHugeSide);
                    }
                }
                TIFFWriteTile(tif, tile.data(), tx, ty, 0, 0);
            }
        }
        TIFFClose(tif);
    });
}

// The benchmark page (PageBlack), 1 bit, MinIsWhite (1 is black).
void MakePage(const std::string& p, uint16_t compression) {
    TIFF* tif = TIFFOpen(p.c_str(), "w");
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, kPageSide);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, kPageSide);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, compression);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tif, 0));
    std::vector<uint8_t> row(kPageSide / 8);
    for (uint32_t y = 0; y < kPageSide; ++y) {
        std::fill(row.begin(), row.end(), 0);
        for (uint32_t x = 0; x < kPageSide; ++x)
            if (PageBlack(x, y)) row[x >> 3] |= static_cast<uint8_t>(0x80u >> (x & 7));
        TIFFWriteScanline(tif, row.data(), y, 0);
    }
    TIFFClose(tif);
}

const std::string& PageFile(int64_t compression) {
    return Cached("tqv_rd_page8192_" + std::to_string(compression) + ".tif",
                  [&](const std::string& p) { MakePage(p, static_cast<uint16_t>(compression)); });
}

// 4096 x 4096 grey of 8 or 16 bits: gradients with noise over the whole range, uncompressed,
// 16 rows a strip.
const std::string& GreyFile(int64_t bits) {
    return Cached("tqv_rd_grey4096_" + std::to_string(bits) + ".tif", [&](const std::string& p) {
        TIFF* tif = TIFFOpen(p.c_str(), "w");
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, kSide);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, kSide);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, static_cast<uint16_t>(bits));
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 16);
        std::vector<uint8_t> row(size_t{kSide} * static_cast<size_t>(bits / 8));
        uint32_t noise = 777;
        for (uint32_t y = 0; y < kSide; ++y) {
            for (uint32_t x = 0; x < kSide; ++x) {
                noise = noise * 1103515245u + 12345u;
                const uint32_t v = (x * 8u + y * 8u + ((noise >> 16) & 255u)) & 0xFFFFu;
                if (bits == 8) {
                    row[x] = static_cast<uint8_t>(v >> 8);
                } else {
                    const auto s = static_cast<uint16_t>(v);
                    std::memcpy(row.data() + size_t{x} * 2, &s, 2);
                }
            }
            TIFFWriteScanline(tif, row.data(), y, 0);
        }
        TIFFClose(tif);
    });
}

std::string CompressionName(int64_t c) {
    switch (c) {
        case COMPRESSION_NONE:
            return "none";
        case COMPRESSION_LZW:
            return "LZW + predictor";
        case COMPRESSION_CCITTFAX4:
            return "G4";
        default:
            return "?";
    }
}

// ---- RGBA memory blocks ----------------------------------------------------------------------

bool HasBlock(const Value& v) {
    return v.kind == TypeKind::MemoryBlock && v.handle;
}

void ReadRGBMemory(benchmark::State& state) {
    Session session;
    const std::string& path = RgbFile(state.range(0));
    double peak = 0;
    for (auto _ : state) {
        ResetPeakMemory();
        session.Call(kOpen, {FolderItemArg(path)});
        if (!HasBlock(session.Call(kReadRGBMemory, {StringArg("", true)}))) state.SkipWithError("no block");
        session.Call("Close");
        peak = std::max(peak, PeakMemoryMB());
    }
    state.SetLabel("ReadRGB memoryblock|4096x4096 RGB " + CompressionName(state.range(0)) + "|1.05");
    SetPeakMemoryCounter(state, peak);
    state.SetItemsProcessed(int64_t{kSide} * kSide * state.iterations());
}
BENCHMARK(ReadRGBMemory)
    ->ArgName("compression")
    ->Arg(COMPRESSION_NONE)
    ->Arg(COMPRESSION_LZW)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();

void ReadRGBMemory_Floor(benchmark::State& state) {
    const std::string& path = RgbFile(state.range(0));
    TIFFSetWarningHandler(nullptr);
    double peak = 0;
    for (auto _ : state) {
        ResetPeakMemory();
        TIFF* tif = TIFFOpen(path.c_str(), "r");
        char message[1024] = {};
        TIFFRGBAImage image{};
        if (tif == nullptr || !TIFFRGBAImageBegin(&image, tif, 0, message)) {
            state.SkipWithError("begin failed");
            break;
        }
        auto* raster = static_cast<uint32_t*>(_TIFFmalloc(tmsize_t{image.width} * image.height * 4));
        if (!TIFFRGBAImageGet(&image, raster, image.width, image.height)) state.SkipWithError("get failed");
        benchmark::DoNotOptimize(raster);
        TIFFRGBAImageEnd(&image);
        _TIFFfree(raster);
        TIFFClose(tif);
        peak = std::max(peak, PeakMemoryMB());
    }
    SetPeakMemoryCounter(state, peak);
    state.SetItemsProcessed(int64_t{kSide} * kSide * state.iterations());
}
BENCHMARK(ReadRGBMemory_Floor)
    ->ArgName("compression")
    ->Arg(COMPRESSION_NONE)
    ->Arg(COMPRESSION_LZW)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();

// Argument 0 of the step rows: the image (0 huge tiled, else the 4096 file's compression).
const std::string& StepFile(int64_t which) {
    return which == 0 ? HugeTiledFile() : RgbFile(which);
}

std::string StepImageName(int64_t which) {
    return which == 0 ? "30000x30000 RGB Deflate tiles 256" : "4096x4096 RGB " + CompressionName(which);
}

void ReadRGBMemorySteps(benchmark::State& state) {
    Session session;
    const std::string& path = StepFile(state.range(0));
    double peak = 0;
    for (auto _ : state) {
        ResetPeakMemory();
        session.Call(kOpen, {FolderItemArg(path)});
        if (!session.Call(kBegin, {StringArg("", true)}).b) {
            state.SkipWithError("begin failed");
            break;
        }
        const int64_t side = state.range(0) == 0 ? kHugeSide : kSide;
        for (int64_t y = 0; y < side; y += kStepSide) {
            for (int64_t x = 0; x < side; x += kStepSide) {
                const Value block = session.Call(
                    kStep, {IntegerArg(x), IntegerArg(y), IntegerArg(std::min<int64_t>(kStepSide, side - x)),
                            IntegerArg(std::min<int64_t>(kStepSide, side - y))});
                if (!HasBlock(block)) state.SkipWithError("no block");
            }
        }
        session.Call(kEnd);
        session.Call("Close");
        peak = std::max(peak, PeakMemoryMB());
    }
    // Only the tiled image beyond any picture has a memory bound: one block and a few tiles.
    state.SetLabel("ReadRGBMemoryStep 1024|" + StepImageName(state.range(0)) + "|1.05|" +
                   (state.range(0) == 0 ? "128" : ""));
    SetPeakMemoryCounter(state, peak);
    const int64_t side = state.range(0) == 0 ? kHugeSide : kSide;
    state.SetItemsProcessed(side * side * state.iterations());
}
BENCHMARK(ReadRGBMemorySteps)
    ->ArgName("image")
    ->Arg(COMPRESSION_NONE)
    ->Arg(COMPRESSION_LZW)
    ->Arg(0)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();

void ReadRGBMemorySteps_Floor(benchmark::State& state) {
    const std::string& path = StepFile(state.range(0));
    TIFFSetWarningHandler(nullptr);
    double peak = 0;
    for (auto _ : state) {
        ResetPeakMemory();
        TIFF* tif = TIFFOpen(path.c_str(), "r");
        char message[1024] = {};
        TIFFRGBAImage image{};
        if (tif == nullptr || !TIFFRGBAImageBegin(&image, tif, 0, message)) {
            state.SkipWithError("begin failed");
            break;
        }
        const int64_t side = state.range(0) == 0 ? kHugeSide : kSide;
        for (int64_t y = 0; y < side; y += kStepSide) {
            for (int64_t x = 0; x < side; x += kStepSide) {
                const auto w = static_cast<uint32_t>(std::min<int64_t>(kStepSide, side - x));
                const auto h = static_cast<uint32_t>(std::min<int64_t>(kStepSide, side - y));
                auto* raster = static_cast<uint32_t*>(_TIFFmalloc(tmsize_t{w} * h * 4));
                image.row_offset = static_cast<int>(y);
                image.col_offset = static_cast<int>(x);
                if (!TIFFRGBAImageGet(&image, raster, w, h)) state.SkipWithError("get failed");
                benchmark::DoNotOptimize(raster);
                _TIFFfree(raster);
            }
        }
        TIFFRGBAImageEnd(&image);
        TIFFClose(tif);
        peak = std::max(peak, PeakMemoryMB());
    }
    SetPeakMemoryCounter(state, peak);
    const int64_t side = state.range(0) == 0 ? kHugeSide : kSide;
    state.SetItemsProcessed(side * side * state.iterations());
}
BENCHMARK(ReadRGBMemorySteps_Floor)
    ->ArgName("image")
    ->Arg(COMPRESSION_NONE)
    ->Arg(COMPRESSION_LZW)
    ->Arg(0)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();

// ---- Scanline importers ----------------------------------------------------------------------

// The floor of both scanline importers: every row through TIFFReadScanline into one buffer,
// each row read handed to onRow(row, y).
template <typename OnRow>
bool ReadAllScanlines(const std::string& path, OnRow onRow) {
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    if (tif == nullptr) return false;
    uint32_t length = 0;
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &length);
    auto* row = static_cast<uint8_t*>(_TIFFmalloc(TIFFScanlineSize(tif)));
    bool ok = row != nullptr;
    for (uint32_t y = 0; ok && y < length; ++y) {
        ok = TIFFReadScanline(tif, row, y, 0) == 1;
        if (ok) onRow(row, y);
    }
    benchmark::DoNotOptimize(row);
    _TIFFfree(row);
    TIFFClose(tif);
    return ok;
}

// `iteration()` once per benchmark iteration, false for a failed read.
template <typename Iteration>
void ScanlineRuns(benchmark::State& state, int64_t side, Iteration iteration) {
    TIFFSetWarningHandler(nullptr);
    double peak = 0;
    for (auto _ : state) {
        ResetPeakMemory();
        if (!iteration()) state.SkipWithError("read failed");
        peak = std::max(peak, PeakMemoryMB());
    }
    SetPeakMemoryCounter(state, peak);
    state.SetItemsProcessed(side * side * state.iterations());
}

void ScanlineFloor(benchmark::State& state, const std::string& path, int64_t side) {
    ScanlineRuns(state, side, [&] { return ReadAllScanlines(path, [](const uint8_t*, uint32_t) {}); });
}

// The floor loop of a program that uses libtiff directly and also makes the picture's pixels:
// every row read as above, and every `step`-th row turned by `expand(row, out)` into 32-bit words
// in a fresh buffer of the output's size (a side of side / step, rounded up), as plain per-pixel
// code.
template <typename Expand>
void ScanlinePixelsFloor(benchmark::State& state, const std::string& path, int64_t side, uint32_t step,
                         Expand expand) {
    const size_t outSide = (size_t(side) + step - 1) / step;
    ScanlineRuns(state, side, [&] {
        auto* pixels = static_cast<uint32_t*>(std::malloc(outSide * outSide * 4));
        const bool ok = pixels != nullptr && ReadAllScanlines(path, [&](const uint8_t* row, uint32_t y) {
            if (y % step == 0) expand(row, pixels + size_t(y / step) * outSide);
        });
        benchmark::DoNotOptimize(pixels);
        std::free(pixels);
        return ok;
    });
}

// Black and white as the picture holds them (bytes 255, 0, 0, 0 and 255, 255, 255, 255).
constexpr uint32_t kBlackWord = 0x000000FF, kWhiteWord = 0xFFFFFFFF;

// MinIsWhite, most significant bit first: a set bit is black.
void BilevelPixelsFloor(benchmark::State& state, uint32_t step) {
    ScanlinePixelsFloor(state, PageFile(state.range(0)), kPageSide, step, [step](const uint8_t* row, uint32_t* out) {
        for (uint32_t x = 0, k = 0; x < kPageSide; x += step, ++k)
            out[k] = (row[x >> 3] >> (7 - (x & 7)) & 1) != 0 ? kBlackWord : kWhiteWord;
    });
}

void ReadBilevel(benchmark::State& state, const char* declaration, const char* operation) {
    Session session;
    const std::string& path = PageFile(state.range(0));
    double peak = 0;
    for (auto _ : state) {
        ResetPeakMemory();
        session.Call(kOpen, {FolderItemArg(path)});
        if (!session.Call(declaration).b) state.SkipWithError("read failed");
        session.Call("Close");
        peak = std::max(peak, PeakMemoryMB());
    }
    state.SetLabel(std::string(operation) + "|8192x8192 bilevel text " + CompressionName(state.range(0)) +
                   "|1.2");
    SetPeakMemoryCounter(state, peak);
    state.SetItemsProcessed(int64_t{kPageSide} * kPageSide * state.iterations());
}

void ReadBW8192(benchmark::State& state) {
    ReadBilevel(state, "ReadBW as boolean", "ReadBW");
}
void ReadBW8192_Floor(benchmark::State& state) {
    ScanlineFloor(state, PageFile(state.range(0)), kPageSide);
}
void ReadPreviewBW8192(benchmark::State& state) {
    ReadBilevel(state, "ReadPreviewBW as boolean", "ReadPreviewBW");
}
void ReadPreviewBW8192_Floor(benchmark::State& state) {
    ScanlineFloor(state, PageFile(state.range(0)), kPageSide);
}
void ReadBW8192_FloorPixels(benchmark::State& state) {
    BilevelPixelsFloor(state, 1);
}
void ReadPreviewBW8192_FloorPixels(benchmark::State& state) {
    BilevelPixelsFloor(state, 8);
}

void BilevelFiles(benchmark::internal::Benchmark* b) {
    b->ArgName("compression")->Arg(COMPRESSION_NONE)->Arg(COMPRESSION_CCITTFAX4);
    b->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
}
BENCHMARK(ReadBW8192)->Apply(BilevelFiles);
BENCHMARK(ReadBW8192_Floor)->Apply(BilevelFiles);
BENCHMARK(ReadPreviewBW8192)->Apply(BilevelFiles);
BENCHMARK(ReadPreviewBW8192_Floor)->Apply(BilevelFiles);
BENCHMARK(ReadBW8192_FloorPixels)->Apply(BilevelFiles);
BENCHMARK(ReadPreviewBW8192_FloorPixels)->Apply(BilevelFiles);

// A full table for `bits`-bit samples: a false-colour ramp, every entry distinct enough that the
// loop cannot skip work.
Value FullTable(int64_t bits) {
    Value table;
    table.kind = TypeKind::Color;
    const int32_t entries = bits == 8 ? 256 : 65536;
    table.array.resize(static_cast<size_t>(entries));
    for (int32_t i = 0; i < entries; ++i) {
        const uint32_t v = static_cast<uint32_t>(i) * 65536u / static_cast<uint32_t>(entries);
        table.array[static_cast<size_t>(i)] =
            static_cast<int32_t>(((v >> 8) << 16) | (((v >> 4) & 0xFFu) << 8) | ((255u - (v >> 8)) & 0xFFu));
    }
    return table;
}

void ReadWithLUT4096(benchmark::State& state) {
    Session session;
    const std::string& path = GreyFile(state.range(0));
    const Arg table{FullTable(state.range(0)), false};
    double peak = 0;
    for (auto _ : state) {
        ResetPeakMemory();
        session.Call(kOpen, {FolderItemArg(path)});
        if (!session.Call("ReadWithLUT(ColorLookupTable() as color) as boolean", {table}).b)
            state.SkipWithError("read failed");
        session.Call("Close");
        peak = std::max(peak, PeakMemoryMB());
    }
    state.SetLabel("ReadWithLUT|4096x4096 grey " + std::to_string(state.range(0)) + "-bit, " +
                   (state.range(0) == 8 ? "256" : "65536") + " colours|1.2");
    SetPeakMemoryCounter(state, peak);
    state.SetItemsProcessed(int64_t{kSide} * kSide * state.iterations());
}
void ReadWithLUT4096_Floor(benchmark::State& state) {
    ScanlineFloor(state, GreyFile(state.range(0)), kSide);
}
// The host's colours (&h00RRGGBB) as picture words: bytes 255, R, G, B.
void ReadWithLUT4096_FloorPixels(benchmark::State& state) {
    const Value table = FullTable(state.range(0));
    std::vector<uint32_t> words(table.array.size());
    for (size_t i = 0; i < words.size(); ++i) {
        const auto c = static_cast<uint32_t>(table.array[i]);
        words[i] = 0xFFu | (c >> 16 & 0xFFu) << 8 | (c >> 8 & 0xFFu) << 16 | (c & 0xFFu) << 24;
    }
    const std::string& path = GreyFile(state.range(0));
    if (state.range(0) == 8) {
        ScanlinePixelsFloor(state, path, kSide, 1, [&](const uint8_t* row, uint32_t* out) {
            for (size_t x = 0; x < kSide; ++x) out[x] = words[row[x]];
        });
    } else {
        ScanlinePixelsFloor(state, path, kSide, 1, [&](const uint8_t* row, uint32_t* out) {
            for (size_t x = 0; x < kSide; ++x) {
                uint16_t sample;
                std::memcpy(&sample, row + 2 * x, 2);
                out[x] = words[sample];
            }
        });
    }
}
void GreyFiles(benchmark::internal::Benchmark* b) {
    b->ArgName("bits")->Arg(8)->Arg(16);
    b->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
}
BENCHMARK(ReadWithLUT4096)->Apply(GreyFiles);
BENCHMARK(ReadWithLUT4096_Floor)->Apply(GreyFiles);
BENCHMARK(ReadWithLUT4096_FloorPixels)->Apply(GreyFiles);

}  // namespace
}  // namespace tqvbench
