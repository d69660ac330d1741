// libFuzzer target for the writing side: every input is a small program that a host program could
// run against an in-memory TIFF made by CreateString. It sets typed properties, generic fields,
// custom tags, colour maps, profiles and pictures to values taken from the input, writes images
// and scanlines, adds pages, and closes; the written bytes are then opened again and read in
// every way, as the reading fuzzer does. The host must survive, and after the sessions are gone
// the plugin must hold no reference and the host must have seen no accounting fault.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "read_everything.h"
#include "tqvhost/host.h"
#include "tqvhost/picture.h"
#include "tqvhost/values.h"

namespace {

using hard::Bytes;
using hard::Dbl;
using hard::Int;
using tqvhost::TypeKind;
using tqvhost::Value;

// The input, consumed from the front; zeros once it runs out.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    bool empty() const { return at_ >= size_; }
    uint8_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
    uint16_t U16() { return static_cast<uint16_t>(Byte() | Byte() << 8); }
    int32_t I32() { return static_cast<int32_t>(uint32_t{U16()} | uint32_t{U16()} << 16); }
    template <size_t N>
    const char* Pick(const char* const (&names)[N]) {
        return names[Byte() % N];
    }
    // Mostly small values, sometimes one at a limit. Not any 32-bit value: a row index or a
    // size in the millions is legitimate work for libtiff (a scanline written at row 50,000,000
    // makes it keep and write 50 million strip offsets) and would only slow the search down.
    int32_t Size(int32_t small) {
        static const int32_t kLimits[] = {-1, INT32_MIN, INT32_MAX, 65535, 65536, 1 << 20};
        const uint8_t how = Byte();
        return how < 240 ? how % (small + 1) : kLimits[how % (sizeof kLimits / sizeof kLimits[0])];
    }
    std::string Text(size_t most) {
        const size_t n = Byte() % (most + 1);
        std::string s;
        for (size_t i = 0; i < n && !empty(); ++i) s.push_back(static_cast<char>(Byte()));
        return s;
    }

  private:
    const uint8_t* data_;
    size_t size_;
    size_t at_ = 0;
};

// Tags a program is likely to set, and any tag at all.
uint16_t Tag(Input& in) {
    static const uint16_t kTags[] = {256, 257, 258, 259, 262,   266,   269,   270,   271,   272,   273,  274,
                                     277, 278, 279, 282, 283,   284,   285,   286,   287,   296,   297,  305,
                                     306, 315, 317, 318, 319,   320,   322,   323,   338,   339,   340,  341,
                                     530, 531, 532, 700, 33432, 34377, 34665, 34675, 37724, 65000, 65100};
    const uint8_t how = in.Byte();
    return how < 200 ? kTags[how % (sizeof kTags / sizeof kTags[0])] : in.U16();
}

Value Single(double v) {
    Value x;
    x.kind = TypeKind::Single;
    x.d = v;
    return x;
}

Value BlockOf(Input& in, int32_t most) {
    const int32_t size = in.Byte() % (most + 1);
    Value block = hard::Block(size);
    auto* bytes = block.handle.as<tqvhost::MemoryBlockHandle>()->data();
    for (int32_t i = 0; i < size; ++i) bytes[i] = in.Byte();
    return block;
}

Value PictureOf(Input& in) {
    const int32_t width = 1 + in.Byte() % 48;
    const int32_t height = 1 + in.Byte() % 48;
    Value x;
    x.kind = TypeKind::Picture;
    auto* picture = tqvhost::makePicture(width, height, 32);
    x.handle = tqvhost::HostRef(picture);
    const uint32_t seed = uint32_t{in.U16()} * 2654435761u;
    for (int32_t y = 0; y < height; ++y)
        for (int32_t col = 0; col < width; ++col)
            picture->setPixel(col, y, (seed ^ static_cast<uint32_t>(col * 7919 + y * 104729)) & 0xFFFFFF);
    return x;
}

double Real(Input& in) {
    static const double kSpecial[] = {0.0, -1.0, 72.0, 300.0, 1e-30, 1e30, NAN, INFINITY, -INFINITY};
    const uint8_t how = in.Byte();
    if (how < 64) return kSpecial[how % (sizeof kSpecial / sizeof kSpecial[0])];
    return static_cast<double>(in.I32()) / 64.0;
}

