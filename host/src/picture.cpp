// Picture handles and the picture services.
#include "tqvhost/picture.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>

#include "../frameworks/gworld.h"
#include "services.h"
#include "tqvhost/host.h"

namespace tqvhost {

static_assert(offsetof(REALpixelRecord, width) == 4 && offsetof(REALpixelRecord, height) == 8);
static_assert(sizeof(void*) != 8 ||
              (offsetof(REALpixelRecord, storage) == 7224 && offsetof(REALpixelRecord, rows) == 7232));

namespace {

constexpr int64_t kMaxPixels = int64_t{1} << 28;  // keeps every byte count well inside int32/size_t
int64_t gCacheClears = 0;

// Every row is followed by guard bytes holding a known pattern, which are checked when the plugin
// gives the picture back: a plugin that writes a few bytes past a row's pixels (into the next row,
// where nothing else would notice) is reported. They also make a pixel map's rowBytes larger than
// its pixels, as real pixel maps often are, so a plugin that steps rows by width x depth fails.
constexpr long kRowGuard = 16;
constexpr uint8_t kGuardByte = 0xA7;

long pixelBytesFor(int32_t width, int32_t depth) {
    return (static_cast<long>(width) * depth + 7) / 8;
}

long rowBytesFor(int32_t width, int32_t depth) {
    long bits = static_cast<long>(width) * depth;
    return ((bits + 31) / 32) * 4 + kRowGuard;  // rows padded to 32-bit words, then the guard
}

bool supportedDepth(int32_t depth) {
    return depth == 32 || depth == 24 || depth == 16 || depth == 8;
}

uint8_t expand5(unsigned v) {
    return static_cast<uint8_t>((v << 3) | (v >> 2));
}

}  // namespace

void PixelBytes::assign(size_t size, uint8_t) {
    bytes_.reset(static_cast<uint8_t*>(std::calloc(size > 0 ? size : 1, 1)));
    if (!bytes_) throw std::bad_alloc();
}

PictureHandle::PictureHandle(int32_t width, int32_t height, int32_t depth, PictureBackend backend)
    : Handle(Kind::Picture), width_(width), height_(height), depth_(depth), backend_(backend) {
    if (backend == PictureBackend::PixelRecord) {
        depth_ = 32;
        rowStride_ = static_cast<long>(width) * 4 + kRowGuard;
        bytes_.assign(static_cast<size_t>(rowStride_) * static_cast<size_t>(height), 0);
        for (int32_t y = 0; y < height; ++y)
            rows_.push_back(bytes_.data() + static_cast<size_t>(y) * rowStride_);
        record_ = std::make_unique<REALpixelRecord>();
        std::memset(record_.get(), 0, sizeof(REALpixelRecord));
        record_->width = width;
        record_->height = height;
        record_->storage = reinterpret_cast<uint32_t*>(bytes_.data());
        record_->rows = rows_.data();
        fillGuards();
        return;
    }
    rowStride_ = rowBytesFor(width, depth);
    bytes_.assign(static_cast<size_t>(rowStride_) * static_cast<size_t>(height), 0);
    pixMap_ = std::make_unique<PixMapStruct>(
        PixMapStruct{bytes_.data(), rowStride_, static_cast<int16_t>(depth), 0, 0});
    world_ = std::make_unique<GWorldStruct>(GWorldStruct{pixMap_.get()});
    fillGuards();
}

PictureHandle::~PictureHandle() = default;

int32_t PictureHandle::pixelLocks() const {
    return pixMap_ ? pixMap_->lockCount : 0;
}

void PictureHandle::fillGuards() {
    if (!config().rowGuards) return;
    const long used = pixelBytesFor(width_, depth_);
    for (int32_t y = 0; y < height_; ++y)
        std::memset(bytes_.data() + static_cast<size_t>(y) * rowStride_ + used, kGuardByte,
                    static_cast<size_t>(rowStride_ - used));
}

void PictureHandle::checkGuards(const char* when) {
    if (!bytes_.data() || guardReported_ || !config().rowGuards) return;
    const long used = pixelBytesFor(width_, depth_);
    for (int32_t y = 0; y < height_; ++y) {
        const uint8_t* guard = bytes_.data() + static_cast<size_t>(y) * rowStride_ + used;
        for (long i = 0; i < rowStride_ - used; ++i) {
            if (guard[i] == kGuardByte) continue;
            char text[192];
            std::snprintf(text, sizeof text,
                          "%s: the plugin wrote past the end of row %d of a %d x %d picture (byte %ld after "
                          "its pixels)",
                          when, static_cast<int>(y), static_cast<int>(width_), static_cast<int>(height_), i);
            Accounts::error(text);
            guardReported_ = true;  // one report per picture
            return;
        }
    }
}

// An accounting error for `locks` of a kind the plugin took on this picture and never released.
void PictureHandle::reportLocksLeft(int32_t& locks, const char* kind) {
    if (locks <= 0) return;
    char text[160];
    std::snprintf(text, sizeof text, "releasing a picture: %d %s lock(s) of picture %p never unlocked",
                  static_cast<int>(locks), kind, address());
    Accounts::error(text);
    locks = 0;
}

void PictureHandle::destroy() {
    checkGuards("releasing a picture");
    reportLocksLeft(descriptionLocks, "description");
    if (pixMap_) reportLocksLeft(pixMap_->lockCount, "pixel");
    if (pixMap_ && pixMap_->unbalancedUnlocks > 0) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "releasing a picture: the plugin unlocked the pixels of picture %p "
                      "%d time(s) when they were not locked",
                      address(), static_cast<int>(pixMap_->unbalancedUnlocks));
        Accounts::error(text);
        pixMap_->unbalancedUnlocks = 0;
    }
    mask = HostRef();
    // The pixels go; the records stay (with null pointers) so that stale descriptions fail safely.
    bytes_ = PixelBytes();
    std::vector<uint8_t*>().swap(rows_);
    if (record_) record_->storage = nullptr, record_->rows = nullptr;
    if (pixMap_) pixMap_->baseAddr = nullptr;
}

