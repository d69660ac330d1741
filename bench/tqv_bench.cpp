// Speed of ReadRGB, TIFFStringToPictureTQV and CreateString, measured through the plugin as a
// host program would call it, against the floor: the same work through libtiff's plain API in
// the same process.
//
// Naming: a benchmark "X" with a floor has it as "X_Floor" with the same arguments; the label is
// "operation|image|ratio target|peak target MB", and bench/report.py pairs them into one table.
// Times are the process's CPU time (user and system, every thread), not wall-clock time: the
// machine is often shared, and CPU time stays comparable under load. Page faults on fresh
// picture memory count, as system time.
//
// CreateStringWrite/16, /256 and /512: WriteRGB of a picture holding that many MiB of RGB rows
// into an in-memory TIFF. The buffer grows in 1 MiB steps; the cost per MiB (the "ns_per_MiB"
// counter) must stay flat, i.e. growth is not quadratic.
//
// ReadRGB4096 against TIFFReadRGBAImage, per compression (1 none, 5 LZW, 8 Deflate with
// predictor, 7 JPEG) and samples (3 RGB, 4 RGBA with unassociated alpha). JPEG RGB is stored as
// YCbCr with 2 x 2 subsampling, as cameras and scanners write it; JPEG RGBA as four independent
// components (libjpeg cannot convert YCbCr with an extra sample).
// Beyond libtiff's work, ReadRGB makes two host pictures of 64 MiB (the host's allocation and
// page faults) and converts into them.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

#ifdef TQV_BENCH_PIXBUF
#include <gdk-pixbuf/gdk-pixbuf.h>
#endif
#ifdef TQV_BENCH_VIPS
#include <vips/vips.h>
#endif

#include "bench_common.h"

namespace tqvbench {
namespace {

using namespace tqvhost;

constexpr int kImageSide = 4096;
constexpr int kRowWidth = 4096;

void CreateStringWrite(benchmark::State& state) {
    const int64_t mib = state.range(0);
    const auto rows = static_cast<int32_t>(mib * 1048576 / (kRowWidth * 3));
    Session session;
    HostRef picture(makePicture(kRowWidth, rows, 32));
    double peak = 0;
    for (auto _ : state) {
        ResetPeakMemory();
        session.Call("CreateString(Size as integer) as boolean", {IntegerArg(0)});
        session.SetPict(picture.get());
        if (!session.Call("WriteRGB as boolean").b) state.SkipWithError("WriteRGB failed");
        session.Call("Close");
        peak = std::max(peak, PeakMemoryMB());
    }
    const double bytes = double(rows) * kRowWidth * 3;
    state.SetLabel("CreateString + WriteRGB|" + std::to_string(mib) + " MiB of RGB rows|");
    SetPeakMemoryCounter(state, peak);
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
    state.counters["ns_per_MiB"] =
        benchmark::Counter(bytes / kMiB * 1e-9 * double(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(CreateStringWrite)
    ->Arg(16)
    ->Arg(256)
    ->Arg(512)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();

// A 4096 x 4096 RGB image with smooth gradients and some noise, the way a scanner or camera
// pipeline leaves it, in one of the compressions such files typically carry.
std::string MakeImageFile(uint16_t compression, uint16_t samples) {
    const std::string p =
        ScratchPath("tqv_bench_4096_" + std::to_string(compression) + "_" + std::to_string(samples) + ".tif");
    TIFF* tif = TIFFOpen(p.c_str(), "w");
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, kImageSide);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, kImageSide);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, samples);
    if (samples == 4) {
        const uint16_t extra = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &extra);
    }
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, compression);
    if (compression == COMPRESSION_JPEG && samples == 3) {
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR);
        TIFFSetField(tif, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    } else {
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        if (compression == COMPRESSION_ADOBE_DEFLATE) TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    }
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 16);
    std::vector<uint8_t> row(size_t{kImageSide} * samples);
    uint32_t noise = 12345;
    for (uint32_t y = 0; y < kImageSide; ++y) {
        for (uint32_t x = 0; x < kImageSide; ++x) {
            noise = noise * 1103515245u + 12345u;
            const auto n = static_cast<uint8_t>((noise >> 16) & 15);
            uint8_t* p = row.data() + size_t{x} * samples;
            p[0] = static_cast<uint8_t>(x / 16 + n);
            p[1] = static_cast<uint8_t>(y / 16 + n);
            p[2] = static_cast<uint8_t>((x + y) / 32 + n);
            if (samples == 4) p[3] = static_cast<uint8_t>(x / 8 + y / 64);
        }
        TIFFWriteScanline(tif, row.data(), y, 0);
    }
    TIFFClose(tif);
    return p;
}

const std::string& ImageFile(int64_t compression, int64_t samples) {
    static std::map<std::pair<int64_t, int64_t>, std::string> files;
    const auto key = std::make_pair(compression, samples);
    auto it = files.find(key);
    if (it == files.end())
        it = files
                 .emplace(key,
                          MakeImageFile(static_cast<uint16_t>(compression), static_cast<uint16_t>(samples)))
                 .first;
    return it->second;
}

