/*
 * Test images and libtiff's own view of files, for the pipeline host programs.
 *
 *   pipe_images make DIR         writes every test image into DIR (made with libtiff's API, plus
 *                                two hand-assembled files libtiff refuses to write)
 *   pipe_images rgba FILE OUT    TIFFReadRGBAImage of FILE (bottom row first) as raw R, G, B, A
 *                                bytes into OUT; prints "WIDTH HEIGHT"
 *   pipe_images rgba FILE OUT ROW ROWS
 *                                the same for the full-width band of ROWS rows from ROW, through
 *                                TIFFRGBAImageGet with row_offset (exit status 2 when libtiff fails)
 *   pipe_images dump FILE        the tags of FILE's first image and its scanlines as libtiff
 *                                reads them
 *
 * The pixel patterns are formulas the host programs repeat, so every expected pixel is derived
 * from the formula, never from the plugin.
 */
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tiffio.h>

static void die(const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    vfprintf(stderr, format, ap);
    va_end(ap);
    fputc('\n', stderr);
    exit(1);
}

/* ---- Patterns (repeated in tests/e2e/pipe_*.lua) ------------------------------------------ */

/* Bilevel: 1 bits where the formula hits, an irregular pattern that differs in every column. */
static int bit_at(uint32_t x, uint32_t y) {
    return (x * 7u + y * 3u + x * y) % 5u == 0u || (x + 2u * y) % 11u == 0u;
}

static uint32_t sample_at(uint32_t x, uint32_t y, uint32_t s, int bits) {
    switch (bits) {
        case 8:
            return (x * 16u + y * 40u + s * 85u) & 0xFFu;
        case 16:
            return (x * 4099u + y * 997u + s * 21845u) & 0xFFFFu;
        default:
            return x * 0x0B234567u + y * 0x189ABCDEu + s * 0x55555555u;
    }
}

/* ---- Writing with libtiff ----------------------------------------------------------------- */

struct image {
    const char* name;
    uint32_t width, height;
    uint16_t bits, samples, photometric, compression, fill, planar, orientation;
    uint32_t rows_per_strip; /* 0: tiled, 64 × 64 */
};

static void set_common(TIFF* t, const struct image* im) {
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, im->width);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, im->height);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, im->bits);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, im->samples);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, im->photometric);
    TIFFSetField(t, TIFFTAG_COMPRESSION, im->compression);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, im->planar ? im->planar : PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_FILLORDER, im->fill ? im->fill : FILLORDER_MSB2LSB);
    TIFFSetField(t, TIFFTAG_ORIENTATION, im->orientation ? im->orientation : ORIENTATION_TOPLEFT);
    if (im->rows_per_strip) {
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, im->rows_per_strip);
    } else {
        TIFFSetField(t, TIFFTAG_TILEWIDTH, 64);
        TIFFSetField(t, TIFFTAG_TILELENGTH, 64);
    }
    if (im->photometric == PHOTOMETRIC_PALETTE) {
        uint16_t map[3][256];
        for (int i = 0; i < 256; ++i) {
            map[0][i] = (uint16_t)(i * 257);
            map[1][i] = (uint16_t)((255 - i) * 257);
            map[2][i] = 0x8080;
        }
        TIFFSetField(t, TIFFTAG_COLORMAP, map[0], map[1], map[2]);
    }
}

/* One row (or one plane's row) of the pattern, packed as libtiff expects it in memory. */
static void fill_row(const struct image* im, uint32_t y, uint16_t plane, uint8_t* row) {
    const uint32_t per_pixel = im->planar == PLANARCONFIG_SEPARATE ? 1 : im->samples;
    const uint32_t first = im->planar == PLANARCONFIG_SEPARATE ? plane : 0;
    memset(row, 0, ((size_t)im->width * per_pixel * im->bits + 7) / 8);
    for (uint32_t x = 0; x < im->width; ++x) {
        for (uint32_t s = 0; s < per_pixel; ++s) {
            const size_t i = (size_t)x * per_pixel + s;
            const uint32_t v = im->bits == 1 ? (uint32_t)bit_at(x, y) : sample_at(x, y, first + s, im->bits);
            if (im->bits == 1) {
                if (v) row[i / 8] |= (uint8_t)(0x80u >> (i % 8));
            } else if (im->bits == 4) {
                row[i / 2] |= (uint8_t)((v & 15u) << (i % 2 ? 0 : 4));
            } else if (im->bits == 8) {
                row[i] = (uint8_t)v;
            } else if (im->bits == 16) {
                const uint16_t w = (uint16_t)v;
                memcpy(row + i * 2, &w, 2);
            } else {
                memcpy(row + i * 4, &v, 4);
            }
        }
    }
}

