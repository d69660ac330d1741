#include "import/full_colour.h"

#include <tiffio.h>

#include <bit>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "bridge/handles.h"
#include "bridge/services.h"
#include "import/direct_strips.h"
#include "import/rgba_begin.h"
#include "import/rgba_layouts.h"
#include "picture/picture_editor.h"
#include "platform/page_advice.h"
#include "session/messages.h"
#include "session/tiff_data.h"

namespace tqv {
namespace {

// The raster holds 4 bytes a pixel; beyond this many pixels (a 1 GiB raster) an image is not
// decoded at all, so a header that claims a huge size cannot make the read allocate and touch
// gigabytes. Pictures are limited to 32,767 a side anyway.
constexpr uint64_t kMaxRasterPixels = uint64_t{1} << 28;

// ---- Row converters: one per writer layout and picture kind, chosen before the row loop ----

using RowConverter = void (*)(uint8_t* out, const uint32_t* in, int32_t count, uint32_t step);

template <typename Layout>
void ConvertRow(uint8_t* out, const uint32_t* in, int32_t count, uint32_t step) {
    for (int32_t x = 0; x < count; ++x) {
        const uint32_t word = in[size_t{step} * x];
        if constexpr (WordLayout<Layout>) {
            const uint32_t pixel = Layout::Word(word);
            std::memcpy(out + x * 4, &pixel, 4);
        } else {
            Layout::Put(out + x * Layout::kBytes, Unpack(word));
        }
    }
}

// The full-size read takes every pixel: a unit stride the compiler can vectorise.
template <typename Layout>
void ConvertFullRow(uint8_t* out, const uint32_t* in, int32_t count, uint32_t) {
    if constexpr (WordLayout<Layout>) {
        for (int32_t x = 0; x < count; ++x) {
            const uint32_t pixel = Layout::Word(in[x]);
            std::memcpy(out + x * 4, &pixel, 4);
        }
    } else {
        for (int32_t x = 0; x < count; ++x) Layout::Put(out + x * Layout::kBytes, Unpack(in[x]));
    }
}

struct ConverterRow {
    int32_t pixelType;
    RowConverter colour, mask, colourFull, maskFull;
};

constexpr ConverterRow kConverters[] = {
    {kPixelTypeXRGB, ConvertRow<ColourXRGB>, ConvertRow<MaskXRGB>, ConvertFullRow<ColourXRGB>,
     ConvertFullRow<MaskXRGB>},
    {kPixelTypeRGB, ConvertRow<ColourRGB>, ConvertRow<MaskRGB>, ConvertFullRow<ColourRGB>,
     ConvertFullRow<MaskRGB>},
    {kPixelTypeBGRX, ConvertRow<ColourBGRX>, ConvertRow<MaskBGRX>, ConvertFullRow<ColourBGRX>,
     ConvertFullRow<MaskBGRX>},
};

enum class Kind { Colour, Mask };

RowConverter PickConverter(int32_t pixelType, Kind kind, uint32_t step) {
    for (const ConverterRow& row : kConverters) {
        if (row.pixelType != pixelType) continue;
        if (step == 1) return kind == Kind::Colour ? row.colourFull : row.maskFull;
        return kind == Kind::Colour ? row.colour : row.mask;
    }
    return nullptr;
}

// ---- Decoding -------------------------------------------------------------------------------

struct RasterFree {
    void operator()(uint32_t* p) const noexcept { std::free(p); }
};

// libtiff's rendering of an image: bottom-up rows of RGBA words.
struct RasterView {
    const uint32_t* pixels = nullptr;
    uint32_t width = 0;
    uint32_t height = 0;
};

struct Raster {
    std::unique_ptr<uint32_t, RasterFree> pixels;
    uint32_t width = 0;
    uint32_t height = 0;
    RasterView View() const { return {pixels.get(), width, height}; }
};

struct RgbaImage {
    TIFFRGBAImage image{};
    bool begun = false;
    ~RgbaImage() {
        if (begun) TIFFRGBAImageEnd(&image);
    }
};

bool Allocate(Raster& raster, uint32_t width, uint32_t height) {
    const uint64_t pixels = uint64_t{width} * height;
    if (pixels == 0 || pixels > kMaxRasterPixels) return false;
    // Zero-filled, so pixels libtiff leaves unwritten (a damaged strip) read as transparent black;
    // large blocks come as fresh zero pages, so this costs no extra pass.
    raster.pixels.reset(static_cast<uint32_t*>(std::calloc(static_cast<size_t>(pixels), 4)));
    raster.width = width;
    raster.height = height;
    if (raster.pixels == nullptr) return false;
    AdviseWholeWrite(raster.pixels.get(), static_cast<size_t>(pixels) * 4);
    return true;
}

// Begin, allocate, get. The RGBA state ends here, before any yield: host code run by a yield may
// close the handle that the state refers to.
bool Decode(TIFF* tiff, Raster& raster) {
    if (tiff == nullptr) return false;
    RgbaImage rgba;
    char message[1024] = {};
    rgba.begun = BeginRgbaImage(&rgba.image, tiff, message);
    if (!rgba.begun) return false;
    if (!Allocate(raster, rgba.image.width, rgba.image.height)) return false;
    return TIFFRGBAImageGet(&rgba.image, raster.pixels.get(), raster.width, raster.height) != 0;
}

// ---- Building pictures ----------------------------------------------------------------------

// Which raster pixels become the picture: every `step`-th column of every `step`-th row.
struct Sampling {
    uint32_t step = 1;
    int64_t width = 0;   // of the picture
    int64_t height = 0;  // of the picture

