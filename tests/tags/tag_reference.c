/* Prints what plain libtiff reports for one directory of a file, one "key=value" line each, so
 * that host programs can compare the plugin's answers with libtiff's own. Absent tags print
 * nothing. Usage: tag_reference FILE [DIRECTORY] */
#include <stdio.h>
#include <stdlib.h>
#include <tiffio.h>

static void quiet(const char* module, const char* format, va_list arguments) {
    (void)module, (void)format, (void)arguments;
}

static void print_u16(TIFF* tif, const char* key, uint32_t tag, int defaulted) {
    uint16_t v = 0;
    if ((defaulted ? TIFFGetFieldDefaulted(tif, tag, &v) : TIFFGetField(tif, tag, &v)) == 1)
        printf("%s=%u\n", key, v);
}

static void print_u32(TIFF* tif, const char* key, uint32_t tag) {
    uint32_t v = 0;
    if (TIFFGetField(tif, tag, &v) == 1) printf("%s=%u\n", key, v);
}

static void print_float(TIFF* tif, const char* key, uint32_t tag) {
    float v = 0;
    if (TIFFGetFieldDefaulted(tif, tag, &v) == 1) printf("%s=%.9g\n", key, v);
}

static void print_text(TIFF* tif, const char* key, uint32_t tag) {
    const char* v = NULL;
    if (TIFFGetField(tif, tag, &v) != 1 || v == NULL) return;
    /* Hex, so that text with line breaks stays on one line. */
    printf("%s=", key);
    for (const unsigned char* c = (const unsigned char*)v; *c != 0; c++) printf("%02x", *c);
    printf("\n");
}

static void print_extra_samples(TIFF* tif) {
    uint16_t count = 0;
    const uint16_t* values = NULL;
    TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &count, &values);
    printf("ExtraSamples=");
    for (uint16_t i = 0; values != NULL && i < count; i++) printf("%s%u", i ? "," : "", values[i]);
    printf("\n");
}

static void print_colormap(TIFF* tif) {
    const uint16_t *r = NULL, *g = NULL, *b = NULL;
    uint16_t bits = 0;
    if (TIFFGetField(tif, TIFFTAG_COLORMAP, &r, &g, &b) != 1) return;
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &bits);
    printf("ColorMap=");
    for (uint32_t i = 0; i < (1u << bits); i++) printf("%s%u/%u/%u", i ? "," : "", r[i], g[i], b[i]);
    printf("\n");
}

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    TIFFSetErrorHandler(quiet);
    TIFFSetWarningHandler(quiet);
    TIFF* tif = TIFFOpen(argv[1], "r");
    if (tif == NULL) return printf("open=false\n"), 0;
    printf("open=true\nImageCount=%u\n", (unsigned)TIFFNumberOfDirectories(tif));
    if (argc > 2 && !TIFFSetDirectory(tif, (tdir_t)atoi(argv[2]))) return printf("directory=false\n"), 0;
    print_u32(tif, "Width", TIFFTAG_IMAGEWIDTH);
    print_u32(tif, "Height", TIFFTAG_IMAGELENGTH);
    print_u32(tif, "RowsPerStrip", TIFFTAG_ROWSPERSTRIP);
    print_u16(tif, "FillOrder", TIFFTAG_FILLORDER, 1);
    print_u16(tif, "BitsPerSample", TIFFTAG_BITSPERSAMPLE, 1);
    print_u16(tif, "SamplesPerPixel", TIFFTAG_SAMPLESPERPIXEL, 1);
    print_u16(tif, "Orientation", TIFFTAG_ORIENTATION, 1);
    print_u16(tif, "ResolutionUnit", TIFFTAG_RESOLUTIONUNIT, 1);
    print_u16(tif, "Compression", TIFFTAG_COMPRESSION, 1);
    print_u16(tif, "Photometric", TIFFTAG_PHOTOMETRIC, 1);
    print_u16(tif, "PlanarConfig", TIFFTAG_PLANARCONFIG, 1);
    print_float(tif, "HorizontalResolution", TIFFTAG_XRESOLUTION);
    print_float(tif, "VerticalResolution", TIFFTAG_YRESOLUTION);
    print_float(tif, "HorizontalPosition", TIFFTAG_XPOSITION);
    print_float(tif, "VerticalPosition", TIFFTAG_YPOSITION);
    print_text(tif, "Copyright", TIFFTAG_COPYRIGHT);
    print_text(tif, "DateTime", TIFFTAG_DATETIME);
    print_text(tif, "DocumentName", TIFFTAG_DOCUMENTNAME);
    print_text(tif, "HostComputer", TIFFTAG_HOSTCOMPUTER);
    print_text(tif, "ImageDescription", TIFFTAG_IMAGEDESCRIPTION);
    print_text(tif, "Make", TIFFTAG_MAKE);
    print_text(tif, "Model", TIFFTAG_MODEL);
    print_text(tif, "PageName", TIFFTAG_PAGENAME);
    print_text(tif, "Software", TIFFTAG_SOFTWARE);
    print_extra_samples(tif);
    print_colormap(tif);
    printf("BytesPerRow=%lld\n", (long long)TIFFScanlineSize64(tif));
    TIFFClose(tif);
    return 0;
}