static void write_strips(TIFF* t, const struct image* im, uint8_t* row) {
    const uint16_t planes = im->planar == PLANARCONFIG_SEPARATE ? im->samples : 1;
    for (uint16_t p = 0; p < planes; ++p) {
        for (uint32_t y = 0; y < im->height; ++y) {
            fill_row(im, y, p, row);
            if (TIFFWriteScanline(t, row, y, p) != 1) die("%s: row %u not written", im->name, y);
        }
    }
}

static void write_tiles(TIFF* t, const struct image* im, uint8_t* row) {
    const tmsize_t tile_bytes = TIFFTileSize(t), tile_row = TIFFTileRowSize(t);
    const size_t pixel = (size_t)im->samples * im->bits / 8;
    uint8_t* tile = calloc(1, (size_t)tile_bytes);
    for (uint32_t ty = 0; ty < im->height; ty += 64) {
        for (uint32_t tx = 0; tx < im->width; tx += 64) {
            memset(tile, 0, (size_t)tile_bytes);
            for (uint32_t y = ty; y < ty + 64 && y < im->height; ++y) {
                fill_row(im, y, 0, row);
                const uint32_t n = im->width - tx < 64 ? im->width - tx : 64;
                memcpy(tile + (y - ty) * tile_row, row + tx * pixel, n * pixel);
            }
            if (TIFFWriteTile(t, tile, tx, ty, 0, 0) < 0) die("%s: tile not written", im->name);
        }
    }
    free(tile);
}

static void write_image(const char* dir, const struct image* im) {
    char path[4096];
    snprintf(path, sizeof path, "%s/%s", dir, im->name);
    TIFF* t = TIFFOpen(path, "w");
    if (!t) die("%s: cannot create", path);
    set_common(t, im);
    uint8_t* row = calloc(1, ((size_t)im->width * im->samples * im->bits + 7) / 8 + 16);
    if (im->rows_per_strip)
        write_strips(t, im, row);
    else
        write_tiles(t, im, row);
    free(row);
    TIFFClose(t);
}

/* Reads every scanline back: libtiff must return exactly the pattern, whatever the codec or fill
 * order did on disk, or the expectations of the host programs would be wrong. */
static void verify_strips(const char* dir, const struct image* im) {
    char path[4096];
    snprintf(path, sizeof path, "%s/%s", dir, im->name);
    TIFF* t = TIFFOpen(path, "r");
    if (!t) die("%s: cannot reopen", path);
    const size_t bytes = ((size_t)im->width * im->samples * im->bits + 7) / 8;
    uint8_t* want = calloc(1, bytes + 16);
    uint8_t* got = calloc(1, (size_t)TIFFScanlineSize(t) + 16);
    for (uint32_t y = 0; y < im->height; ++y) {
        fill_row(im, y, 0, want);
        if (TIFFReadScanline(t, got, y, 0) != 1 || memcmp(want, got, bytes) != 0)
            die("%s: row %u reads back differently", path, y);
    }
    free(want);
    free(got);
    TIFFClose(t);
}

/* ---- Files libtiff will not write ----------------------------------------------------------- */

struct entry {
    uint16_t tag, type;
    uint32_t count, value;
};

static void put16(uint8_t* p, uint16_t v) {
    p[0] = (uint8_t)v, p[1] = (uint8_t)(v >> 8);
}
static void put32(uint8_t* p, uint32_t v) {
    put16(p, (uint16_t)v), put16(p + 2, (uint16_t)(v >> 16));
}

/* A little-endian, min-is-white 1-bit image in one strip, each row PackBits-coded as one literal
 * run (a compressed strip: libtiff does not cut it into strips of its own). RowsPerStrip is left
 * out, or given the value `rows_per_strip`. */