    static Sampling Of(RasterView raster, uint32_t step) {
        return {step, (int64_t{raster.width} + step - 1) / step, (int64_t{raster.height} + step - 1) / step};
    }
};

// The yield point after each row; a nil object (the record-only read) never yields.
void AfterRow(REALobject self, TiffData* record) {
    if (self == nullptr) return;
    YieldToHost(self, record);
    current = self;
}

REALpicture BuildPicture(RasterView raster, Sampling sampling, Kind kind, REALobject self, TiffData* record) {
    if (sampling.width > kMaxWriterSide || sampling.height > kMaxWriterSide) return nullptr;
    PictureWriter writer;
    if (!writer.NewPictureWriter(static_cast<int32_t>(sampling.width), static_cast<int32_t>(sampling.height)))
        return nullptr;
    const RowConverter convert = PickConverter(writer.pixelType, kind, sampling.step);
    if (convert == nullptr) return nullptr;
    for (int32_t y = 0; y < writer.height; ++y) {
        const uint64_t sourceRow = raster.height - 1 - uint64_t{sampling.step} * static_cast<uint64_t>(y);
        convert(writer.rowPointer, raster.pixels + sourceRow * raster.width, writer.width, sampling.step);
        writer.AddPixelRow();
        AfterRow(self, record);
    }
    return writer.RenderPictureWriter();
}

// Stores a new picture in a slot (taking over its lock), releasing whatever the slot held: host
// code run by a yield may have filled it meanwhile.
void Store(REALpicture& slot, REALpicture picture) {
    if (REALpicture old = std::exchange(slot, picture)) REALUnlockObject(reinterpret_cast<REALobject>(old));
}

void ReleaseSlots(TiffData* record) {
    Store(record->Pict, nullptr);
    Store(record->Mask, nullptr);
}

// Decodes the current image and builds the mask, then the colour picture. False only when the
// image cannot be decoded; a picture the host cannot make leaves its slot nil.
// The direct read made the pictures before any yield; the yields then come as the raster path
// gives them (one after decoding, one per row of each picture made, one after each picture),
// and the slots fill in the same order.
void StoreDirect(TiffData* record, DirectPictures pictures, REALobject self) {
    PictureRef mask = PictureRef::Steal(pictures.mask);
    PictureRef pict = PictureRef::Steal(pictures.pict);
    const int32_t maskRows = GetPictureHeight(mask.get());
    const int32_t pictRows = GetPictureHeight(pict.get());
    AfterRow(self, record);
    for (int32_t y = 0; y < maskRows; ++y) AfterRow(self, record);
    Store(record->Mask, mask.Release());
    AfterRow(self, record);
    for (int32_t y = 0; y < pictRows; ++y) AfterRow(self, record);
    Store(record->Pict, pict.Release());
    AfterRow(self, record);
}

// An Error or Warning handler that closed the session while libtiff decoded (a warning leaves the
// decode going) ends the read with false, as it ends any operation.
bool ReadInto(TiffData* record, uint32_t step, REALobject self) {
    TIFF* const tiff = record->tiff;
    if (!RowsReadable(tiff, "TIFFRGBAImageBegin")) return false;
    if (step == 1 && DirectPathEnabled()) {
        DirectPictures pictures;
        const bool read = ReadDirect(tiff, pictures);
        if (record->tiff != tiff) {
            const PictureRef unused[] = {PictureRef::Steal(pictures.mask), PictureRef::Steal(pictures.pict)};
            return false;
        }
        if (read) {
            StoreDirect(record, pictures, self);
            return true;
        }
    }
    Raster raster;
    if (!Decode(tiff, raster) || record->tiff != tiff) return false;
    AfterRow(self, record);
    const Sampling sampling = Sampling::Of(raster.View(), step);
    Store(record->Mask, BuildPicture(raster.View(), sampling, Kind::Mask, self, record));
    AfterRow(self, record);
    Store(record->Pict, BuildPicture(raster.View(), sampling, Kind::Colour, self, record));
    AfterRow(self, record);
    return true;
}

TiffData* Begin(REALobject object) {
    TiffData* record = TiffDataOf(object);
    if (record == nullptr) return nullptr;
    current = object;
    ReleaseSlots(record);
    return record;
}

}  // namespace

bool ReadRGB(REALobject object) {
    TiffData* record = Begin(object);
    return record != nullptr && ReadInto(record, 1, object);
}

bool PreviewReadRGB(REALobject object, int32_t reduceFactor) {
    TiffData* record = Begin(object);
    if (record == nullptr || reduceFactor < 1) return false;
    return ReadInto(record, static_cast<uint32_t>(reduceFactor), object);
}

bool ReadRGBRecord(TiffData* record, bool* maskAttached) {
    if (record == nullptr) return false;
    ReleaseSlots(record);
    if (maskAttached != nullptr) {
        *maskAttached = false;
        DirectPictures pictures;
        if (DirectPathEnabled() && ReadDirect(record->tiff, pictures, MaskPlace::InPict)) {
            Store(record->Pict, pictures.pict);
            *maskAttached = true;
            return true;
        }
        // The pictures are what failed: the raster path would need even more memory.
        if (pictures.unmade) return false;
    }
    return ReadInto(record, 1, nullptr);
}

REALpicture MakePicturePict(REALobject object, const uint32_t* raster, uint32_t width, uint32_t height) {
    if (raster == nullptr) return nullptr;
    const RasterView view{raster, width, height};
    return BuildPicture(view, Sampling::Of(view, 1), Kind::Colour, object, TiffDataOf(object));
}

REALpicture MakePictureMask(REALobject object, const uint32_t* raster, uint32_t width, uint32_t height) {
    if (raster == nullptr) return nullptr;
    const RasterView view{raster, width, height};
    return BuildPicture(view, Sampling::Of(view, 1), Kind::Mask, object, TiffDataOf(object));
}

}  // namespace tqv
