// Service lookup and reference accounting, through lookup() as a plugin uses them. (The
// file-reference services are checked through the fixture plugin: tests/e2e/host_files.lua.)
#include <cstring>
#include <string>

#include "../../host/frameworks/gworld.h"
#include "host_test_support.h"
#include "tqvhost/handles.h"
#include "tqvhost/invoke.h"
#include "tqvhost/picture.h"
#include "tqvhost/registry.h"
#include "tqvhost/values.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

namespace tqvhost::test {
namespace {

const char* const kServices[] = {"RegisterPluginVersion",
                                 "REALGetRBVersion",
                                 "PluginRegisterClass",
                                 "PluginRegisterClassExtension",
                                 "PluginRegisterMethod",
                                 "PluginNewInstance",
                                 "REALLockObject",
                                 "REALUnlockObject",
                                 "GetEventInstance",
                                 "RuntimeRaiseException",
                                 "REALSetPropValueString",
                                 "REALGetPropValueInt",
                                 "REALLoadObjectMethod",
                                 "pluginObjectType",
                                 "REALLockString",
                                 "REALUnlockString",
                                 "REALBuildString",
                                 "REALSetStringEncoding",
                                 "REALGetStringEncoding",
                                 "REALConvertString",
                                 "PluginGetStringData",
                                 "PluginDisposeStringData",
                                 "newMemoryBlock",
                                 "memoryBlockGetPtr",
                                 "memoryBlockGetSize",
                                 "PtrToMemoryBlock",
                                 "RuntimeUBound",
                                 "RuntimeDirectReadIntArray",
                                 "newPicture",
                                 "REALBuildPictureFromBuffer",
                                 "REALGetPictureMask",
                                 "pluginPictureGraphicsGetter",
                                 "REALPictureClearCache",
                                 "lockPictureDescription",
                                 "REALLockPictureDescription",
                                 "unlockPictureDescription",
                                 "REALFSRefFromFolderItem",
                                 "REALFSSpecFromFolderItem",
                                 "REALLoadGlobalMethod",
                                 "StringGetCString"};

TEST(Lookup, AnswersEveryServiceAndNothingWithheldOrUnknown) {
    configureOnce();
    for (const char* name : kServices) EXPECT_NE(lookup(name), nullptr) << name;
    EXPECT_EQ(lookup("REALYieldToRB"), nullptr);
    EXPECT_EQ(lookup("NoSuchService"), nullptr);
    EXPECT_EQ(lookup(nullptr), nullptr);
}

TEST(Lookup, HostGlobalLenB) {
    auto load = service<REALLoadGlobalMethodProc>("REALLoadGlobalMethod");
    auto lenB = reinterpret_cast<REALLenBProc>(load(nullptr, "LenB( s as string ) as integer"));
    ASSERT_NE(lenB, nullptr);
    EXPECT_EQ(load(nullptr, "NoSuch( s as string ) as integer"), nullptr);
    auto build = service<REALBuildStringProc>("REALBuildString");
    auto unlock = service<REALUnlockStringProc>("REALUnlockString");
    REALstring s = build("abc\0d", 5);
    EXPECT_EQ(lenB(s), 5);
    unlock(s);
}

class Accounting : public HostTest {};

TEST_F(Accounting, PluginLocksCountUntilReleased) {
    auto newBlock = service<REALNewMemoryBlockProc>("newMemoryBlock");
    auto lock = service<REALLockObjectProc>("REALLockObject");
    auto unlock = service<REALUnlockObjectProc>("REALUnlockObject");
    int64_t before = live().byKind["memoryblock"];
    REALmemoryBlock mb = newBlock(16);
    lock(reinterpret_cast<REALobject>(mb));
    EXPECT_EQ(live().byKind["memoryblock"], before + 2);
    unlock(reinterpret_cast<REALobject>(mb));
    unlock(reinterpret_cast<REALobject>(mb));
    EXPECT_EQ(live().byKind["memoryblock"], before);
    EXPECT_EQ(newBlock(-1), nullptr);
}

TEST_F(Accounting, DoubleReleaseAndDeadHandlesAreReported) {
    auto build = service<REALBuildStringProc>("REALBuildString");
    auto unlock = service<REALUnlockStringProc>("REALUnlockString");
    auto unlockObject = service<REALUnlockObjectProc>("REALUnlockObject");
    REALstring s = build("x", 1);
    unlock(s);
    unlock(s);  // dead by now: reported, not undefined
    int stack = 0;
    unlockObject(reinterpret_cast<REALobject>(&stack));  // never a host handle
    unlockObject(reinterpret_cast<REALobject>(s));       // a string is no object
    auto errors = takeAccountingErrors();
    ASSERT_EQ(errors.size(), 3u);
    EXPECT_NE(errors[0].find("dead string"), std::string::npos) << errors[0];
    EXPECT_NE(errors[1].find("not a host handle"), std::string::npos) << errors[1];
}

TEST_F(Accounting, PluginCannotReleaseTheHostsLock) {
    auto unlock = service<REALUnlockObjectProc>("REALUnlockObject");
    HostRef item(makeHandle<FolderItemHandle>("/tmp"));
    unlock(static_cast<REALobject>(item.address()));
    auto errors = takeAccountingErrors();
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].find("beyond the locks it holds"), std::string::npos) << errors[0];
    EXPECT_FALSE(item.get()->dead());
}