static void write_raw_bilevel(const char* dir, const char* name, uint32_t width, uint32_t height,
                              int with_rps, uint32_t rows_per_strip) {
    const uint32_t row_bytes = (width + 7) / 8, data = 8, strip = (row_bytes + 1) * height;
    const uint32_t ifd = data + strip + (strip & 1);
    struct entry e[9];
    int n = 0;
    e[n++] = (struct entry){256, 4, 1, width};
    e[n++] = (struct entry){257, 4, 1, height};
    e[n++] = (struct entry){258, 3, 1, 1};
    e[n++] = (struct entry){259, 3, 1, COMPRESSION_PACKBITS};
    e[n++] = (struct entry){262, 3, 1, 0};
    e[n++] = (struct entry){273, 4, 1, data};
    e[n++] = (struct entry){277, 3, 1, 1};
    if (with_rps) e[n++] = (struct entry){278, 4, 1, rows_per_strip};
    e[n++] = (struct entry){279, 4, 1, strip};
    const size_t size = ifd + 2 + 12 * (size_t)n + 4;
    uint8_t* file = calloc(1, size);
    memcpy(file, "II*\0", 4);
    put32(file + 4, ifd);
    for (uint32_t y = 0; y < height; ++y) {
        uint8_t* run = file + data + y * (row_bytes + 1);
        run[0] = (uint8_t)(row_bytes - 1);
        for (uint32_t x = 0; x < width; ++x)
            if (bit_at(x, y)) run[1 + x / 8] |= (uint8_t)(0x80u >> (x % 8));
    }
    put16(file + ifd, (uint16_t)n);
    for (int i = 0; i < n; ++i) {
        uint8_t* p = file + ifd + 2 + 12 * i;
        put16(p, e[i].tag), put16(p + 2, e[i].type), put32(p + 4, e[i].count);
        if (e[i].type == 3)
            put16(p + 8, (uint16_t)e[i].value);
        else
            put32(p + 8, e[i].value);
    }
    char path[4096];
    snprintf(path, sizeof path, "%s/%s", dir, name);
    FILE* f = fopen(path, "wb");
    if (!f || fwrite(file, 1, size, f) != size || fclose(f) != 0) die("%s: cannot write", path);
    free(file);
}

/* ---- make ------------------------------------------------------------------------------------ */

static const uint16_t kCodecs[] = {COMPRESSION_NONE, COMPRESSION_PACKBITS, COMPRESSION_CCITTRLE,
                                   COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4};
static const char* const kCodecNames[] = {"none", "packbits", "rle", "g3", "g4"};

static void make_bilevel(const char* dir) {
    static char names[40][64];
    int n = 0;
    for (int c = 0; c < 5; ++c) {
        for (uint16_t fill = 1; fill <= 2; ++fill) {
            for (uint16_t photometric = 0; photometric <= 1; ++photometric, ++n) {
                snprintf(names[n], sizeof names[n], "bw_%s_fill%u_photo%u.tif", kCodecNames[c], fill,
                         photometric);
                const struct image im = {names[n], 37, 29, 1, 1, photometric, kCodecs[c], fill, 0, 0, 4};
                write_image(dir, &im);
                verify_strips(dir, &im);
            }
        }
    }
    const struct image small = {"bw_20x10.tif",   20, 10, 1, 1, PHOTOMETRIC_MINISWHITE,
                                COMPRESSION_NONE, 1,  0,  0, 3};
    write_image(dir, &small);
    verify_strips(dir, &small);
    write_raw_bilevel(dir, "bw_no_rowsperstrip.tif", 20, 10, 0, 0);
    write_raw_bilevel(dir, "bw_rowsperstrip_0.tif", 20, 10, 1, 0);
    write_raw_bilevel(dir, "bw_raw.tif", 20, 10, 1, 10);
}

static void make_lookup(const char* dir) {
    const struct image images[] = {
        {"lut_grey8.tif", 23, 9, 8, 1, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE, 0, 0, 0, 4},
        {"lut_grey16.tif", 23, 9, 16, 1, PHOTOMETRIC_MINISBLACK, COMPRESSION_LZW, 0, 0, 0, 4},
        {"lut_grey32.tif", 23, 9, 32, 1, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE, 0, 0, 0, 4},
        {"lut_rgb8.tif", 23, 9, 8, 3, PHOTOMETRIC_RGB, COMPRESSION_PACKBITS, 0, 0, 0, 4},
        {"lut_rgb16.tif", 23, 9, 16, 3, PHOTOMETRIC_RGB, COMPRESSION_NONE, 0, 0, 0, 4},
        {"lut_rgb32.tif", 23, 9, 32, 3, PHOTOMETRIC_RGB, COMPRESSION_ADOBE_DEFLATE, 0, 0, 0, 4},
        {"lut_palette8.tif", 23, 9, 8, 1, PHOTOMETRIC_PALETTE, COMPRESSION_NONE, 0, 0, 0, 4},
        {"lut_grey4.tif", 23, 9, 4, 1, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE, 0, 0, 0, 4},
        {"lut_grey8_alpha.tif", 23, 9, 8, 2, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE, 0, 0, 0, 4},
    };
    for (size_t i = 0; i < sizeof images / sizeof images[0]; ++i) {
        write_image(dir, &images[i]);
        verify_strips(dir, &images[i]);
    }
    const struct image separate = {"lut_rgb8_separate.tif", 23, 9, 8, 3, PHOTOMETRIC_RGB, COMPRESSION_NONE, 0,
                                   PLANARCONFIG_SEPARATE,   0,  4};
    write_image(dir, &separate);
}

