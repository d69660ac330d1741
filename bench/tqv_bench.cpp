// Speed of the picture paths, measured through the plugin as a host program would call it.
//
// CreateStringWrite/16 and /256: WriteRGB of a picture holding that many MiB of RGB rows into
// an in-memory TIFF. The buffer grows in 1 MiB steps; the cost per MiB (the "ns_per_MiB"
// counter) must stay flat from 16 to 256 MiB, i.e. growth is not quadratic.
//
// ReadRGB4096 vs LibtiffReadRGBA4096, per compression (1 none, 5 LZW, 8 Deflate, 7 JPEG) and
// samples (3 RGB, 4 RGBA with unassociated alpha; JPEG only RGB): the plugin's
// ReadRGB of a 4096 x 4096 image against libtiff's own TIFFReadRGBAImage of the same file;
// ReadRGB should cost at most 1.3 times as much. Beyond libtiff's work, ReadRGB makes two host
// pictures of 64 MiB (the host's allocation and page faults) and converts into them.
//
// Times are the process's CPU time (user and system, every thread), not wall-clock time: the
// machine is often shared, and CPU time stays comparable under load. Page faults on fresh
// picture memory count, as system time.
#include <benchmark/benchmark.h>
#include <tiffio.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

#include "tqvhost/host.h"
#include "tqvhost/invoke.h"
#include "tqvhost/picture.h"
#include "tqvhost/registry.h"
#include "tqvhost/strings.h"
#include "tqvhost/values.h"

namespace {

using namespace tqvhost;

constexpr int kImageSide = 4096;
constexpr int kRowWidth = 4096;
constexpr double kMiB = 1048576.0;

Class& PluginClass() {
    static Class* cls = [] {
        Config config;
        config.app = AppKind::Desktop;
        config.frameworksDir = TQV_BENCH_FRAMEWORKS;
        configure(config);
        std::string error;
        if (!loadPlugin(TQV_BENCH_PLUGIN, &error)) {
            std::fprintf(stderr, "tqv_bench: %s\n", error.c_str());
            std::exit(1);
        }
        return registry().find("TiffPictureTQV");
    }();
    return *cls;
}

// A session object held by the host.
struct Session {
    HostRef object = HostRef::adopt(newObject(&PluginClass(), false));
    ObjectHandle* get() const { return object.as<ObjectHandle>(); }

