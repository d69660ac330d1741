/*
 * The desktop pixel-map framework: the six calls a plugin binds by name at run time to reach the
 * pixels of a desktop picture. A framework named N is the shared library
 * <frameworks folder>/N.framework/N; this one is "ApplicationServices". The reference host ships
 * a stand-in that implements these calls over its own desktop pictures.
 *
 * A desktop picture's description (REALpictureTypePixMap) carries a GWorldPtr as its data.
 */
#ifndef TQV_PIXMAP_FRAMEWORK_H
#define TQV_PIXMAP_FRAMEWORK_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct GWorldStruct GWorldStruct;
typedef GWorldStruct* GWorldPtr;
typedef struct PixMapStruct PixMapStruct;
typedef PixMapStruct** PixMapHandle;

typedef PixMapHandle (*GetGWorldPixMapProc)(GWorldPtr world); /* "GetGWorldPixMap" */
typedef int16_t (*GetPixDepthProc)(PixMapHandle pm);          /* "GetPixDepth": 32, 24, 16, 8, ... */
typedef bool (*LockPixelsProc)(PixMapHandle pm);              /* "LockPixels" */
typedef void (*UnlockPixelsProc)(PixMapHandle pm);            /* "UnlockPixels" */
typedef void* (*GetPixBaseAddrProc)(PixMapHandle pm);         /* "GetPixBaseAddr" */
typedef long (*GetPixRowBytesProc)(PixMapHandle pm);          /* "GetPixRowBytes" */

/* Environment variable through which a host names its frameworks folder to the plugin. */
#define TQV_FRAMEWORKS_ENV "TQV_FRAMEWORKS_DIR"

#ifdef __cplusplus
}
#endif

#endif /* TQV_PIXMAP_FRAMEWORK_H */