static void write_ycbcr(const char* dir, const char* name, int tiled);

static void make_rgba(const char* dir) {
    const struct image images[] = {
        {"rgba_wide8.tif", 40000, 3, 8, 3, PHOTOMETRIC_RGB, COMPRESSION_LZW, 0, 0, 0, 2},
        {"rgba_wide16.tif", 40000, 3, 16, 3, PHOTOMETRIC_RGB, COMPRESSION_LZW, 0, 0, 0, 2},
        {"rgba_wide1.tif", 40003, 9, 1, 1, PHOTOMETRIC_MINISWHITE, COMPRESSION_CCITTFAX4, 0, 0, 0, 2},
        {"rgba_tiled8.tif", 300, 150, 8, 3, PHOTOMETRIC_RGB, COMPRESSION_NONE, 0, 0, 0, 0},
        {"rgba_tiled16.tif", 300, 150, 16, 3, PHOTOMETRIC_RGB, COMPRESSION_NONE, 0, 0, 0, 0},
        {"rgba_tiledgrey16.tif", 300, 150, 16, 1, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE, 0, 0, 0, 0},
        {"rgba_tiledgrey8_extra.tif", 150, 70, 8, 2, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE, 0, 0, 0, 0},
        {"rgba_tiledpalette8_extra.tif", 150, 70, 8, 2, PHOTOMETRIC_PALETTE, COMPRESSION_LZW, 0, 0, 0, 0},
        /* The same pixels in strips: libtiff renders whole-width strips right, so these are the
         * references for the tiled images above, whose partial last tile column it gets wrong. */
        {"rgba_tiledgrey16_strips.tif", 300, 150, 16, 1, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE, 0, 0, 0,
         7},
        {"rgba_tiledgrey8_extra_strips.tif", 150, 70, 8, 2, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE, 0, 0, 0,
         7},
        {"rgba_tiledpalette8_extra_strips.tif", 150, 70, 8, 2, PHOTOMETRIC_PALETTE, COMPRESSION_NONE, 0, 0, 0,
         7},
        {"rgba_grey8_extra.tif", 23, 9, 8, 2, PHOTOMETRIC_MINISBLACK, COMPRESSION_LZW, 0, 0, 0, 4},
        {"rgba_palette8_extra.tif", 23, 9, 8, 2, PHOTOMETRIC_PALETTE, COMPRESSION_NONE, 0, 0, 0, 4},
        {"rgba_grey16.tif", 50, 20, 16, 1, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE, 0, 0, 0, 3},
        {"rgba_separate8.tif", 50, 20, 8, 3, PHOTOMETRIC_RGB, COMPRESSION_NONE, 0, PLANARCONFIG_SEPARATE, 0,
         3},
        {"rgba_botright8.tif", 50, 20, 8, 3, PHOTOMETRIC_RGB, COMPRESSION_NONE, 0, 0, ORIENTATION_BOTRIGHT,
         3},
        {"rgba_botright16.tif", 50, 20, 16, 3, PHOTOMETRIC_RGB, COMPRESSION_NONE, 0, 0, ORIENTATION_BOTRIGHT,
         3},
        {"rgba_topright16.tif", 50, 20, 16, 3, PHOTOMETRIC_RGB, COMPRESSION_NONE, 0, 0, ORIENTATION_TOPRIGHT,
         3},
        {"rgba_grey64float.tif", 4, 4, 64, 1, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE, 0, 0, 0, 4},
    };
    for (size_t i = 0; i < sizeof images / sizeof images[0]; ++i) write_image(dir, &images[i]);
    write_ycbcr(dir, "rgba_ycbcr_tiled.tif", 1);
    write_ycbcr(dir, "rgba_ycbcr_strips.tif", 0);

    /* 2 × 2, top-left red, the others green, blue and white. */
    static const uint8_t pixels[2][6] = {{255, 0, 0, 0, 255, 0}, {0, 0, 255, 255, 255, 255}};
    char path[4096];
    snprintf(path, sizeof path, "%s/rgba_2x2.tif", dir);
    TIFF* t = TIFFOpen(path, "w");
    const struct image im = {"rgba_2x2.tif", 2, 2, 8, 3, PHOTOMETRIC_RGB, COMPRESSION_NONE, 0, 0, 0, 1};
    set_common(t, &im);
    for (uint32_t y = 0; y < 2; ++y) TIFFWriteScanline(t, (void*)pixels[y], y, 0);
    TIFFClose(t);
}

