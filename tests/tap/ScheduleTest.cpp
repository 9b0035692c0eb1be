#include "tap/Schedule.h"

#include <gtest/gtest.h>

#include <random>

namespace {

__extension__ using Wide = unsigned __int128;

constexpr uint64_t kScheduleStart = 1'000'000'000'000'007;
constexpr uint64_t kDay = 86'400'000'000'000;
const tap::FixedRate kRates[] = {44100ull << 32,  (44100ull << 32) + (1ull << 31),
                                 48000ull << 32,  1000ull << 32,
                                 768000ull << 32, (11025ull << 32) + 1};

}  // namespace

TEST(Schedule, EveryFrameHasItsTimeForYears)
{
    std::mt19937_64 random(1);
    for (const tap::FixedRate rate : kRates) {
        const tap::Schedule schedule(rate, kScheduleStart);
        for (int i = 0; i < 2000; ++i) {
            const uint64_t frame = (random() % (1000 * kDay / 1'000'000'000)) * (rate >> 32) + random() % 768000;
            const uint64_t elapsed = schedule.TimeOf(frame) - kScheduleStart;
            // floor(frame * 10^9 / rate): not above the frame's time, and one more nanosecond would be.
            const Wide exact = Wide(frame) * 1'000'000'000 << 32;
            ASSERT_LE(Wide(elapsed) * rate, exact);
            ASSERT_GT(Wide(elapsed + 1) * rate, exact);
        }
    }
}

TEST(Schedule, FramesByIsTheExactInverseAtEveryEdge)
{
    for (const tap::FixedRate rate : kRates) {
        const tap::Schedule schedule(rate, kScheduleStart);
        for (const uint64_t days : {0, 1, 365})
            for (uint64_t i = 1; i < 3000; ++i) {
                const uint64_t frame = days * 86400 * (rate >> 32) + i;
                const uint64_t time = schedule.TimeOf(frame);
                ASSERT_EQ(schedule.FramesBy(time), frame);
                ASSERT_EQ(schedule.FramesBy(time - 1), frame - 1);
            }
        EXPECT_EQ(schedule.FramesBy(kScheduleStart - 1), 0u);
        EXPECT_EQ(schedule.FramesBy(0), 0u);
    }
}
