// The one way the plugin starts libtiff's RGBA rendering of the current image.
//
// libtiff's row packers for 8-bit grey and palette pixels and for 16-bit grey pixels step over
// the columns a row leaves out (the rest of a partial last tile, or of an image wider than the
// raster) one byte a pixel, whatever the pixel's size: with extra samples or 16-bit samples every
// row after the first was read from the wrong place. libtiff 3.9 had the same packers.
// BeginRgbaImage puts in their place packers that make the same pixels and step by whole pixels.
#ifndef TQV_IMPORT_RGBA_BEGIN_H
#define TQV_IMPORT_RGBA_BEGIN_H

#include <tiffio.h>

namespace tqv {

// TIFFRGBAImageBegin (same result and message), with the corrected packers where libtiff chose
// one of the skewed ones.
bool BeginRgbaImage(TIFFRGBAImage* image, TIFF* tiff, char message[1024]);

}  // namespace tqv

#endif  // TQV_IMPORT_RGBA_BEGIN_H
