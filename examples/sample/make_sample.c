/*
 * Writes the bundled demo file with libtiff's own API (never with the plugin), so that the demo
 * and the tests read a file made by other software:
 *   page 0: 64 x 48 RGB, LZW, a colour gradient
 *   page 1: 64 x 48 RGBA (unassociated alpha), Deflate, a disc fading out to transparent
 *   page 2: 64 x 48 bilevel, Group 4, min-is-white, a checkerboard of 8-pixel squares
 * Usage: make_sample OUT.tif
 */
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <tiffio.h>

enum { W = 64, H = 48 };

static void common_tags(TIFF* t, uint16_t spp, uint16_t bps, uint16_t photometric, uint16_t compression) {
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, (uint32_t)W);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, (uint32_t)H);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, spp);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bps);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, photometric);
    TIFFSetField(t, TIFFTAG_COMPRESSION, compression);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, (uint32_t)16);
    TIFFSetField(t, TIFFTAG_XRESOLUTION, 72.0);
    TIFFSetField(t, TIFFTAG_YRESOLUTION, 72.0);
    TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(t, TIFFTAG_SOFTWARE, "make_sample (libtiff)");
}

static int write_rgb(TIFF* t) {
    uint8_t row[W * 3];
    common_tags(t, 3, 8, PHOTOMETRIC_RGB, COMPRESSION_LZW);
    TIFFSetField(t, TIFFTAG_IMAGEDESCRIPTION, "RGB gradient");
    for (int y = 0; y < H; y++) {
        for (int x = 0; x < W; x++) {
            row[x * 3 + 0] = (uint8_t)(x * 4);
            row[x * 3 + 1] = (uint8_t)(y * 5);
            row[x * 3 + 2] = (uint8_t)(255 - x * 4);
        }
        if (TIFFWriteScanline(t, row, (uint32_t)y, 0) < 0) return 0;
    }
    return TIFFWriteDirectory(t);
}

static int write_rgba(TIFF* t) {
    uint8_t row[W * 4];
    uint16_t extra = EXTRASAMPLE_UNASSALPHA;
    common_tags(t, 4, 8, PHOTOMETRIC_RGB, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &extra);
    TIFFSetField(t, TIFFTAG_IMAGEDESCRIPTION, "RGBA disc with soft edge");
    for (int y = 0; y < H; y++) {
        for (int x = 0; x < W; x++) {
            double d = hypot(x - W / 2.0 + 0.5, y - H / 2.0 + 0.5);
            double a = d < 12 ? 255 : d > 22 ? 0 : 255 * (22 - d) / 10;
            row[x * 4 + 0] = 220;
            row[x * 4 + 1] = (uint8_t)(x * 3);
            row[x * 4 + 2] = 40;
            row[x * 4 + 3] = (uint8_t)(a + 0.5);
        }
        if (TIFFWriteScanline(t, row, (uint32_t)y, 0) < 0) return 0;
    }
    return TIFFWriteDirectory(t);
}

static int write_bilevel(TIFF* t) {
    uint8_t row[W / 8];
    common_tags(t, 1, 1, PHOTOMETRIC_MINISWHITE, COMPRESSION_CCITTFAX4);
    TIFFSetField(t, TIFFTAG_IMAGEDESCRIPTION, "Bilevel checkerboard");
    for (int y = 0; y < H; y++) {
        /* min-is-white: a set bit is black */
        memset(row, ((y / 8) % 2) ? 0x00 : 0xFF, sizeof row);
        for (int b = 1; b < W / 8; b += 2) row[b] = (uint8_t)~row[b];
        if (TIFFWriteScanline(t, row, (uint32_t)y, 0) < 0) return 0;
    }
    return TIFFWriteDirectory(t);
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s OUT.tif\n", argv[0]);
        return 2;
    }
    TIFF* t = TIFFOpen(argv[1], "wl");
    if (!t) return 1;
    int ok = write_rgb(t) && write_rgba(t) && write_bilevel(t);
    TIFFClose(t);
    return ok ? 0 : 1;
}