void SetProperty(hard::Session& s, Input& in) {
    static const char* const kSizes[] = {"Width", "Height", "RowsPerStrip"};
    static const char* const kCodes[] = {"BitsPerSample", "SamplesPerPixel", "Photometric",
                                         "Compression",   "PlanarConfig",    "FillOrder",
                                         "Orientation",   "ResolutionUnit",  "JPEGQuality"};
    static const char* const kReals[] = {"HorizontalResolution", "VerticalResolution", "HorizontalPosition",
                                         "VerticalPosition"};
    static const char* const kTexts[] = {"Copyright",    "DateTime",         "DocumentName",
                                         "HostComputer", "ImageDescription", "Make",
                                         "Model",        "PageName",         "Software"};
    // Values a program is likely to use for the coded fields, and any 16-bit value.
    static const int32_t kCodeValues[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 16, 32, 32773, 32946, 34676, 65535};
    switch (in.Byte() % 5) {
        case 0:
            s.Set(in.Pick(kSizes), Int(in.Size(96)));
            break;
        case 1: {
            const char* name = in.Pick(kCodes);
            const uint8_t how = in.Byte();
            s.Set(name, Int(how < 200 ? kCodeValues[how % (sizeof kCodeValues / sizeof kCodeValues[0])]
                                      : in.I32()));
            break;
        }
        case 2:
            s.Set(in.Pick(kReals), Single(Real(in)));
            break;
        case 3:
            s.Set(in.Pick(kTexts), Bytes(in.Text(40)));
            break;
        default:
            s.Set("ExtraSamples", BlockOf(in, 8));
            break;
    }
}

void SetField(hard::Session& s, Input& in) {
    const int64_t tag = Tag(in);
    switch (in.Byte() % 9) {
        case 0:
            (void)s.Call("SetFieldInteger", {Int(tag), Int(in.I32())});
            break;
        case 1:
            (void)s.Call("SetFieldShort", {Int(tag), Int(in.U16())});
            break;
        case 2:
            (void)s.Call("SetFieldByte", {Int(tag), Int(in.Byte())});
            break;
        case 3:
            (void)s.Call("SetFieldDouble", {Int(tag), Dbl(Real(in))});
            break;
        case 4:
            (void)s.Call("SetFieldSingle", {Int(tag), Single(Real(in))});
            break;
        case 5:
            (void)s.Call("SetFieldString", {Int(tag), Bytes(in.Text(32))});
            break;
        case 6: {
            const int64_t count = in.Size(16);
            (void)s.Call("SetFieldMemory", {Int(tag), Int(count), BlockOf(in, 64)});
            break;
        }
        case 7:
            (void)s.Call("SetData", {Int(tag), Bytes(in.Text(64))});
            break;
        default:
            (void)s.Call(in.Byte() % 2 ? "SetColorProfile" : "SetXMP", {Bytes(in.Text(64))});
            break;
    }
}

void AddCustomTag(hard::Session& s, Input& in) {
    const int64_t tag = 32768 + in.U16() % 32768;
    const int64_t readCount = static_cast<int16_t>(in.U16());
    const int64_t writeCount = static_cast<int16_t>(in.U16());
    const int64_t type = in.Byte() % 20;
    const int64_t bit = in.Byte();
    (void)s.Call("AddCustomTag", {Int(tag), Int(readCount), Int(writeCount), Int(type), Int(bit),
                                  Int(in.Byte() % 2), Int(in.Byte() % 2), Bytes(in.Text(12))});
}

void WriteSomething(hard::Session& s, Input& in) {
    static const char* const kWrites[] = {"WriteRGB", "WriteGray", "WriteBW"};
    switch (in.Byte() % 6) {
        case 0:
            s.Set("Pict", PictureOf(in));
            break;
        case 1:
            s.Set("Mask", PictureOf(in));
            break;
        case 2:
            (void)s.Call(in.Pick(kWrites));
            break;
        case 3: {
            const int64_t index = in.Size(64);
            (void)s.Call("Scanline", {BlockOf(in, 255), Int(index), Int(in.Byte() % 4)});
            break;
        }
        case 4:
            (void)s.Call("SetColorMap", {BlockOf(in, 64), BlockOf(in, 64), BlockOf(in, 64)});
            break;
        default: {
            static const char* const kPages[] = {"AddImage", "RewriteDirectory", "SaveImage", "Flush",
                                                 "FlushData"};
            (void)s.Call(in.Pick(kPages));
            break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    hard::StartHost();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int64_t before = hard::Live();
    Input in(data, size);
    std::string written;
    {
        hard::Session s;
        static const char* const kModes[] = {"w", "wl", "wb", "w8", "wh", "w8b", "a", "r+"};
        if (s.Call("CreateString", {Int(in.Size(4096)), Bytes(in.Pick(kModes))}).b) {
            for (int op = 0; op < 48 && !in.empty(); ++op) {
                switch (in.Byte() % 4) {
                    case 0:
                        SetProperty(s, in);
                        break;
                    case 1:
                        SetField(s, in);
                        break;
                    case 2:
                        AddCustomTag(s, in);
                        break;
                    default:
                        WriteSomething(s, in);
                        break;
                }
            }
            s.Call("Close");
            written = hard::StringBytes(s.Get("OutputBuffer"));
        }
    }
    // What was written must open and read back, or fail, like any other input.
    if (!written.empty()) hard::ReadEverything(written, 4, 0, int64_t{1} << 14);
    hard::AbortUnlessBalanced(before);
    return 0;
}
