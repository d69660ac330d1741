// Host services, resolved by name through the lookup function the host handed to REALPluginMain.
//
// Every wrapper caches the service's address. While the cache is empty each call asks the host
// again, so a service that appears later is picked up; while the host does not know the name the
// wrapper returns 0, nil or false without calling anything. Callers treat that as the operation
// failing, never as a crash.
#ifndef TQV_BRIDGE_SERVICES_H
#define TQV_BRIDGE_SERVICES_H

#include <tqv/plugin_abi.h>

namespace tqv {

// The host's lookup function, kept by REALPluginMain.
extern REALResolver gResolver;
// The host's version as it reported it ("REALGetRBVersion"); 0 when unknown, which selects every
// older-host path.
extern double rbversion_rbversion;

// X(wrapper name, looked-up name, signature). The two string-data services and the two picture
// locking services get hand-written front ends below.
#define TQV_HOST_SERVICES(X)                                                                      \
    X(REALRegisterClass, "PluginRegisterClass", REALRegisterClassProc)                            \
    X(REALRegisterClassExtension, "PluginRegisterClassExtension", REALRegisterClassExtensionProc) \
    X(REALRegisterMethod, "PluginRegisterMethod", REALRegisterMethodProc)                         \
    X(REALnewInstance, "PluginNewInstance", REALnewInstanceProc)                                  \
    X(REALLockObject, "REALLockObject", REALLockObjectProc)                                       \
    X(REALUnlockObject, "REALUnlockObject", REALUnlockObjectProc)                                 \
    X(REALGetEventInstance, "GetEventInstance", REALGetEventInstanceProc)                         \
    X(REALRaiseException, "RuntimeRaiseException", REALRaiseExceptionProc)                        \
    X(REALSetPropValueString, "REALSetPropValueString", REALSetPropValueStringProc)               \
    X(REALGetPropValueInt32, "REALGetPropValueInt", REALGetPropValueInt32Proc)                    \
    X(REALLoadObjectMethod, "REALLoadObjectMethod", REALLoadObjectMethodProc)                     \
    X(REALGetClassRef, "pluginObjectType", REALGetClassRefProc)                                   \
    X(REALLockString, "REALLockString", REALLockStringProc)                                       \
    X(REALUnlockString, "REALUnlockString", REALUnlockStringProc)                                 \
    X(originalREALBuildString, "REALBuildString", REALBuildStringProc)                            \
    X(REALSetStringEncoding, "REALSetStringEncoding", REALSetStringEncodingProc)                  \
    X(REALGetStringEncoding, "REALGetStringEncoding", REALGetStringEncodingProc)                  \
    X(REALConvertString, "REALConvertString", REALConvertStringProc)                              \
    X(hostGetStringData, "PluginGetStringData", REALGetStringDataProc)                            \
    X(hostDisposeStringData, "PluginDisposeStringData", REALDisposeStringDataProc)                \
    X(REALNewMemoryBlockOriginal, "newMemoryBlock", REALNewMemoryBlockProc)                       \
    X(REALMemoryBlockGetPtr, "memoryBlockGetPtr", REALMemoryBlockGetPtrProc)                      \
    X(REALMemoryBlockGetSize, "memoryBlockGetSize", REALMemoryBlockGetSizeProc)                   \
    X(REALPtrToMemoryBlock, "PtrToMemoryBlock", REALPtrToMemoryBlockProc)                         \
    X(REALGetArrayUBound, "RuntimeUBound", REALGetArrayUBoundProc)                                \
    X(REALGetArrayInt, "RuntimeDirectReadIntArray", REALGetArrayIntProc)                          \
    X(REALNewPicture, "newPicture", REALNewPictureProc)                                           \
    X(REALBuildPictureFromBuffer, "REALBuildPictureFromBuffer", REALBuildPictureFromBufferProc)   \
    X(REALGetPictureMask, "REALGetPictureMask", REALGetPictureMaskProc)                           \
    X(REALGetPictureGraphics, "pluginPictureGraphicsGetter", REALGetPictureGraphicsProc)          \
    X(REALPictureClearCache, "REALPictureClearCache", REALPictureClearCacheProc)                  \
    X(hostLockPictureDescription2, "lockPictureDescription", REALLockPictureDescription2Proc)     \
    X(hostLockPictureDescription3, "REALLockPictureDescription", REALLockPictureDescription3Proc) \
    X(REALUnlockPictureDescription, "unlockPictureDescription", REALUnlockPictureDescriptionProc) \
    X(REALFSRefFromFolderItem, "REALFSRefFromFolderItem", REALFSRefFromFolderItemProc)            \
    X(REALFSSpecFromFolderItem, "REALFSSpecFromFolderItem", REALFSSpecFromFolderItemProc)         \
    X(REALYieldToRB, "REALYieldToRB", REALYieldToRBProc)                                          \
    X(REALLoadFrameworkMethod, "REALLoadGlobalMethod", REALLoadGlobalMethodProc)                  \
    X(StringGetCString, "StringGetCString", REALStringGetCStringProc)

enum class ServiceId : int {
#define TQV_SERVICE_ID(wrapper, name, proc) wrapper,
    TQV_HOST_SERVICES(TQV_SERVICE_ID)
#undef TQV_SERVICE_ID
        Count
};

// The looked-up name of a service.
const char* ServiceName(ServiceId id);
// The cached address, looked up again while it is nil. Nil when the host lacks the service.
void* ResolveService(ServiceId id);
// Forgets every cached address (tests that change the host between cases).
void ResetServiceCache();

template <ServiceId Id, typename Proc>
struct HostService;

template <ServiceId Id, typename R, typename... A>
struct HostService<Id, R (*)(A...)> {
    static R Call(A... args) {
        auto fn = reinterpret_cast<R (*)(A...)>(ResolveService(Id));
        if (fn == nullptr) return R();
        return fn(args...);
    }
};

#define TQV_SERVICE_WRAPPER(wrapper, name, proc) \
    inline constexpr auto wrapper = &HostService<ServiceId::wrapper, proc>::Call;
TQV_HOST_SERVICES(TQV_SERVICE_WRAPPER)
#undef TQV_SERVICE_WRAPPER

// The older service locks with the host's own pixel type, the newer one converts to `wantedType`.
inline bool REALLockPictureDescription(REALpicture pic, REALpictureDescription* out) {
    return hostLockPictureDescription2(pic, out);
}
inline bool REALLockPictureDescription(REALpicture pic, REALpictureDescription* out, int32_t wantedType) {
    return hostLockPictureDescription3(pic, out, wantedType);
}

// A private copy of a string's bytes in `encoding` (0xFFFF: the bytes as they are). Hosts without
// "PluginGetStringData" are served by a fallback over "StringGetCString" and the host function
// "LenB". The copy is given back with REALDisposeStringData, whichever side made it.
bool REALGetStringData(REALstring s, uint32_t encoding, REALstringData* out);
void REALDisposeStringData(REALstringData* data);

}  // namespace tqv

#endif  // TQV_BRIDGE_SERVICES_H
