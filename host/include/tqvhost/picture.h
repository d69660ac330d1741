// Host pictures: desktop pixel maps (depth 32, 24, 16 or 8) or console/web pixel records, each
// with an optional grey mask picture, and their graphics objects.
#ifndef TQVHOST_PICTURE_H
#define TQVHOST_PICTURE_H

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "tqv/plugin_abi.h"
#include "tqvhost/handles.h"

struct GWorldStruct;
struct PixMapStruct;

namespace tqvhost {

enum class PictureBackend { PixMap, PixelRecord };

// Zero-filled pixel storage. Large pictures come as fresh pages backed by huge pages where the
// system allows, so making one costs neither a pass over its bytes nor a fault per 4 KiB.
class PixelBytes {
  public:
    void assign(size_t size, uint8_t zero);
    uint8_t* data() const { return bytes_.get(); }

  private:
    struct Free {
        void operator()(uint8_t* p) const { std::free(p); }
    };
    std::unique_ptr<uint8_t, Free> bytes_;
};

class PictureHandle : public Handle {
  public:
    PictureHandle(int32_t width, int32_t height, int32_t depth, PictureBackend backend);
    ~PictureHandle() override;
    int32_t width() const { return width_; }
    int32_t height() const { return height_; }
    int32_t depth() const { return depth_; }
    PictureBackend backend() const { return backend_; }
    uint32_t pixel(int32_t x, int32_t y) const;  // 0x00RRGGBB; coordinates must be inside
    void setPixel(int32_t x, int32_t y, uint32_t rgb);
    void describe(REALpictureDescription* out);
    // Copies the w x h block at (sx, sy) of `source` to (x, y) byte for byte when both pictures
    // store pixels the same way; false (nothing copied) when they do not. The block must lie
    // inside both pictures.
    bool copyBlock(const PictureHandle& source, int32_t x, int32_t y, int32_t sx, int32_t sy, int32_t w,
                   int32_t h);
    HostRef mask;  // the grey mask, held by the picture
    int32_t descriptionLocks = 0;
    int64_t cacheClears = 0;
    // Pixel-map locks taken through the stand-in framework and not yet released (0 for pixel records).
    int32_t pixelLocks() const;
    // Reports (once) an accounting error when bytes past a row's pixels were changed.
    void checkGuards(const char* when);

  protected:
    void destroy() override;

  private:
    uint8_t* pixelAddress(int32_t x, int32_t y) const;
    void reportLocksLeft(int32_t& locks, const char* kind);
    void fillGuards();
    int32_t width_, height_, depth_;
    PictureBackend backend_;
    long rowStride_ = 0;  // bytes from one row to the next: the pixels, padding and the guard
    bool guardReported_ = false;
    PixelBytes bytes_;  // the rows, each followed by its guard bytes
    std::unique_ptr<PixMapStruct> pixMap_;
    std::unique_ptr<GWorldStruct> world_;
    std::unique_ptr<REALpixelRecord> record_;
    std::vector<uint8_t*> rows_;
};

class GraphicsHandle : public Handle {
  public:
    explicit GraphicsHandle(Handle* picture) : Handle(Kind::Graphics), picture(picture) {}
    HostRef picture;

  protected:
    void destroy() override { picture = HostRef(); }
};

// A new picture as the configured host makes it (no locks), or nullptr for a bad size or depth:
// desktop hosts make pixel maps (depth 32 becomes the configured desktop depth), the others
// 32-bit pixel records.
PictureHandle* makePicture(int32_t width, int32_t height, int32_t depth);
PictureHandle* asPicture(const void* address, const char* service);

// The mask of `picture`, made (black: opaque) when missing.
PictureHandle* maskOf(PictureHandle* picture);

// Nearest-neighbour copy of source (sx, sy, sw, sh) onto destination (x, y, w, h), clipped;
// sw/sh of -10000 mean "to the source's edge".
void drawPicture(PictureHandle* destination, PictureHandle* source, int32_t x, int32_t y, int32_t w,
                 int32_t h, int32_t sx, int32_t sy, int32_t sw, int32_t sh);

// "Width"/"Height" of pictures and graphics, Integer properties of plugin objects.
bool pictureIntProperty(Handle* h, const char* name, int32_t* value);
// The address of a graphics method by its exact declaration, or nullptr.
void* graphicsMethod(Handle* h, const char* declaration);

// PNG through libpng. An alpha channel becomes the mask (255 - alpha) and back.
PictureHandle* loadPng(const std::string& path, std::string* error);
bool savePng(PictureHandle* picture, const std::string& path, std::string* error);

int64_t pictureCacheClears();

}  // namespace tqvhost

#endif  // TQVHOST_PICTURE_H
