/*
 * The binary interface between a host runtime and a plugin (interface version 9).
 *
 * This header is the only thing the plugin and the reference host share. It is plain C so that
 * either side can be written in any language with a C ABI. Every host service is found by name
 * through the lookup function handed to REALPluginMain; the names and signatures are listed at
 * the end of this file.
 *
 * Host scalar types at the boundary: Integer int32_t, Boolean bool, Single float, Double double,
 * Color uint32_t (0x00RRGGBB). A byref parameter is a pointer to the caller's slot.
 */
#ifndef TQV_PLUGIN_ABI_H
#define TQV_PLUGIN_ABI_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Opaque host handles --------------------------------------------------------------------
 * Pictures, memory blocks, folder items and graphics are objects: REALLockObject and
 * REALUnlockObject take and release their references. Strings have their own lock services. */
typedef struct REALobjectStruct REALobjectStruct;
typedef struct REALstringStruct REALstringStruct;
typedef struct REALmemoryBlockStruct REALmemoryBlockStruct;
typedef struct REALpictureStruct REALpictureStruct;
typedef struct REALfolderItemStruct REALfolderItemStruct;
typedef struct REALgraphicsStruct REALgraphicsStruct;
typedef struct REALarrayStruct REALarrayStruct;
typedef struct REALclassRefStruct REALclassRefStruct;

typedef REALobjectStruct* REALobject;
typedef REALstringStruct* REALstring;
typedef REALmemoryBlockStruct* REALmemoryBlock;
typedef REALpictureStruct* REALpicture;
typedef REALfolderItemStruct* REALfolderItem;
typedef REALgraphicsStruct* REALgraphics;
typedef REALarrayStruct* REALarray; /* also REALarrayInteger / REALintArrayStruct */
typedef REALclassRefStruct* REALclassRef;

/* The lookup function: service name (zero-terminated ASCII) -> address, or NULL. */
typedef void* (*REALResolver)(const char* name);

/* The one exported entry point of a plugin. */
typedef void (*REALPluginMainProc)(REALResolver lookup);

#define REAL_PLUGIN_INTERFACE_VERSION 9

/* The public head of a host string. Hosts before 2013 let a plugin that holds a lock read the
 * bytes in place: `buffer` holds a one-byte length prefix (legacy, not to be trusted for long
 * strings), then `length` bytes of text, then a zero byte. Everything else is the host's. */
struct REALstringStruct {
    int32_t hostPrivate0;
    int32_t length;
    uint8_t* buffer;
    uint32_t encoding;
    int32_t hostPrivate1;
};

/* A memory block made by "PtrToMemoryBlock" wraps foreign bytes: "memoryBlockGetSize" answers
 * REAL_MEMORYBLOCK_UNKNOWN_SIZE for it. */
#define REAL_MEMORYBLOCK_UNKNOWN_SIZE (-1)

/* ---- Encodings (32-bit host encoding numbers) ---------------------------------------------- */
#define kREALTextEncodingMacRoman 0x00000000u
#define kREALTextEncodingUTF16 0x00000100u /* machine order */
#define kREALTextEncodingASCII 0x00000600u
#define kREALTextEncodingISOLatin1 0x00000201u
#define kREALTextEncodingWindowsLatin1 0x00000500u
#define kREALTextEncodingUTF8 0x08000100u
#define kREALTextEncodingUTF32 0x0C000100u   /* machine order */
#define kREALTextEncodingUnknown 0x0000FFFFu /* binary bytes: never converted */

/* ---- Registration flags ---------------------------------------------------------------------- */
#define REALconsoleSafe 0x00000004u         /* usable in console and web applications too */
#define REALpropertyFlag 0x00000002u        /* carried by every property row */
#define REALconsoleOnlyFrom2010 0x00040000u /* plugin-side markers, translated before registration */
#define REALwebOnlyFrom2010 0x00080000u
#define REALflagReserved100000 0x00100000u

/* ---- Records exchanged with the host --------------------------------------------------------- */

/* Filled by "PluginGetStringData": a private copy of a string's bytes, zero-terminated after
 * `length` bytes. Given back with "PluginDisposeStringData". */
typedef struct REALstringData {
    const void* data;
    int32_t length;
    uint32_t encoding;
} REALstringData;

/* Picture description types. */
#define REALpictureTypePixMap 4       /* desktop: data is a pixel-map world (GWorldPtr) */
#define REALpictureTypePixelRecord 10 /* console/web: data is a REALpixelRecord */
#define REALpictureTypeBuffer 1       /* pixel type for REALBuildPictureFromBuffer: 32-bit xRGB */

/* Filled by the picture-locking services. */
typedef struct REALpictureDescription {
    int32_t pictureType;
    int32_t reserved0;
    void* pictureData;
    int32_t width;
    int32_t height;
    int32_t depth;
    int32_t reserved1;
} REALpictureDescription;