    Value Call(const char* declaration, std::vector<Arg> args = {}) {
        for (const Method& m : PluginClass().methods)
            if (m.text == declaration) return callDeclared(m.function, m.decl, get()->address(), args);
        std::fprintf(stderr, "tqv_bench: no method %s\n", declaration);
        std::exit(1);
    }
    void SetPict(Handle* picture) {
        Value v;
        v.kind = TypeKind::Picture;
        v.handle = HostRef(picture);
        setProperty(get(), *PluginClass().findProperty("Pict"), v);
    }
};

Arg IntegerArg(int64_t value) {
    return Arg{Value::integer(TypeKind::Integer, value), false};
}

Arg FolderItemArg(const std::string& path) {
    Arg arg;
    arg.value.kind = TypeKind::FolderItem;
    arg.value.handle = HostRef(makeHandle<FolderItemHandle>(path));
    return arg;
}

void CreateStringWrite(benchmark::State& state) {
    const int64_t mib = state.range(0);
    const auto rows = static_cast<int32_t>(mib * 1048576 / (kRowWidth * 3));
    Session session;
    HostRef picture(makePicture(kRowWidth, rows, 32));
    for (auto _ : state) {
        session.Call("CreateString(Size as integer) as boolean", {IntegerArg(0)});
        session.SetPict(picture.get());
        if (!session.Call("WriteRGB as boolean").b) state.SkipWithError("WriteRGB failed");
        session.Call("Close");
    }
    const double bytes = double(rows) * kRowWidth * 3;
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
    state.counters["ns_per_MiB"] =
        benchmark::Counter(bytes / kMiB * 1e-9 * double(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(CreateStringWrite)->Arg(16)->Arg(256)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

// A 4096 x 4096 RGB image with smooth gradients and some noise, the way a scanner or camera
// pipeline leaves it, in one of the compressions such files typically carry.
std::string MakeImageFile(uint16_t compression, uint16_t samples) {
    const char* tmp = std::getenv("TMPDIR");
    const std::string p = std::string(tmp != nullptr ? tmp : "/tmp") + "/tqv_bench_4096_" +
                          std::to_string(compression) + "_" + std::to_string(samples) + ".tif";
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
    if (compression == COMPRESSION_JPEG) {
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR);
        TIFFSetField(tif, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    } else {
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        if (compression != COMPRESSION_NONE) TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
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

void Compressions(benchmark::internal::Benchmark* b) {
    b->ArgNames({"compression", "samples"});
    for (int64_t samples : {3, 4})
        for (int64_t c : {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE})
            b->Args({c, samples});
    b->Args({COMPRESSION_JPEG, 3});
}

void ReadRGB4096(benchmark::State& state) {
    Session session;
    const std::string& path = ImageFile(state.range(0), state.range(1));
    for (auto _ : state) {
        session.Call("Open(file as folderitem) as boolean", {FolderItemArg(path)});
        if (!session.Call("ReadRGB as boolean").b) state.SkipWithError("ReadRGB failed");
        session.Call("Close");
    }
    state.SetItemsProcessed(int64_t{kImageSide} * kImageSide * state.iterations());
}
BENCHMARK(ReadRGB4096)->Apply(Compressions)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

void LibtiffReadRGBA4096(benchmark::State& state) {
    const std::string& path = ImageFile(state.range(0), state.range(1));
    TIFFSetWarningHandler(nullptr);
    for (auto _ : state) {
        TIFF* tif = TIFFOpen(path.c_str(), "r");
        auto* raster = static_cast<uint32_t*>(_TIFFmalloc(tmsize_t{kImageSide} * kImageSide * 4));
        if (!TIFFReadRGBAImage(tif, kImageSide, kImageSide, raster, 0)) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(raster);
        _TIFFfree(raster);
        TIFFClose(tif);
    }
    state.SetItemsProcessed(int64_t{kImageSide} * kImageSide * state.iterations());
}
BENCHMARK(LibtiffReadRGBA4096)->Apply(Compressions)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

// TIFFStringToPictureTQV of the same files held in a host string, against TIFFReadRGBAImage of
// the bytes through a plain in-memory client stream.
std::string FileBytes(const std::string& path) {
    std::string bytes;
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        char chunk[65536];
        size_t n = 0;
        while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) bytes.append(chunk, n);
        std::fclose(f);
    }
    return bytes;
}

const Method& GlobalMethod(const char* declaration) {
    PluginClass();
    for (const Method& m : registry().globals)
        if (m.text == declaration) return m;
    std::fprintf(stderr, "tqv_bench: no global %s\n", declaration);
    std::exit(1);
}

void StringToPicture4096(benchmark::State& state) {
    const Method& convert = GlobalMethod("TIFFStringToPictureTQV(data as string) as picture");
    const std::string bytes = FileBytes(ImageFile(state.range(0), state.range(1)));
    for (auto _ : state) {
        std::vector<Arg> args(1);
        args[0].value.kind = TypeKind::String;
        args[0].value.handle = HostRef(newString(bytes, 0xFFFF));
        const Value picture = callDeclared(convert.function, convert.decl, nullptr, args);
        if (picture.kind == TypeKind::None || !picture.handle) state.SkipWithError("no picture");
    }
    state.SetItemsProcessed(int64_t{kImageSide} * kImageSide * state.iterations());
}
BENCHMARK(StringToPicture4096)->Apply(Compressions)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

struct MemoryFile {
    const std::string* bytes;
    toff_t position = 0;
};

tmsize_t MemoryRead(thandle_t h, void* out, tmsize_t size) {
    auto* m = static_cast<MemoryFile*>(h);
    const toff_t left = m->position < m->bytes->size() ? m->bytes->size() - m->position : 0;
    const auto n = static_cast<tmsize_t>(std::min<toff_t>(left, static_cast<toff_t>(size)));
    std::memcpy(out, m->bytes->data() + m->position, static_cast<size_t>(n));
    m->position += static_cast<toff_t>(n);
    return n;
}
tmsize_t MemoryWrite(thandle_t, void*, tmsize_t) {
    return -1;
}
toff_t MemorySeek(thandle_t h, toff_t offset, int whence) {
    auto* m = static_cast<MemoryFile*>(h);
    if (whence == SEEK_SET) m->position = offset;
    if (whence == SEEK_CUR) m->position += offset;
    if (whence == SEEK_END) m->position = m->bytes->size() + offset;
    return m->position;
}
int MemoryClose(thandle_t) {
    return 0;
}
toff_t MemorySize(thandle_t h) {
    return static_cast<MemoryFile*>(h)->bytes->size();
}

void LibtiffMemoryReadRGBA4096(benchmark::State& state) {
    const std::string bytes = FileBytes(ImageFile(state.range(0), state.range(1)));
    TIFFSetWarningHandler(nullptr);
    for (auto _ : state) {
        MemoryFile file{&bytes};
        TIFF* tif = TIFFClientOpen("memory", "rm", &file, MemoryRead, MemoryWrite, MemorySeek, MemoryClose,
                                   MemorySize, nullptr, nullptr);
        auto* raster = static_cast<uint32_t*>(_TIFFmalloc(tmsize_t{kImageSide} * kImageSide * 4));
        if (tif == nullptr || !TIFFReadRGBAImage(tif, kImageSide, kImageSide, raster, 0))
            state.SkipWithError("read failed");
        benchmark::DoNotOptimize(raster);
        _TIFFfree(raster);
        if (tif != nullptr) TIFFClose(tif);
    }
    state.SetItemsProcessed(int64_t{kImageSide} * kImageSide * state.iterations());
}
BENCHMARK(LibtiffMemoryReadRGBA4096)
    ->Apply(Compressions)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();

// Peers: the same files through the loaders a host program would otherwise use, where their
// Debian development packages were found at configure time. libvips runs on one thread with its
// operation cache off, so each iteration decodes the whole file once, as the others do.
#ifdef TQV_BENCH_PIXBUF
void PixbufLoad4096(benchmark::State& state) {
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
    state.SetItemsProcessed(int64_t{kImageSide} * kImageSide * state.iterations());
}
BENCHMARK(PixbufLoad4096)->Apply(Compressions)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
#endif

#ifdef TQV_BENCH_VIPS
void VipsLoad4096(benchmark::State& state) {
    static const bool started = [] {
        if (VIPS_INIT("tqv_bench") != 0) return false;
        vips_concurrency_set(1);
        vips_cache_set_max(0);
        return true;
    }();
    const std::string& path = ImageFile(state.range(0), state.range(1));
    for (auto _ : state) {
        VipsImage* image = started ? vips_image_new_from_file(path.c_str(), nullptr) : nullptr;
        size_t size = 0;
        void* pixels = image != nullptr ? vips_image_write_to_memory(image, &size) : nullptr;
        if (pixels == nullptr) state.SkipWithError("libvips failed");
        benchmark::DoNotOptimize(pixels);
        g_free(pixels);
        if (image != nullptr) g_object_unref(image);
        if (pixels == nullptr) break;
    }
    state.SetItemsProcessed(int64_t{kImageSide} * kImageSide * state.iterations());
}
BENCHMARK(VipsLoad4096)->Apply(Compressions)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
#endif

}  // namespace

BENCHMARK_MAIN();