uint8_t* PictureHandle::pixelAddress(int32_t x, int32_t y) const {
    auto* base = const_cast<uint8_t*>(bytes_.data());
    return base + static_cast<size_t>(y) * rowStride_ + static_cast<size_t>(x) * depth_ / 8;
}

uint32_t PictureHandle::pixel(int32_t x, int32_t y) const {
    const uint8_t* p = pixelAddress(x, y);
    if (backend_ == PictureBackend::PixelRecord) return uint32_t{p[2]} << 16 | uint32_t{p[1]} << 8 | p[0];
    switch (depth_) {
        case 32:
            return uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
        case 24:
            return uint32_t{p[0]} << 16 | uint32_t{p[1]} << 8 | p[2];
        case 16: {
            unsigned v = unsigned{p[0]} << 8 | p[1];
            return uint32_t{expand5((v >> 10) & 31)} << 16 | uint32_t{expand5((v >> 5) & 31)} << 8 |
                   expand5(v & 31);
        }
        default:
            return uint32_t{p[0]} * 0x010101u;
    }
}

void PictureHandle::setPixel(int32_t x, int32_t y, uint32_t rgb) {
    uint8_t* p = pixelAddress(x, y);
    uint8_t r = (rgb >> 16) & 0xFF, g = (rgb >> 8) & 0xFF, b = rgb & 0xFF;
    if (backend_ == PictureBackend::PixelRecord) {
        p[0] = b, p[1] = g, p[2] = r, p[3] = 0;
        return;
    }
    switch (depth_) {
        case 32:
            p[0] = 0, p[1] = r, p[2] = g, p[3] = b;
            break;
        case 24:
            p[0] = r, p[1] = g, p[2] = b;
            break;
        case 16: {
            unsigned v = (unsigned{r} >> 3) << 10 | (unsigned{g} >> 3) << 5 | (unsigned{b} >> 3);
            p[0] = static_cast<uint8_t>(v >> 8), p[1] = static_cast<uint8_t>(v);
            break;
        }
        default:
            p[0] = static_cast<uint8_t>((r * 77 + g * 150 + b * 29) >> 8);
            break;
    }
}

bool PictureHandle::copyBlock(const PictureHandle& source, int32_t x, int32_t y, int32_t sx, int32_t sy,
                              int32_t w, int32_t h) {
    if (source.backend_ != backend_ || source.depth_ != depth_ || !bytes_.data() || !source.bytes_.data())
        return false;
    const size_t span = static_cast<size_t>(w) * static_cast<size_t>(depth_ / 8);
    for (int32_t row = 0; row < h; ++row)
        std::memmove(pixelAddress(x, y + row), source.pixelAddress(sx, sy + row), span);
    return true;
}

void PictureHandle::describe(REALpictureDescription* out) {
    std::memset(out, 0, sizeof *out);
    out->pictureType =
        backend_ == PictureBackend::PixMap ? REALpictureTypePixMap : REALpictureTypePixelRecord;
    out->pictureData = backend_ == PictureBackend::PixMap ? static_cast<void*>(world_.get()) : record_.get();
    out->width = width_;
    out->height = height_;
    out->depth = depth_;
}

PictureHandle* makePicture(int32_t width, int32_t height, int32_t depth) {
    if (width < 1 || height < 1 || int64_t{width} * height > kMaxPixels) return nullptr;
    if (config().app != AppKind::Desktop)
        return makeHandle<PictureHandle>(width, height, 32, PictureBackend::PixelRecord);
    if (depth == 32) depth = config().desktopDepth;
    if (!supportedDepth(depth)) return nullptr;
    return makeHandle<PictureHandle>(width, height, depth, PictureBackend::PixMap);
}

static bool isPicture(Kind k) {
    return k == Kind::Picture;
}

PictureHandle* asPicture(const void* address, const char* service) {
    return static_cast<PictureHandle*>(Accounts::check(address, service, isPicture));
}