/* The console/web host's pixel record: 32-bit words 0x00RRGGBB, little-endian (bytes B, G, R, x).
 * The plugin relies on the five named fields only. Width and height sit at offsets 4 and 8; the
 * storage and row-table pointers follow the host's private area at offset 7224, pointer-aligned
 * (7224 and 7232 on a 64-bit build). */
#define REAL_PIXEL_RECORD_PRIVATE_BYTES 7212
typedef struct REALpixelRecord {
    int32_t layout; /* must be 0 */
    int32_t width;
    int32_t height;
    uint8_t hostPrivate[REAL_PIXEL_RECORD_PRIVATE_BYTES];
    uint32_t* storage;
    uint8_t** rows; /* one pointer per row, top row first */
} REALpixelRecord;

/* A file reference of an existing file or folder: its absolute POSIX path, UTF-8. */
#define REAL_FILE_REF_PATH_MAX 4096
typedef struct REALfileRef {
    char path[REAL_FILE_REF_PATH_MAX];
} REALfileRef;

/* A file's own name in UTF-16 (machine order), up to 255 units. */
typedef struct REALunicodeName {
    uint16_t length;
    uint16_t unicode[255];
} REALunicodeName;

/* The older file specification: the parent folder and a Pascal-string name in Mac Roman. The
 * name is up to 63 bytes; longer names cannot be specified this way. */
typedef struct REALfileSpec {
    REALfileRef parent;
    uint8_t name[64];
} REALfileSpec;

/* ---- Registration records (interface version 9) --------------------------------------------- */

/* Getter and setter of a property row bound to a field of the instance data. */
#define REALstandardGetter ((void*)(intptr_t)-1)
#define REALstandardSetter ((void*)(intptr_t)-1)

typedef struct REALproperty {
    const char* group; /* may be NULL */
    const char* name;
    const char* type; /* "Integer", "String", "Picture", ... */
    uint32_t flags;
    void* getter;   /* Type getter(REALobject instance, intptr_t param) */
    void* setter;   /* void setter(REALobject instance, intptr_t param, Type value); NULL: read-only */
    intptr_t param; /* for a direct field: the field's offset in the instance data */
} REALproperty;

typedef struct REALmethodDefinition {
    void (*function)(void);       /* cast to the declared signature */
    void (*setterFunction)(void); /* NULL, or the assignable form's setter */
    const char* declaration;
    uint32_t flags;
} REALmethodDefinition;

typedef struct REALevent {
    const char* declaration;
    intptr_t forSystemUse; /* filled in by the host at registration */
} REALevent;

typedef struct REALconstant {
    const char* declaration; /* "kName = 1" */
    const char* reserved1;
    uint32_t flags;
} REALconstant;

typedef void (*REALConstructorProc)(REALobject instance);
typedef void (*REALDestructorProc)(REALobject instance);

typedef struct REALclassDefinition {
    uint32_t version; /* REAL_PLUGIN_INTERFACE_VERSION */
    const char* name;
    const char* superName; /* NULL: none */
    uint32_t dataSize;     /* bytes of instance data, zero-filled by the host */
    intptr_t forSystemUse; /* filled in by the host */
    REALConstructorProc constructor;
    REALDestructorProc destructor;
    REALproperty* properties;
    uint32_t propertyCount;
    REALmethodDefinition* methods;
    uint32_t methodCount;
    REALevent* events;
    uint32_t eventCount;
    REALconstant* constants;
    uint32_t constantCount;
    uint32_t flags;
    REALproperty* sharedProperties;
    uint32_t sharedPropertyCount;
    REALmethodDefinition* sharedMethods;
    uint32_t sharedMethodCount;
    /* Filled in by the host at registration: instance data lies at (char*)object + dataOffset. */
    uint32_t dataOffset;
} REALclassDefinition;

/* ---- Host services: looked-up name and signature -------------------------------------------- */

typedef void (*REALRegisterPluginVersionProc)(int32_t version);           /* "RegisterPluginVersion" */
typedef double (*REALGetRBVersionProc)(void);                             /* "REALGetRBVersion" */
typedef void (*REALRegisterClassProc)(REALclassDefinition* def);          /* "PluginRegisterClass" */
typedef void (*REALRegisterClassExtensionProc)(REALclassDefinition* def); /* "PluginRegisterClassExtension" */
typedef void (*REALRegisterMethodProc)(REALmethodDefinition* def);        /* "PluginRegisterMethod" */
typedef REALobject (*REALnewInstanceProc)(const char* className);         /* "PluginNewInstance" */
typedef void (*REALLockObjectProc)(REALobject obj);                       /* "REALLockObject" */
typedef void (*REALUnlockObjectProc)(REALobject obj);                     /* "REALUnlockObject" */
typedef void* (*REALGetEventInstanceProc)(REALobject obj, intptr_t eventWord); /* "GetEventInstance" */
typedef void (*REALRaiseExceptionProc)(REALobject exception);                  /* "RuntimeRaiseException" */
typedef bool (*REALSetPropValueStringProc)(REALobject obj, const char* prop,
                                           REALstring value); /* "REALSetPropValueString" */