std::string ImageName(int64_t compression, int64_t samples) {
    const char* names[] = {"?", "none", "?", "?", "?", "LZW", "?", "JPEG", "Deflate + predictor"};
    return "4096x4096 " + std::string(samples == 3 ? "RGB " : "RGBA ") +
           (compression >= 1 && compression <= 8 ? names[compression] : "?");
}

// The targets: at most 1.3 x the floor uncompressed, 1.1 x compressed.
std::string Target(int64_t compression) {
    return compression == COMPRESSION_NONE ? "1.3" : "1.1";
}

void Compressions(benchmark::internal::Benchmark* b) {
    b->ArgNames({"compression", "samples"});
    for (int64_t samples : {3, 4})
        for (int64_t c : {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_JPEG})
            b->Args({c, samples});
}

void ReadRGB4096(benchmark::State& state) {
    Session session;
    const std::string& path = ImageFile(state.range(0), state.range(1));
    double peak = 0;
    for (auto _ : state) {
        ResetPeakMemory();
        session.Call("Open(file as folderitem) as boolean", {FolderItemArg(path)});
        if (!session.Call("ReadRGB as boolean").b) state.SkipWithError("ReadRGB failed");
        session.Call("Close");
        peak = std::max(peak, PeakMemoryMB());
    }
    // Peak memory: at most libtiff's raster and the two pictures (4 bytes a pixel each) + 16 MiB.
    const double peakTarget = (3.0 * kImageSide * kImageSide * 4 + 16 * kMiB) / 1e6;
    state.SetLabel("ReadRGB|" + ImageName(state.range(0), state.range(1)) + "|" + Target(state.range(0)) +
                   "|" + std::to_string(static_cast<int>(peakTarget)));
    SetPeakMemoryCounter(state, peak);
    state.SetItemsProcessed(int64_t{kImageSide} * kImageSide * state.iterations());
}
BENCHMARK(ReadRGB4096)->Apply(Compressions)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

void ReadRGB4096_Floor(benchmark::State& state) {
    const std::string& path = ImageFile(state.range(0), state.range(1));
    TIFFSetWarningHandler(nullptr);
    double peak = 0;
    for (auto _ : state) {
        ResetPeakMemory();
        TIFF* tif = TIFFOpen(path.c_str(), "r");
        auto* raster = static_cast<uint32_t*>(_TIFFmalloc(tmsize_t{kImageSide} * kImageSide * 4));
        if (!TIFFReadRGBAImage(tif, kImageSide, kImageSide, raster, 0)) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(raster);
        _TIFFfree(raster);
        TIFFClose(tif);
        peak = std::max(peak, PeakMemoryMB());
    }
    SetPeakMemoryCounter(state, peak);
    state.SetItemsProcessed(int64_t{kImageSide} * kImageSide * state.iterations());
}
BENCHMARK(ReadRGB4096_Floor)->Apply(Compressions)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

// TIFFStringToPictureTQV of the same files held in a host string, against TIFFReadRGBAImage of
// the bytes through a plain in-memory client stream.
void StringToPicture4096(benchmark::State& state) {
    const Method& convert = GlobalMethod("TIFFStringToPictureTQV(data as string) as picture");
    // The host program holds the file in a string already; making that string is not measured.
    const Arg data = StringArg(FileBytes(ImageFile(state.range(0), state.range(1))));
    double peak = 0;
    for (auto _ : state) {
        ResetPeakMemory();
        std::vector<Arg> args{data};
        const Value picture = callDeclared(convert.function, convert.decl, nullptr, args);
        if (picture.kind == TypeKind::None || !picture.handle) state.SkipWithError("no picture");
        peak = std::max(peak, PeakMemoryMB());
    }
    state.SetLabel("TIFFStringToPictureTQV|" + ImageName(state.range(0), state.range(1)) + "|" +
                   Target(state.range(0)));
    SetPeakMemoryCounter(state, peak);
    state.SetItemsProcessed(int64_t{kImageSide} * kImageSide * state.iterations());
}
BENCHMARK(StringToPicture4096)->Apply(Compressions)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

void StringToPicture4096_Floor(benchmark::State& state) {
    const std::string bytes = FileBytes(ImageFile(state.range(0), state.range(1)));
    TIFFSetWarningHandler(nullptr);
    double peak = 0;
    for (auto _ : state) {
        ResetPeakMemory();
        TIFF* tif = OpenMemoryTiff(&bytes);
        auto* raster = static_cast<uint32_t*>(_TIFFmalloc(tmsize_t{kImageSide} * kImageSide * 4));
        if (tif == nullptr || !TIFFReadRGBAImage(tif, kImageSide, kImageSide, raster, 0))
            state.SkipWithError("read failed");
        benchmark::DoNotOptimize(raster);
        _TIFFfree(raster);
        if (tif != nullptr) TIFFClose(tif);
        peak = std::max(peak, PeakMemoryMB());
    }
    SetPeakMemoryCounter(state, peak);
    state.SetItemsProcessed(int64_t{kImageSide} * kImageSide * state.iterations());
}
BENCHMARK(StringToPicture4096_Floor)
    ->Apply(Compressions)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();

