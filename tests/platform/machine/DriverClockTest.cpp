#include "platform/machine/linux/pipewire/DriverClock.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using platform::machine::pipewire::CycleMoment;
using platform::machine::pipewire::DriverClock;

constexpr uint64_t kSecond = 1'000'000'000, kNow = 100 * kSecond;
constexpr uint64_t kFrames = 10;

}  // namespace

TEST(DriverClock, AClockThatIsNotKeptGoesOnAndAKeptOneIsLeftAlone)
{
    struct Cycle {
        uint64_t mLater;  // than kNow, when it comes
        CycleMoment mStated, mTaken;
        uint32_t mDriver = 1;
    };
    const std::pair<const char*, std::vector<Cycle>> drivers[] = {
        {"kept, and its second cycle delivered twice",
         {{3, {kNow, 50}, {kNow, 50}}, {5, {kNow + 4, 60}, {kNow + 4, 60}}, {6, {kNow + 4, 60}, {kNow + 4, 60}}}},
        {"kept, with a gap and a count that begins anew",
         {{0, {kNow, 50}, {kNow, 50}}, {1, {kNow + 1, 90}, {kNow + 1, 90}}, {2, {kNow + 2, 0}, {kNow + 2, 0}}}},
        {"empty", {{0, {}, {kNow, 0}}, {4, {}, {kNow + 4, 10}}, {8, {}, {kNow + 8, 20}}, {9, {}, {kNow + 9, 0}, 2}}},
        {"without a stamp", {{0, {0, 7}, {kNow, 7}}, {4, {0, 17}, {kNow + 4, 17}}}},
        {"without a position", {{0, {kNow, 7}, {kNow, 7}}, {4, {kNow + 4, 7}, {kNow + 4, 17}}}},
        {"of another clock",
         {{0, {kNow + kSecond, 0}, {kNow + kSecond, 0}},
          {0, {kNow + kSecond + 1, 10}, {kNow, 10}},
          {0, {kNow - kSecond, 20}, {kNow - kSecond, 20}},
          {0, {kNow - kSecond - 1, 30}, {kNow, 30}}}},
    };
    for (const auto& [name, cycles] : drivers) {
        DriverClock clock;
        for (const Cycle& cycle : cycles)
            EXPECT_EQ(clock.Take(cycle.mDriver, cycle.mStated, kFrames, kNow + cycle.mLater), cycle.mTaken) << name;
    }
}
