/*
 * tiff_tags IN.tif: the image-structure tags of the first image as read by plain libtiff, one
 * "name=value" line each ("name=unset" when the file does not hold it). Lets host programs check
 * what the plugin wrote without going through the plugin.
 */
#include <stdint.h>
#include <stdio.h>
#include <tiffio.h>

static void print_u16(TIFF* tif, const char* name, ttag_t tag) {
    uint16_t v = 0;
    if (TIFFGetField(tif, tag, &v))
        printf("%s=%u\n", name, v);
    else
        printf("%s=unset\n", name);
}

static void print_u32(TIFF* tif, const char* name, ttag_t tag) {
    uint32_t v = 0;
    if (TIFFGetField(tif, tag, &v))
        printf("%s=%u\n", name, v);
    else
        printf("%s=unset\n", name);
}

static void print_float(TIFF* tif, const char* name, ttag_t tag) {
    float v = 0;
    if (TIFFGetField(tif, tag, &v))
        printf("%s=%g\n", name, v);
    else
        printf("%s=unset\n", name);
}

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    TIFFSetErrorHandler(NULL);
    TIFFSetWarningHandler(NULL);
    TIFF* tif = TIFFOpen(argv[1], "r");
    if (tif == NULL) return 1;
    print_u32(tif, "width", TIFFTAG_IMAGEWIDTH);
    print_u32(tif, "height", TIFFTAG_IMAGELENGTH);
    print_u32(tif, "rowsperstrip", TIFFTAG_ROWSPERSTRIP);
    print_u16(tif, "compression", TIFFTAG_COMPRESSION);
    print_u16(tif, "photometric", TIFFTAG_PHOTOMETRIC);
    print_u16(tif, "planar", TIFFTAG_PLANARCONFIG);
    print_u16(tif, "bitspersample", TIFFTAG_BITSPERSAMPLE);
    print_u16(tif, "samplesperpixel", TIFFTAG_SAMPLESPERPIXEL);
    print_u16(tif, "fillorder", TIFFTAG_FILLORDER);
    print_u16(tif, "orientation", TIFFTAG_ORIENTATION);
    print_u16(tif, "resolutionunit", TIFFTAG_RESOLUTIONUNIT);
    print_float(tif, "xresolution", TIFFTAG_XRESOLUTION);
    print_float(tif, "yresolution", TIFFTAG_YRESOLUTION);
    uint16_t count = 0;
    uint16_t* extra = NULL;
    if (TIFFGetField(tif, TIFFTAG_EXTRASAMPLES, &count, &extra) && count == 1)
        printf("extrasamples=%u\n", extra[0]);
    else
        printf("extrasamples=unset\n");
    TIFFClose(tif);
    return 0;
}