/* YCbCr packed in 2 × 2 subsampling blocks (LZW), 50 × 41, in 16 × 16 tiles or strips of 5 rows:
 * blocks that neither tiles nor strips of an odd height divide evenly. Any bytes are valid
 * samples, so every strip or tile holds a byte pattern of its own. */
static void write_ycbcr(const char* dir, const char* name, int tiled) {
    char path[4096];
    snprintf(path, sizeof path, "%s/%s", dir, name);
    TIFF* t = TIFFOpen(path, "w");
    if (!t) die("%s: cannot create", path);
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 50);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, 41);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR);
    TIFFSetField(t, TIFFTAG_YCBCRSUBSAMPLING, 2, 2);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    if (tiled) {
        TIFFSetField(t, TIFFTAG_TILEWIDTH, 16);
        TIFFSetField(t, TIFFTAG_TILELENGTH, 16);
    } else {
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 5);
    }
    const uint32_t chunks = tiled ? TIFFNumberOfTiles(t) : TIFFNumberOfStrips(t);
    const tmsize_t size = tiled ? TIFFTileSize(t) : TIFFStripSize(t);
    uint8_t* data = malloc((size_t)size);
    for (uint32_t c = 0; c < chunks; ++c) {
        for (tmsize_t i = 0; i < size; ++i) data[i] = (uint8_t)(i * 7 + c * 31 + (i / 6) % 5 * 40);
        const tmsize_t written =
            tiled ? TIFFWriteEncodedTile(t, c, data, size) : TIFFWriteEncodedStrip(t, c, data, size);
        if (written < 0) die("%s: chunk %u not written", name, c);
    }
    free(data);
    TIFFClose(t);
}

/* 8-bit R, G, B and a fourth sample of the given kind, 257 × 256: pixel (x, y) is
 * R = x mod 256, G = 255 - R, B = (7x + y) mod 256, fourth = y, so every colour value meets every
 * alpha value, and rows of 257 pixels end off every vector width. */
static void write_alpha(const char* dir, const char* name, uint16_t extra, uint16_t compression,
                        uint32_t rows_per_strip) {
    enum { kWidth = 257, kHeight = 256 };
    const struct image im = {name, kWidth, kHeight,       8, 4, PHOTOMETRIC_RGB, compression, 0,
                             0,    0,      rows_per_strip};
    char path[4096];
    snprintf(path, sizeof path, "%s/%s", dir, name);
    TIFF* t = TIFFOpen(path, "w");
    if (!t) die("%s: cannot create", path);
    set_common(t, &im);
    TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &extra);
    static uint8_t rows[kHeight][kWidth * 4];
    for (uint32_t y = 0; y < kHeight; ++y) {
        for (uint32_t x = 0; x < kWidth; ++x) {
            uint8_t* p = rows[y] + x * 4;
            p[0] = (uint8_t)x;
            p[1] = (uint8_t)(255u - (x & 255u));
            p[2] = (uint8_t)(7u * x + y);
            p[3] = (uint8_t)y;
        }
    }
    if (rows_per_strip) {
        for (uint32_t y = 0; y < kHeight; ++y)
            if (TIFFWriteScanline(t, rows[y], y, 0) != 1) die("%s: row %u not written", name, y);
    } else {
        static uint8_t tile[64 * 64 * 4];
        for (uint32_t ty = 0; ty < kHeight; ty += 64) {
            for (uint32_t tx = 0; tx < kWidth; tx += 64) {
                memset(tile, 0, sizeof tile);
                const uint32_t n = kWidth - tx < 64 ? kWidth - tx : 64;
                for (uint32_t y = 0; y < 64; ++y) memcpy(tile + y * 256, rows[ty + y] + tx * 4, n * 4);
                if (TIFFWriteTile(t, tile, tx, ty, 0, 0) < 0) die("%s: tile not written", name);
            }
        }
    }
    TIFFClose(t);
}

