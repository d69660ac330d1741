// Framework functions bound by name from <TQV_FRAMEWORKS_DIR>/N.framework/N.
#include "platform/frameworks.h"

#include <gtest/gtest.h>
#include <tqv/pixmap_framework.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tqvhost/host.h"
#include "tqvhost/picture.h"

namespace {

TEST(Frameworks, FindsFunctionsByExactNameAndRetriesAfterFailure) {
    const char* folder = std::getenv("TQV_TEST_FRAMEWORKS");
    if (folder == nullptr) GTEST_SKIP() << "no stand-in framework built";
    unsetenv(TQV_FRAMEWORKS_ENV);
    EXPECT_EQ(tqv::LoadFrameworkFunction("ApplicationServices", "GetPixDepth"), nullptr) << "no folder yet";
    setenv(TQV_FRAMEWORKS_ENV, folder, 1);
    void* depth = tqv::LoadFrameworkFunction("ApplicationServices", "GetPixDepth");
    EXPECT_NE(depth, nullptr) << "found once the folder is known";
    EXPECT_EQ(tqv::LoadFrameworkFunction("ApplicationServices", "GetPixDepth"), depth);
    EXPECT_EQ(tqv::LoadFrameworkFunction("ApplicationServices", "getpixdepth"), nullptr);
    EXPECT_EQ(tqv::LoadFrameworkFunction("NoSuchFramework", "GetPixDepth"), nullptr);
    EXPECT_EQ(tqv::LoadFrameworkFunction(nullptr, "GetPixDepth"), nullptr);
}

// The stand-in's pixel locks are host references like any other: one left locked, or one
// unlocked that was not locked, is reported when the picture goes.
TEST(Frameworks, PixelLocksAreAccountedForWhenAPictureGoes) {
    const char* folder = std::getenv("TQV_TEST_FRAMEWORKS");
    if (folder == nullptr) GTEST_SKIP() << "no stand-in framework built";
    setenv(TQV_FRAMEWORKS_ENV, folder, 1);
    auto lock =
        reinterpret_cast<LockPixelsProc>(tqv::LoadFrameworkFunction("ApplicationServices", "LockPixels"));
    auto unlock =
        reinterpret_cast<UnlockPixelsProc>(tqv::LoadFrameworkFunction("ApplicationServices", "UnlockPixels"));
    auto pixMapOf = reinterpret_cast<PixMapHandle (*)(GWorldPtr)>(
        tqv::LoadFrameworkFunction("ApplicationServices", "GetGWorldPixMap"));
    ASSERT_TRUE(lock && unlock && pixMapOf);
    tqvhost::takeAccountingErrors();
    auto errorsAfter = [&](int locks, int unlocks) {
        tqvhost::HostRef picture(
            tqvhost::makeHandle<tqvhost::PictureHandle>(2, 2, 32, tqvhost::PictureBackend::PixMap));
        REALpictureDescription d{};
        picture.as<tqvhost::PictureHandle>()->describe(&d);
        PixMapHandle map = pixMapOf(static_cast<GWorldPtr>(d.pictureData));
        for (int i = 0; i < locks; ++i) EXPECT_TRUE(lock(map));
        EXPECT_EQ(tqvhost::live().byKind["pixels"], locks);
        for (int i = 0; i < unlocks; ++i) unlock(map);
        picture = tqvhost::HostRef();
        return tqvhost::takeAccountingErrors();
    };
    EXPECT_TRUE(errorsAfter(2, 2).empty());
    std::vector<std::string> errors = errorsAfter(2, 1);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].find("1 pixel lock(s)"), std::string::npos) << errors[0];
    errors = errorsAfter(0, 1);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].find("when they were not locked"), std::string::npos) << errors[0];
}

}  // namespace
