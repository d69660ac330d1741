/*
 * rgba_reference IN.tif OUT.raw: libtiff's own RGBA rendering of the first image, rows top-down,
 * 4 bytes a pixel (R, G, B, A), written to OUT.raw; prints "WIDTH HEIGHT" on success.
 *
 * Exit status: 0 rendered; 1 libtiff cannot open or render the file; 3 the image has more pixels
 * than the plugin decodes (the size is printed all the same, nothing is written).
 * The raster starts zero-filled, as the plugin's does, so damaged strips compare equal.
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <tiffio.h>

#define MAX_PIXELS ((uint64_t)1 << 28)

static int render(TIFF* tif, const char* out) {
    uint32_t w = 0, h = 0;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &w);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &h);
    if (w == 0 || h == 0) return 1;
    if ((uint64_t)w * h > MAX_PIXELS) {
        printf("%u %u\n", w, h);
        return 3;
    }
    uint32_t* raster = calloc((size_t)w * h, 4);
    if (raster == NULL) return 1;
    int ok = TIFFReadRGBAImageOriented(tif, w, h, raster, ORIENTATION_TOPLEFT, 0);
    FILE* f = ok ? fopen(out, "wb") : NULL;
    if (f != NULL) {
        ok = fwrite(raster, 4, (size_t)w * h, f) == (size_t)w * h;
        ok = fclose(f) == 0 && ok;
    }
    free(raster);
    if (!ok || f == NULL) return 1;
    printf("%u %u\n", w, h);
    return 0;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: rgba_reference IN.tif OUT.raw\n");
        return 2;
    }
    TIFFSetErrorHandler(NULL);
    TIFFSetWarningHandler(NULL);
    TIFF* tif = TIFFOpen(argv[1], "r");
    if (tif == NULL) return 1;
    int status = render(tif, argv[2]);
    TIFFClose(tif);
    return status;
}
