// Yield timing with a substituted clock: one DoYield per simulated tick.
#include "bridge/yield.h"

#include "bridge/services.h"
#include "platform/ticks.h"
#include "plugin_test_host.h"
#include "session/tiff_data.h"
#include "tqvhost/host.h"

namespace {

uint32_t gNow = 0;
uint32_t FakeClock() {
    return gNow;
}

class Yield : public testhost::HostTest {
  protected:
    void SetUp() override {
        HostTest::SetUp();
        tqv::SetTickSource(&FakeClock);
    }
    void TearDown() override {
        tqv::SetTickSource(nullptr);
        HostTest::TearDown();
    }
    // Runs a loop of `ticks` rows, one tick each, with the callers' guard; answers the yields.
    static int64_t Loop(tqv::TiffData& record, uint32_t start, int ticks) {
        const int64_t before = tqvhost::yields();
        for (int i = 0; i < ticks; ++i) {
            gNow = start + static_cast<uint32_t>(i);
            tqv::YieldToHost(nullptr, &record);
        }
        return tqvhost::yields() - before;
    }
};

TEST_F(Yield, ThirtyTicksYieldsAtMostTwiceASecond) {
    tqv::TiffData record{};
    record.yield.YieldTicks = 30;
    const int64_t yields = Loop(record, 1000, 60 * 10);
    EXPECT_GE(yields, 19);
    EXPECT_LE(yields, 20);
}

TEST_F(Yield, ZeroOrNegativeIntervalNeverYields) {
    tqv::TiffData record{};
    EXPECT_EQ(Loop(record, 0, 600), 0);
    record.yield.YieldTicks = -5;
    EXPECT_EQ(Loop(record, 0, 600), 0);
}

TEST_F(Yield, WrappedClockStillYields) {
    tqv::TiffData record{};
    record.yield.YieldTicks = 30;
    record.yield.lastYieldTick = 0xFFFFFFF0u;
    EXPECT_GE(Loop(record, 5, 10), 1);
}

}  // namespace