static void make_alpha(const char* dir) {
    write_alpha(dir, "alpha_unassoc.tif", EXTRASAMPLE_UNASSALPHA, COMPRESSION_NONE, 16);
    write_alpha(dir, "alpha_unassoc_tiled.tif", EXTRASAMPLE_UNASSALPHA, COMPRESSION_LZW, 0);
    write_alpha(dir, "alpha_assoc.tif", EXTRASAMPLE_ASSOCALPHA, COMPRESSION_LZW, 7);
    write_alpha(dir, "alpha_unspecified.tif", EXTRASAMPLE_UNSPECIFIED, COMPRESSION_NONE, 0);
    /* Lossy: read back against libtiff's own raster, not the pattern. */
    write_alpha(dir, "alpha_jpeg.tif", EXTRASAMPLE_UNASSALPHA, COMPRESSION_JPEG, 16);
    write_alpha(dir, "alpha_jpeg_tiled.tif", EXTRASAMPLE_UNASSALPHA, COMPRESSION_JPEG, 0);
}

/* Three rows of four grey bytes each, for the mirror exchange: file A rows 10.., B rows 20... */
static void make_mirror(const char* dir) {
    const char* names[2] = {"mirror_a.tif", "mirror_b.tif"};
    for (int f = 0; f < 2; ++f) {
        char path[4096];
        snprintf(path, sizeof path, "%s/%s", dir, names[f]);
        TIFF* t = TIFFOpen(path, "w");
        const struct image im = {names[f], 4, 3, 8, 1, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE, 0, 0, 0, 1};
        set_common(t, &im);
        for (uint32_t y = 0; y < 3; ++y) {
            uint8_t row[4];
            for (int x = 0; x < 4; ++x) row[x] = (uint8_t)(10 * (f + 1) + 4 * y + (uint32_t)x);
            TIFFWriteScanline(t, row, y, 0);
        }
        TIFFClose(t);
    }
}

/* 8 x 2 8-bit grey with a transfer function (one entry per sample value), in one strip. */
static void make_transfer(const char* dir) {
    char path[4096];
    snprintf(path, sizeof path, "%s/transfer_grey8.tif", dir);
    TIFF* t = TIFFOpen(path, "w");
    const struct image im = {"transfer_grey8.tif", 8, 2, 8, 1, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE, 0, 0, 0, 2};
    set_common(t, &im);
    uint16_t transfer[256];
    for (int i = 0; i < 256; ++i) transfer[i] = (uint16_t)(i * 257);
    TIFFSetField(t, TIFFTAG_TRANSFERFUNCTION, transfer);
    for (uint32_t y = 0; y < 2; ++y) {
        uint8_t row[8];
        for (int x = 0; x < 8; ++x) row[x] = (uint8_t)(16 * y + (uint32_t)x);
        TIFFWriteScanline(t, row, y, 0);
    }
    TIFFClose(t);
}

/* ---- rgba and dump ------------------------------------------------------------------------ */

static int rgba(const char* file, const char* out, int band, uint32_t row, uint32_t rows) {
    TIFF* t = TIFFOpen(file, "r");
    if (!t) return 2;
    uint32_t w = 0, h = 0;
    TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &w);
    TIFFGetField(t, TIFFTAG_IMAGELENGTH, &h);
    if (band) {
        if (rows == 0 || row >= h || rows > h - row || w == 0) return 2;
        h = rows;
    }
    uint32_t* raster = _TIFFmalloc((tmsize_t)w * h * 4);
    if (!raster) return 2;
    if (band) {
        TIFFRGBAImage image;
        char message[1024];
        if (!TIFFRGBAImageBegin(&image, t, 0, message)) return 2;
        image.row_offset = (int)row;
        const int got = TIFFRGBAImageGet(&image, raster, w, h);
        TIFFRGBAImageEnd(&image);
        if (!got) return 2;
    } else if (!TIFFReadRGBAImage(t, w, h, raster, 0)) {
        return 2;
    }
    FILE* f = fopen(out, "wb");
    if (!f || fwrite(raster, 4, (size_t)w * h, f) != (size_t)w * h || fclose(f) != 0) return 2;
    printf("%u %u\n", w, h);
    _TIFFfree(raster);
    TIFFClose(t);
    return 0;
}