// Peers: the same files through the loaders a host program would otherwise use, where their
// Debian development packages were found at configure time. libvips runs on one thread with its
// operation cache off, so each iteration decodes the whole file once, as the others do.
#ifdef TQV_BENCH_PIXBUF
void ReadRGB4096_Peer_gdkpixbuf(benchmark::State& state) {
    const std::string& path = ImageFile(state.range(0), state.range(1));
    for (auto _ : state) {
        GError* error = nullptr;
        GdkPixbuf* pixbuf = gdk_pixbuf_new_from_file(path.c_str(), &error);
        if (pixbuf == nullptr) {
            state.SkipWithError(error != nullptr ? error->message : "gdk-pixbuf failed");
            if (error != nullptr) g_error_free(error);
            break;
        }
        benchmark::DoNotOptimize(gdk_pixbuf_get_pixels(pixbuf));
        g_object_unref(pixbuf);
    }
    state.SetLabel("gdk-pixbuf|" + ImageName(state.range(0), state.range(1)) + "|");
    state.SetItemsProcessed(int64_t{kImageSide} * kImageSide * state.iterations());
}
BENCHMARK(ReadRGB4096_Peer_gdkpixbuf)
    ->Apply(Compressions)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();

// The same bytes already in memory, as TIFFStringToPictureTQV gets them: a pixbuf loader fed the
// whole file at once.
void StringToPicture4096_Peer_gdkpixbuf(benchmark::State& state) {
    const std::string bytes = FileBytes(ImageFile(state.range(0), state.range(1)));
    for (auto _ : state) {
        GError* error = nullptr;
        GdkPixbufLoader* loader = gdk_pixbuf_loader_new_with_type("tiff", &error);
        const bool loaded =
            loader != nullptr &&
            gdk_pixbuf_loader_write(loader, reinterpret_cast<const guchar*>(bytes.data()), bytes.size(), &error) &&
            gdk_pixbuf_loader_close(loader, &error);
        GdkPixbuf* pixbuf = loaded ? gdk_pixbuf_loader_get_pixbuf(loader) : nullptr;
        if (pixbuf == nullptr) state.SkipWithError(error != nullptr ? error->message : "gdk-pixbuf failed");
        else benchmark::DoNotOptimize(gdk_pixbuf_get_pixels(pixbuf));
        if (error != nullptr) g_error_free(error);
        if (loader != nullptr) g_object_unref(loader);
        if (pixbuf == nullptr) break;
    }
    state.SetLabel("gdk-pixbuf loader|" + ImageName(state.range(0), state.range(1)) + "|");
    state.SetItemsProcessed(int64_t{kImageSide} * kImageSide * state.iterations());
}
BENCHMARK(StringToPicture4096_Peer_gdkpixbuf)
    ->Apply(Compressions)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();
#endif

#ifdef TQV_BENCH_VIPS
// One thread, operation cache off: each iteration decodes the whole image once.
bool StartVips() {
    static const bool started = [] {
        if (VIPS_INIT("tqv_bench") != 0) return false;
        vips_concurrency_set(1);
        vips_cache_set_max(0);
        return true;
    }();
    return started;
}

// Each iteration opens the image with `open` and decodes all of it into memory.
template <typename Open>
void DecodeWithVips(benchmark::State& state, const char* loader, Open open) {
    if (!StartVips()) state.SkipWithError("libvips failed");
    for (auto _ : state) {
        VipsImage* image = open();
        size_t size = 0;
        void* pixels = image != nullptr ? vips_image_write_to_memory(image, &size) : nullptr;
        if (pixels == nullptr) state.SkipWithError("libvips failed");
        benchmark::DoNotOptimize(pixels);
        g_free(pixels);
        if (image != nullptr) g_object_unref(image);
        if (pixels == nullptr) break;
    }
    state.SetLabel(std::string(loader) + "|" + ImageName(state.range(0), state.range(1)) + "|");
    state.SetItemsProcessed(int64_t{kImageSide} * kImageSide * state.iterations());
}

void ReadRGB4096_Peer_libvips(benchmark::State& state) {
    const std::string& path = ImageFile(state.range(0), state.range(1));
    DecodeWithVips(state, "libvips", [&] { return vips_image_new_from_file(path.c_str(), nullptr); });
}
BENCHMARK(ReadRGB4096_Peer_libvips)
    ->Apply(Compressions)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();

void StringToPicture4096_Peer_libvips(benchmark::State& state) {
    const std::string bytes = FileBytes(ImageFile(state.range(0), state.range(1)));
    DecodeWithVips(state, "libvips buffer",
                   [&] { return vips_image_new_from_buffer(bytes.data(), bytes.size(), "", nullptr); });
}
BENCHMARK(StringToPicture4096_Peer_libvips)
    ->Apply(Compressions)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();
#endif

}  // namespace
}  // namespace tqvbench

BENCHMARK_MAIN();