// A failed description lock locks nothing, except on hosts before 2012, which left the picture
// locked (a plugin then unlocks it); an unlock beyond the locks is the plugin's fault.
TEST_F(Accounting, DescriptionLocksBalance) {
    auto newPicture = service<REALNewPictureProc>("newPicture");
    auto lock = service<REALLockPictureDescription3Proc>("REALLockPictureDescription");
    auto unlockDescription = service<REALUnlockPictureDescriptionProc>("unlockPictureDescription");
    auto unlock = service<REALUnlockObjectProc>("REALUnlockObject");
    REALpicture picture = newPicture(2, 2, 32);
    ASSERT_NE(picture, nullptr);
    auto* handle = static_cast<PictureHandle*>(Accounts::find(picture));
    REALpictureDescription description{};
    EXPECT_FALSE(lock(picture, &description, REALpictureTypePixMap));  // a console picture
    EXPECT_EQ(handle->descriptionLocks, 0);
    EXPECT_TRUE(lock(picture, &description, REALpictureTypePixelRecord));
    unlockDescription(picture);
    unlockDescription(picture);
    auto errors = takeAccountingErrors();
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].find("beyond its locks"), std::string::npos) << errors[0];

    const double version = config().version;
    Config older = config();
    older.version = 2011.0;
    configure(older);
    EXPECT_FALSE(lock(picture, &description, REALpictureTypePixMap));
    EXPECT_EQ(handle->descriptionLocks, 1);
    unlockDescription(picture);
    Config current = config();
    current.version = version;
    configure(current);
    EXPECT_EQ(handle->descriptionLocks, 0);
    unlock(reinterpret_cast<REALobject>(picture));
}

