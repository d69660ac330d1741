// Framework functions bound by name from <TQV_FRAMEWORKS_DIR>/N.framework/N.
#include "platform/frameworks.h"

#include <gtest/gtest.h>
#include <tqv/pixmap_framework.h>

#include <cstdlib>

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

}  // namespace
