// Speed of the picture paths, measured through the plugin as a host program would call it.
//
// CreateStringWrite/16 and /256: WriteRGB of a picture holding that many MiB of RGB rows into
// an in-memory TIFF. The buffer grows in 1 MiB steps; the cost per MiB (the "ns_per_MiB"
// counter) must stay flat from 16 to 256 MiB, i.e. growth is not quadratic.
//
// ReadRGB4096 vs LibtiffReadRGBA4096, per compression (5 LZW, 8 Deflate, 7 JPEG): the plugin's
// ReadRGB of a 4096 x 4096 image against libtiff's own TIFFReadRGBAImage of the same file;
// ReadRGB should cost at most 1.3 times as much. Beyond libtiff's work, ReadRGB makes two host
// pictures of 64 MiB (the host's allocation and page faults) and converts into them.
#include <benchmark/benchmark.h>
#include <tiffio.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "tqvhost/host.h"
#include "tqvhost/invoke.h"
#include "tqvhost/picture.h"
#include "tqvhost/registry.h"
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
BENCHMARK(CreateStringWrite)->Arg(16)->Arg(256)->Unit(benchmark::kMillisecond)->UseRealTime();

// A 4096 x 4096 RGB image with smooth gradients and some noise, the way a scanner or camera
// pipeline leaves it, in one of the compressions such files typically carry.
std::string MakeImageFile(uint16_t compression) {
    const char* tmp = std::getenv("TMPDIR");
    const std::string p = std::string(tmp != nullptr ? tmp : "/tmp") + "/tqv_bench_4096_" +
                          std::to_string(compression) + ".tif";
    TIFF* tif = TIFFOpen(p.c_str(), "w");
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, kImageSide);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, kImageSide);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, compression);
    if (compression == COMPRESSION_JPEG) {
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR);
        TIFFSetField(tif, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    } else {
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    }
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 16);
    std::vector<uint8_t> row(kImageSide * 3);
    uint32_t noise = 12345;
    for (uint32_t y = 0; y < kImageSide; ++y) {
        for (uint32_t x = 0; x < kImageSide; ++x) {
            noise = noise * 1103515245u + 12345u;
            const auto n = static_cast<uint8_t>((noise >> 16) & 15);
            row[x * 3] = static_cast<uint8_t>(x / 16 + n);
            row[x * 3 + 1] = static_cast<uint8_t>(y / 16 + n);
            row[x * 3 + 2] = static_cast<uint8_t>((x + y) / 32 + n);
        }
        TIFFWriteScanline(tif, row.data(), y, 0);
    }
    TIFFClose(tif);
    return p;
}

const std::string& ImageFile(int64_t compression) {
    static std::map<int64_t, std::string> files;
    auto it = files.find(compression);
    if (it == files.end())
        it = files.emplace(compression, MakeImageFile(static_cast<uint16_t>(compression))).first;
    return it->second;
}

void Compressions(benchmark::internal::Benchmark* b) {
    b->ArgName("compression")->Arg(COMPRESSION_LZW)->Arg(COMPRESSION_ADOBE_DEFLATE)->Arg(COMPRESSION_JPEG);
}

void ReadRGB4096(benchmark::State& state) {
    Session session;
    const std::string& path = ImageFile(state.range(0));
    for (auto _ : state) {
        session.Call("Open(file as folderitem) as boolean", {FolderItemArg(path)});
        if (!session.Call("ReadRGB as boolean").b) state.SkipWithError("ReadRGB failed");
        session.Call("Close");
    }
    state.SetItemsProcessed(int64_t{kImageSide} * kImageSide * state.iterations());
}
BENCHMARK(ReadRGB4096)->Apply(Compressions)->Unit(benchmark::kMillisecond)->UseRealTime();

void LibtiffReadRGBA4096(benchmark::State& state) {
    const std::string& path = ImageFile(state.range(0));
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
BENCHMARK(LibtiffReadRGBA4096)->Apply(Compressions)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