PictureHandle* maskOf(PictureHandle* picture) {
    if (!picture->mask) {
        auto* m = picture->backend() == PictureBackend::PixMap
                      ? makeHandle<PictureHandle>(picture->width(), picture->height(), picture->depth(),
                                                  PictureBackend::PixMap)
                      : makeHandle<PictureHandle>(picture->width(), picture->height(), 32,
                                                  PictureBackend::PixelRecord);
        picture->mask = HostRef(m);
    }
    return picture->mask.as<PictureHandle>();
}

int64_t pictureCacheClears() {
    return gCacheClears;
}

namespace {

REALpicture handOut(PictureHandle* p) {
    if (!p) return nullptr;
    Accounts::give(p);
    return static_cast<REALpicture>(p->address());
}

REALpicture newPicture(int32_t width, int32_t height, int32_t depth) {
    return guarded<REALpicture>("newPicture", nullptr, [&]() -> REALpicture {
        if (injectFailure("picture")) return nullptr;
        return handOut(makePicture(width, height, depth));
    });
}

REALpicture REALBuildPictureFromBuffer(int32_t width, int32_t height, int32_t pixelType, void* buffer,
                                       int32_t rowBytes) {
    return guarded<REALpicture>("REALBuildPictureFromBuffer", nullptr, [&]() -> REALpicture {
        if (pixelType != REALpictureTypeBuffer || !buffer || width < 1 || rowBytes < int64_t{width} * 4)
            return nullptr;
        if (injectFailure("picture")) return nullptr;
        PictureHandle* p = makePicture(width, height, 32);
        if (!p) return nullptr;
        for (int32_t y = 0; y < height; ++y) {
            const auto* row = static_cast<const uint8_t*>(buffer) + static_cast<size_t>(y) * rowBytes;
            for (int32_t x = 0; x < width; ++x) {
                uint32_t word;
                std::memcpy(&word, row + static_cast<size_t>(x) * 4, 4);
                p->setPixel(x, y, word & 0xFFFFFF);
            }
        }
        return handOut(p);
    });
}

REALpicture REALGetPictureMask(REALpicture pic, bool create) {
    return guarded<REALpicture>("REALGetPictureMask", nullptr, [&]() -> REALpicture {
        PictureHandle* p = asPicture(pic, "REALGetPictureMask");
        if (!p || (!p->mask && !create)) return nullptr;
        if (!p->mask && injectFailure("picture")) return nullptr;
        return handOut(maskOf(p));
    });
}

REALgraphics pluginPictureGraphicsGetter(REALpicture pic) {
    return guarded<REALgraphics>("pluginPictureGraphicsGetter", nullptr, [&]() -> REALgraphics {
        PictureHandle* p = asPicture(pic, "pluginPictureGraphicsGetter");
        if (!p) return nullptr;
        auto* g = makeHandle<GraphicsHandle>(p);
        Accounts::give(g);
        return static_cast<REALgraphics>(g->address());
    });
}

void REALPictureClearCache(REALpicture pic) {
    if (PictureHandle* p = asPicture(pic, "REALPictureClearCache")) ++p->cacheClears, ++gCacheClears;
}

bool lockPictureDescription(REALpicture pic, REALpictureDescription* out) {
    PictureHandle* p = asPicture(pic, "lockPictureDescription");
    if (!p || !out) return false;
    p->describe(out);
    ++p->descriptionLocks;
    return true;
}

// Only the picture's own kind of description is available: a pixel map is not a pixel record.
bool REALLockPictureDescription(REALpicture pic, REALpictureDescription* out, int32_t wantedType) {
    PictureHandle* p = asPicture(pic, "REALLockPictureDescription");
    if (!p || !out) return false;
    REALpictureDescription d;
    p->describe(&d);
    if (d.pictureType != wantedType) {
        // Hosts before 2012 left the picture locked after a failed lock: a plugin unlocks it.
        if (config().version < 2012.0) ++p->descriptionLocks;
        return false;
    }
    *out = d;
    ++p->descriptionLocks;
    return true;
}

void unlockPictureDescription(REALpicture pic) {
    PictureHandle* p = asPicture(pic, "unlockPictureDescription");
    if (!p) return;
    if (p->descriptionLocks <= 0) {
        char text[128];
        std::snprintf(text, sizeof text,
                      "unlockPictureDescription: plugin unlocked picture %p beyond its locks",
                      static_cast<const void*>(pic));
        Accounts::error(text);
        return;
    }
    --p->descriptionLocks;
    p->checkGuards("unlockPictureDescription");
}

}  // namespace

void addPictureServices(ServiceTable& t) {
    t["newPicture"] = service(&newPicture);
    t["REALBuildPictureFromBuffer"] = service(&REALBuildPictureFromBuffer);
    t["REALGetPictureMask"] = service(&REALGetPictureMask);
    t["pluginPictureGraphicsGetter"] = service(&pluginPictureGraphicsGetter);
    t["REALPictureClearCache"] = service(&REALPictureClearCache);
    t["lockPictureDescription"] = service(&lockPictureDescription);
    t["REALLockPictureDescription"] = service(&REALLockPictureDescription);
    t["unlockPictureDescription"] = service(&unlockPictureDescription);
}

}  // namespace tqvhost
