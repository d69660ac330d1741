// Plain and relocatable memory: size limits and growth.
#include "bridge/memory.h"

#include <cstring>

#include "plugin_test_host.h"

namespace {

constexpr int64_t kMiB = 1048576;

TEST(ClearMemory, SizeLimits) {
    EXPECT_EQ(tqv::AllocateClearMemory(0), nullptr);
    EXPECT_EQ(tqv::AllocateClearMemory(-1), nullptr);
    EXPECT_EQ(tqv::AllocateClearMemory(2147483648LL), nullptr);
    auto* p = static_cast<unsigned char*>(tqv::AllocateClearMemory(16));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p[15], 0);
    std::memset(p, 7, 16);
    tqv::ClearMemory(p, 16);
    EXPECT_EQ(p[0], 0);
    tqv::ClearMemory(nullptr, 16);
    tqv::FreeMemoryNow(p);
    tqv::FreeMemoryNow(nullptr);
}

TEST(RelocatableHandle, AllocationLimits) {
    EXPECT_EQ(tqv::allocateHandle(-1), nullptr);
    EXPECT_EQ(tqv::allocateHandle(2147483648LL), nullptr);
    tqv::RelocatableHandle empty = tqv::allocateHandle(0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(tqv::getHandleSize(empty), 0);
    EXPECT_NE(tqv::lockHandle(empty), nullptr);
    tqv::unlockHandle(empty);
    tqv::freeHandle(empty);
    EXPECT_EQ(tqv::getHandleSize(nullptr), 0);
    EXPECT_EQ(tqv::lockHandle(nullptr), nullptr);
}

// The output stream grows in 1 MiB steps: every step must keep the bytes written so far.
TEST(RelocatableHandle, GrowsInStepsKeepingItsBytes) {
    tqv::RelocatableHandle h = tqv::allocateHandle(kMiB);
    ASSERT_NE(h, nullptr);
    for (int64_t size = 2 * kMiB; size <= 64 * kMiB; size += kMiB) {
        auto* bytes = static_cast<unsigned char*>(tqv::lockHandle(h));
        bytes[size - kMiB - 1] = static_cast<unsigned char>(size / kMiB);
        tqv::unlockHandle(h);
        ASSERT_EQ(tqv::resizeHandle(h, size), h);
        ASSERT_EQ(tqv::getHandleSize(h), size);
    }
    auto* bytes = static_cast<unsigned char*>(tqv::lockHandle(h));
    for (int64_t size = 2 * kMiB; size <= 64 * kMiB; size += kMiB) {
        ASSERT_EQ(bytes[size - kMiB - 1], static_cast<unsigned char>(size / kMiB));
    }
    EXPECT_EQ(bytes[64 * kMiB - 1], 0) << "grown bytes read as zero";
    tqv::unlockHandle(h);
    tqv::freeHandle(h);
}

TEST(RelocatableHandle, ShrinkThenGrowReadsZero) {
    tqv::RelocatableHandle h = tqv::allocateHandle(100);
    auto* bytes = static_cast<unsigned char*>(tqv::lockHandle(h));
    std::memset(bytes, 0xAA, 100);
    tqv::unlockHandle(h);
    ASSERT_EQ(tqv::resizeHandle(h, 10), h);
    ASSERT_EQ(tqv::resizeHandle(h, 100), h);
    bytes = static_cast<unsigned char*>(tqv::lockHandle(h));
    EXPECT_EQ(bytes[9], 0xAA);
    EXPECT_EQ(bytes[10], 0);
    tqv::unlockHandle(h);
    tqv::freeHandle(h);
}

// A locked handle must not move: it grows in place or keeps its size.
TEST(RelocatableHandle, LockedHandleDoesNotMove) {
    tqv::RelocatableHandle h = tqv::allocateHandle(4096);
    void* pinned = tqv::lockHandle(h);
    for (int step = 1; step <= 16; ++step) {
        tqv::resizeHandle(h, step * kMiB);
        EXPECT_EQ(tqv::lockHandle(h), pinned);
        tqv::unlockHandle(h);
    }
    tqv::unlockHandle(h);
    tqv::freeHandle(h);
}

TEST(RelocatableHandle, ResizeOutOfRangeDisposesOfTheHandle) {
    EXPECT_EQ(tqv::resizeHandle(tqv::allocateHandle(10), 2147483633LL), nullptr);
    EXPECT_EQ(tqv::resizeHandle(tqv::allocateHandle(10), -1), nullptr);
    tqv::RelocatableHandle h = tqv::allocateHandle(10);
    EXPECT_EQ(tqv::resizeHandle(h, 2147483632LL), h);  // in range: same handle, size as memory allows
    tqv::freeHandle(h);
}

}  // namespace