// A plugin that writes a byte past a row's pixels lands in the next row, where no pixel comparison
// would notice; the host reports it when the picture is given back. Row starts come from the
// description, so the rows themselves stay usable up to their last pixel.
TEST_F(Accounting, WritesPastARowAreReported) {
    auto lock = service<REALLockPictureDescription3Proc>("REALLockPictureDescription");
    auto unlockDescription = service<REALUnlockPictureDescriptionProc>("unlockPictureDescription");
    auto rowStart = [](const REALpictureDescription& d, int32_t y) -> uint8_t* {
        if (d.pictureType == REALpictureTypePixelRecord)
            return reinterpret_cast<uint8_t*>(static_cast<REALpixelRecord*>(d.pictureData)->rows[y]);
        const PixMapStruct* map = static_cast<GWorldPtr>(d.pictureData)->pixMap;
        return static_cast<uint8_t*>(map->baseAddr) + static_cast<size_t>(y) * map->rowBytes;
    };
    struct Case {
        PictureBackend backend;
        int32_t depth, type, bytesPerPixel;
    };
    for (Case c : {Case{PictureBackend::PixelRecord, 32, REALpictureTypePixelRecord, 4},
                   Case{PictureBackend::PixMap, 24, REALpictureTypePixMap, 3},
                   Case{PictureBackend::PixMap, 32, REALpictureTypePixMap, 4}}) {
        SCOPED_TRACE(c.depth);
        HostRef picture(makeHandle<PictureHandle>(3, 2, c.depth, c.backend));
        REALpictureDescription d{};
        ASSERT_TRUE(lock(static_cast<REALpicture>(picture.address()), &d, c.type));
        for (int32_t y = 0; y < 2; ++y) std::memset(rowStart(d, y), 0xFF, 3 * c.bytesPerPixel);
        unlockDescription(static_cast<REALpicture>(picture.address()));
        EXPECT_TRUE(takeAccountingErrors().empty());
        EXPECT_EQ(picture.as<PictureHandle>()->pixel(2, 1), 0xFFFFFFu);

        ASSERT_TRUE(lock(static_cast<REALpicture>(picture.address()), &d, c.type));
        rowStart(d, 1)[3 * c.bytesPerPixel] = 0;
        unlockDescription(static_cast<REALpicture>(picture.address()));
        auto errors = takeAccountingErrors();
        ASSERT_EQ(errors.size(), 1u);
        EXPECT_NE(errors[0].find("past the end of row 1"), std::string::npos) << errors[0];
    }
}

// Unscaled draws take a block copy when both pictures store pixels alike; what lands where must
// not depend on that: clipping at every edge, negative offsets, and a pixel map of another depth.
TEST_F(Accounting, UnscaledDrawsClipLikeThePixelLoop) {
    auto pattern = [](int32_t x, int32_t y) {
        return uint32_t(x * 40 + 7) << 16 | uint32_t(y * 30 + 3) << 8 | 9;
    };
    HostRef source(makeHandle<PictureHandle>(5, 4, 32, PictureBackend::PixelRecord));
    auto* src = source.as<PictureHandle>();
    for (int32_t y = 0; y < 4; ++y)
        for (int32_t x = 0; x < 5; ++x) src->setPixel(x, y, pattern(x, y));
    struct Draw {
        int32_t x, y, w, h, sx, sy;
    };
    for (PictureBackend backend : {PictureBackend::PixelRecord, PictureBackend::PixMap}) {
        for (Draw d : {Draw{0, 0, 5, 4, 0, 0}, Draw{2, 1, 5, 4, 0, 0}, Draw{-2, -1, 5, 4, 0, 0},
                       Draw{1, 1, 3, 2, 2, 1}, Draw{0, 0, 9, 9, -1, -2}, Draw{7, 0, 5, 4, 0, 0}}) {
            HostRef target(makeHandle<PictureHandle>(6, 5, 24, backend));
            auto* dst = target.as<PictureHandle>();
            drawPicture(dst, src, d.x, d.y, d.w, d.h, d.sx, d.sy, d.w, d.h);
            for (int32_t ty = 0; ty < 5; ++ty)
                for (int32_t tx = 0; tx < 6; ++tx) {
                    const int32_t fx = tx - d.x + d.sx, fy = ty - d.y + d.sy;
                    const bool drawn = tx >= d.x && tx < d.x + d.w && ty >= d.y && ty < d.y + d.h &&
                                       fx >= 0 && fx < 5 && fy >= 0 && fy < 4;
                    EXPECT_EQ(dst->pixel(tx, ty), drawn ? pattern(fx, fy) : 0u)
                        << "draw at " << d.x << "," << d.y << " pixel " << tx << "," << ty;
                }
        }
    }
}