typedef bool (*REALGetPropValueInt32Proc)(REALobject obj, const char* prop,
                                          int32_t* value); /* "REALGetPropValueInt" */
typedef void* (*REALLoadObjectMethodProc)(REALobject obj,
                                          const char* declaration);           /* "REALLoadObjectMethod" */
typedef REALclassRef (*REALGetClassRefProc)(const char* className);           /* "pluginObjectType" */
typedef void (*REALLockStringProc)(REALstring s);                             /* "REALLockString" */
typedef void (*REALUnlockStringProc)(REALstring s);                           /* "REALUnlockString" */
typedef REALstring (*REALBuildStringProc)(const void* bytes, int32_t length); /* "REALBuildString" */
typedef void (*REALSetStringEncodingProc)(REALstring s, uint32_t encoding);   /* "REALSetStringEncoding" */
typedef uint32_t (*REALGetStringEncodingProc)(REALstring s);                  /* "REALGetStringEncoding" */
typedef REALstring (*REALConvertStringProc)(REALstring s, uint32_t encoding); /* "REALConvertString" */
typedef bool (*REALGetStringDataProc)(REALstring s, uint32_t encoding,
                                      REALstringData* out);             /* "PluginGetStringData" */
typedef void (*REALDisposeStringDataProc)(REALstringData* data);        /* "PluginDisposeStringData" */
typedef REALmemoryBlock (*REALNewMemoryBlockProc)(int32_t size);        /* "newMemoryBlock" */
typedef void* (*REALMemoryBlockGetPtrProc)(REALmemoryBlock mb);         /* "memoryBlockGetPtr" */
typedef int32_t (*REALMemoryBlockGetSizeProc)(REALmemoryBlock mb);      /* "memoryBlockGetSize" */
typedef REALmemoryBlock (*REALPtrToMemoryBlockProc)(const void* data);  /* "PtrToMemoryBlock" */
typedef int32_t (*REALGetArrayUBoundProc)(REALarray array);             /* "RuntimeUBound" */
typedef int32_t (*REALGetArrayIntProc)(REALarray array, int32_t index); /* "RuntimeDirectReadIntArray" */
typedef REALpicture (*REALNewPictureProc)(int32_t width, int32_t height, int32_t depth); /* "newPicture" */
typedef REALpicture (*REALBuildPictureFromBufferProc)(int32_t width, int32_t height, int32_t pixelType,
                                                      void* buffer,
                                                      int32_t rowBytes); /* "REALBuildPictureFromBuffer" */
typedef REALpicture (*REALGetPictureMaskProc)(REALpicture pic, bool create); /* "REALGetPictureMask" */
typedef REALgraphics (*REALGetPictureGraphicsProc)(REALpicture pic); /* "pluginPictureGraphicsGetter" */
typedef void (*REALPictureClearCacheProc)(REALpicture pic);          /* "REALPictureClearCache" */
typedef bool (*REALLockPictureDescription2Proc)(REALpicture pic,
                                                REALpictureDescription* out); /* "lockPictureDescription" */
typedef bool (*REALLockPictureDescription3Proc)(REALpicture pic, REALpictureDescription* out,
                                                int32_t wantedType); /* "REALLockPictureDescription" */
typedef void (*REALUnlockPictureDescriptionProc)(REALpicture pic);   /* "unlockPictureDescription" */
typedef bool (*REALFSRefFromFolderItemProc)(REALfolderItem item, REALfileRef* outRef,
                                            REALunicodeName* outName); /* "REALFSRefFromFolderItem" */
typedef bool (*REALFSSpecFromFolderItemProc)(REALfileSpec* outSpec,
                                             REALfolderItem item); /* "REALFSSpecFromFolderItem" */
typedef void (*REALYieldToRBProc)(void);                           /* "REALYieldToRB" */
typedef void* (*REALLoadGlobalMethodProc)(const char* module,
                                          const char* declaration); /* "REALLoadGlobalMethod" */
typedef const char* (*REALStringGetCStringProc)(REALstring s);      /* "StringGetCString" */
typedef int32_t (*REALLenBProc)(REALstring s); /* global method "LenB( s as string ) as integer" */
/* Graphics method found with REALLoadObjectMethod by its declaration
 * "DrawPicture(Image as Picture, x as Integer, y as Integer, w as Integer, h as Integer, sx as Integer = 0,
 *  sy as Integer = 0, sw as Integer = -10000, sh as Integer = -10000)". */
typedef void (*REALGraphicsDrawPictureProc)(REALgraphics g, REALpicture image, int32_t x, int32_t y,
                                            int32_t w, int32_t h, int32_t sx, int32_t sy, int32_t sw,
                                            int32_t sh);

/* A REALFSRefFromFolderItem call with outName == NULL answers for the item itself (it must exist);
 * with outName set it answers with the item's existing parent folder and the item's own name. */

#ifdef __cplusplus
}
#endif

#endif /* TQV_PLUGIN_ABI_H */