static uint32_t u16tag(TIFF* t, ttag_t tag) {
    uint16_t v = 0;
    return TIFFGetField(t, tag, &v) ? v : 0;
}

/* "width W height H bps B spp S photometric P compression C fill F xres X yres Y unit U bytes N
 * format F extra E transfer T" (SampleFormat, the number of extra samples, 1 with a transfer
 * function), then one line per row (samples in decimal, 16-bit samples as words); a row libtiff cannot read
 * prints "unreadable". */
static int dump(const char* file) {
    TIFF* t = TIFFOpen(file, "r");
    if (!t) return 2;
    uint32_t w = 0, h = 0;
    float xres = 0, yres = 0;
    TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &w);
    TIFFGetField(t, TIFFTAG_IMAGELENGTH, &h);
    TIFFGetField(t, TIFFTAG_XRESOLUTION, &xres);
    TIFFGetField(t, TIFFTAG_YRESOLUTION, &yres);
    const uint32_t bps = u16tag(t, TIFFTAG_BITSPERSAMPLE);
    uint64_t bytes = 0;
    for (uint32_t s = 0; s < TIFFNumberOfStrips(t); ++s) bytes += TIFFGetStrileByteCount(t, s);
    uint16_t extra = 0;
    const uint16_t* kinds = NULL;
    TIFFGetField(t, TIFFTAG_EXTRASAMPLES, &extra, &kinds);
    const uint16_t *transfer[3] = {NULL, NULL, NULL};
    const int has_transfer = TIFFGetField(t, TIFFTAG_TRANSFERFUNCTION, &transfer[0], &transfer[1], &transfer[2]);
    printf(
        "width %u height %u bps %u spp %u photometric %u compression %u fill %u xres %g yres %g unit %u "
        "bytes %llu format %u extra %u transfer %d\n",
        w, h, bps, u16tag(t, TIFFTAG_SAMPLESPERPIXEL), u16tag(t, TIFFTAG_PHOTOMETRIC),
        u16tag(t, TIFFTAG_COMPRESSION), u16tag(t, TIFFTAG_FILLORDER), xres, yres,
        u16tag(t, TIFFTAG_RESOLUTIONUNIT), (unsigned long long)bytes, u16tag(t, TIFFTAG_SAMPLEFORMAT), extra,
        has_transfer);
    const tmsize_t size = TIFFScanlineSize(t);
    uint8_t* row = calloc(1, (size_t)size + 16);
    for (uint32_t y = 0; y < h; ++y) {
        if (TIFFReadScanline(t, row, y, 0) != 1) {
            puts("unreadable");
            continue;
        }
        for (tmsize_t i = 0; bps == 16 ? i + 1 < size : i < size; i += bps == 16 ? 2 : 1) {
            uint16_t word;
            memcpy(&word, row + i, 2);
            printf(i ? " %u" : "%u", bps == 16 ? word : row[i]);
        }
        putchar('\n');
    }
    free(row);
    TIFFClose(t);
    return 0;
}

int main(int argc, char** argv) {
    if (argc == 3 && strcmp(argv[1], "make") == 0) {
        TIFFSetWarningHandler(NULL);
        make_bilevel(argv[2]);
        make_lookup(argv[2]);
        make_rgba(argv[2]);
        make_mirror(argv[2]);
        make_alpha(argv[2]);
        make_transfer(argv[2]);
        return 0;
    }
    if (argc == 4 && strcmp(argv[1], "rgba") == 0) return rgba(argv[2], argv[3], 0, 0, 0);
    if (argc == 6 && strcmp(argv[1], "rgba") == 0)
        return rgba(argv[2], argv[3], 1, (uint32_t)strtoul(argv[4], NULL, 10),
                    (uint32_t)strtoul(argv[5], NULL, 10));
    if (argc == 3 && strcmp(argv[1], "dump") == 0) return dump(argv[2]);
    fprintf(stderr, "usage: pipe_images make DIR | rgba FILE OUT [ROW ROWS] | dump FILE\n");
    return 2;
}