// A destroyed object's bytes stay allocated; a plugin reading them without a lock must not see its
// old data. Its destructor still does.
TEST_F(Accounting, DestroyedObjectInstanceDataIsRetired) {
    static int32_t seenByDestructor = 0;
    static Class cls;  // outlives the dead handle that points at it
    cls.name = "Retired";
    cls.dataSize = 32;
    cls.constructor = [](REALobject o) {
        std::memset(reinterpret_cast<uint8_t*>(o) + kObjectDataOffset, 7, 32);
    };
    cls.destructor = [](REALobject o) {
        seenByDestructor = reinterpret_cast<uint8_t*>(o)[kObjectDataOffset + 31];
    };
    ObjectHandle* o = newObject(&cls, false);
    { HostRef drop = HostRef::adopt(o); }
    ASSERT_TRUE(o->dead());
    EXPECT_EQ(seenByDestructor, 7);
#if defined(__SANITIZE_ADDRESS__)
    EXPECT_EQ(__asan_region_is_poisoned(o->data(), cls.dataSize), o->data());
#else
    for (uint32_t i = 0; i < cls.dataSize; ++i) EXPECT_EQ(o->data()[i], kDeadInstanceByte) << i;
#endif
}

// A result of another kind than declared would be misused by the runtime, and a second exception
// raised in one call would replace the first unseen: both are the plugin's faults.
TEST_F(Accounting, ResultsOfAnotherKindAndSecondRaisesAreReported) {
    static REALstring made = nullptr;
    void* (*answersString)() = []() -> void* {
        made = service<REALBuildStringProc>("REALBuildString")("x", 1);
        return made;
    };
    auto decl = parseDeclaration("Made() as memoryblock", nullptr);
    ASSERT_TRUE(decl);
    std::vector<Arg> none;
    EXPECT_EQ(callDeclared(reinterpret_cast<void*>(answersString), *decl, nullptr, none).handle.get(),
              nullptr);
    auto errors = takeAccountingErrors();
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].find("wrong kind of handle (string)"), std::string::npos) << errors[0];
    service<REALUnlockStringProc>("REALUnlockString")(made);

    auto newInstance = service<REALobject (*)(const char*)>("PluginNewInstance");
    auto raise = service<void (*)(REALobject)>("RuntimeRaiseException");
    auto unlockObject = service<REALUnlockObjectProc>("REALUnlockObject");
    REALobject first = newInstance("NilObjectException");
    REALobject second = newInstance("OutOfMemoryException");
    raise(first);
    EXPECT_TRUE(takeAccountingErrors().empty());
    raise(second);
    errors = takeAccountingErrors();
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].find("OutOfMemoryException raised while NilObjectException is pending"),
              std::string::npos)
        << errors[0];
    unlockObject(first);
    unlockObject(second);
    takeRaisedException();
}

// Offsets a plugin passes may be anything: "to the edge" from INT32_MIN draws nothing, and a
// draw of INT32_MAX columns, almost all of them to the left of the picture, scales into the few
// that land.
TEST_F(Accounting, ExtremeDrawOffsetsDrawOnlyWhatLands) {
    HostRef source(makeHandle<PictureHandle>(5, 1, 32, PictureBackend::PixelRecord));
    auto* src = source.as<PictureHandle>();
    for (int32_t x = 0; x < 5; ++x) src->setPixel(x, 0, 0x010101u * uint32_t(x + 1));
    HostRef target(makeHandle<PictureHandle>(6, 1, 32, PictureBackend::PixelRecord));
    auto* dst = target.as<PictureHandle>();
    drawPicture(dst, src, 0, 0, 4, 1, INT32_MIN, 0, -10000, -10000);
    for (int32_t x = 0; x < 6; ++x) EXPECT_EQ(dst->pixel(x, 0), 0u) << x;
    drawPicture(dst, src, -(INT32_MAX - 10), 0, INT32_MAX, 1, 0, 0, 5, 1);
    for (int32_t x = 0; x < 6; ++x) EXPECT_EQ(dst->pixel(x, 0), 0x050505u) << x;
}

}  // namespace
}  // namespace tqvhost::test
