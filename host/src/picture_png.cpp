// PNG files for host programs and tests, through libpng's simplified interface.
#include <png.h>

#include <cstring>
#include <vector>

#include "tqvhost/picture.h"

namespace tqvhost {

PictureHandle* loadPng(const std::string& path, std::string* error) {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) {
        if (error) *error = image.message;
        return nullptr;
    }
    bool hasAlpha = image.format & PNG_FORMAT_FLAG_ALPHA;
    image.format = PNG_FORMAT_RGBA;
    std::vector<uint8_t> rgba(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, rgba.data(), 0, nullptr)) {
        if (error) *error = image.message;
        png_image_free(&image);
        return nullptr;
    }
    PictureHandle* p = makePicture(static_cast<int32_t>(image.width), static_cast<int32_t>(image.height), 32);
    if (!p) {
        if (error) *error = "picture too large";
        return nullptr;
    }
    bool opaque = true;
    for (size_t i = 3; i < rgba.size(); i += 4) opaque = opaque && rgba[i] == 255;
    PictureHandle* mask = hasAlpha && !opaque ? maskOf(p) : nullptr;
    for (int32_t y = 0; y < p->height(); ++y)
        for (int32_t x = 0; x < p->width(); ++x) {
            const uint8_t* px = &rgba[(static_cast<size_t>(y) * p->width() + x) * 4];
            p->setPixel(x, y, uint32_t{px[0]} << 16 | uint32_t{px[1]} << 8 | px[2]);
            if (mask) mask->setPixel(x, y, (255u - px[3]) * 0x010101u);
        }
    return p;
}

bool savePng(PictureHandle* p, const std::string& path, std::string* error) {
    PictureHandle* mask = p->mask ? p->mask.as<PictureHandle>() : nullptr;
    std::vector<uint8_t> rgba(static_cast<size_t>(p->width()) * p->height() * 4);
    for (int32_t y = 0; y < p->height(); ++y)
        for (int32_t x = 0; x < p->width(); ++x) {
            uint8_t* px = &rgba[(static_cast<size_t>(y) * p->width() + x) * 4];
            uint32_t rgb = p->pixel(x, y);
            px[0] = (rgb >> 16) & 0xFF, px[1] = (rgb >> 8) & 0xFF, px[2] = rgb & 0xFF;
            px[3] = mask ? static_cast<uint8_t>(255 - ((mask->pixel(x, y) >> 16) & 0xFF)) : 255;
        }
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(p->width());
    image.height = static_cast<png_uint_32>(p->height());
    image.format = PNG_FORMAT_RGBA;
    if (!png_image_write_to_file(&image, path.c_str(), 0, rgba.data(), 0, nullptr)) {
        if (error) *error = image.message;
        return false;
    }
    return true;
}

}  // namespace tqvhost
