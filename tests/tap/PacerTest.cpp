#include "tap/Pacer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace {

constexpr uint64_t kStart = 1'000'000'000'000'007;
constexpr uint64_t kLatency = 20'000'000;
constexpr unsigned kChannels = 2;

/// A tap with two lanes and its regions, whose pacer is called by hand.
struct PacerTest : testing::Test {
    static constexpr tap::FixedRate kRate = (44100ull << 32) + 123456789;

    uint32_t Field(size_t offset) const
    {
        uint32_t value;
        std::memcpy(&value, reinterpret_cast<const char*>(mStatus.data()) + offset, sizeof value);
        return value;
    }
    /// Frames published since the beginning, which is pass 1, frame 0.
    uint64_t Published() const { return uint64_t(Field(72) - 1) * Field(20) + Field(76); }

    PacerTest()
    {
        for (uint32_t i = 0; i < 2; ++i)
            mLanes.Add(std::make_unique<tap::Lane>(mSchedule, kLatency, tap::StereoMix(kChannels), kChannels,
                                                   tap::LaneLog{&mRing, i}));
    }

    tap::Schedule mSchedule{kRate, kStart};
    std::vector<uint64_t> mAudio = std::vector<uint64_t>(tap::RingWriter::AudioBytes(kRate, kChannels) / 8);
    std::vector<uint64_t> mStatus = std::vector<uint64_t>(tap::kStatusBytes / 8);
    tap::RingWriter mRing{mAudio.data(), mStatus.data(), kRate, kChannels};
    tap::LaneTable mLanes;
    tap::Pacer mPacer{mSchedule, mRing, mLanes, kChannels};
};

}  // namespace

TEST_F(PacerTest, FramesPublishedFollowTheClockWhateverTheWakeUps)
{
    std::mt19937_64 random(3);
    uint64_t now = kStart;
    for (int i = 0; i < 20'000; ++i) {
        now += i % 97 == 0 ? random() % 900'000'000 : random() % 4'000'000;  // late by up to most of a ring
        mPacer.PublishDue(now);
        ASSERT_EQ(Published(), mSchedule.FramesBy(now) / tap::kBlockFrames * tap::kBlockFrames);
        ASSERT_GT(mPacer.NextDueNanos(), now);
        mPacer.PublishDue(mPacer.NextDueNanos() - 1);
        ASSERT_EQ(Published(), mSchedule.FramesBy(now) / tap::kBlockFrames * tap::kBlockFrames) << "never early";
    }
    EXPECT_GT(Field(88), 0u);
    EXPECT_EQ(Field(92), 0u);
}

TEST_F(PacerTest, AStallOfManyRingsIsCountedAndTheTimeStaysRight)
{
    for (const uint64_t stallSeconds : {1, 2, 3, 60, 86400}) {
        const uint64_t before = Published();
        const uint64_t now = mSchedule.TimeOf(before) + stallSeconds * 1'000'000'000 + 1;
        mPacer.PublishDue(now);
        ASSERT_EQ(Published(), mSchedule.FramesBy(now) / tap::kBlockFrames * tap::kBlockFrames);
    }
    const double passes = (1 + 2 + 3 + 60 + 86400) / (65536 / 44100.03);
    EXPECT_NEAR(Field(92), passes, 5);
}

TEST_F(PacerTest, LanesAreSummed)
{
    const std::vector<float> half(1024, 0.5f), quarter(1024, 0.25f);
    for (uint64_t cycle = 0; cycle < 30; ++cycle) {
        for (size_t i = 0; i < 2; ++i) {
            const tap::StereoMix::Channel channel[] = {
                {platform::machine::ChannelPosition::FrontLeft, half.data()},
                {platform::machine::ChannelPosition::FrontRight, quarter.data()}};
            mLanes.All()[i]->Render({.mHostNanos = kStart + cycle * 21'333'333,
                                     .mSampleTime = int64_t(cycle * 1024),
                                     .mRateHz = 48000,
                                     .mFrames = 1024,
                                     .mClockID = uint32_t(i),
                                     .mChannels = channel});
        }
        mPacer.PublishDue(kStart + cycle * 21'333'333);
    }
    float pair[2];
    const uint64_t frame = (Published() - 1) % Field(20);
    std::memcpy(pair, reinterpret_cast<const char*>(mAudio.data()) + frame * sizeof pair, sizeof pair);
    EXPECT_NEAR(pair[0], 1.0f, 1e-5);
    EXPECT_NEAR(pair[1], 0.5f, 1e-5);
}

// A server asks a stream that it moves for the same moments on both devices.
TEST_F(PacerTest, ALaneWhoseStreamsMovedIsHeardUntilAnotherTookOver)
{
    const std::vector<float> half(1024, 0.5f);
    const tap::StereoMix::Channel channel[] = {{platform::machine::ChannelPosition::FrontLeft, half.data()}};
    for (uint64_t cycle = 0; cycle < 30; ++cycle) {
        const uint64_t nanos = kStart + cycle * 21'333'333;
        if (cycle == 11) mLanes.All()[0]->SetLeft(nanos);
        for (size_t i = 0; i < 2; ++i)
            if (i == 0 ? cycle < 13 : cycle >= 10)
                mLanes.All()[i]->Render({.mHostNanos = nanos,
                                         .mSampleTime = int64_t(cycle * 1024),
                                         .mRateHz = 48000,
                                         .mFrames = 1024,
                                         .mClockID = uint32_t(i),
                                         .mChannels = channel});
        mPacer.PublishDue(nanos);
    }
    const auto* audio = reinterpret_cast<const float*>(mAudio.data());
    unsigned twice = 0, quiet = 0;
    for (uint64_t frame = 2000; frame < Published(); ++frame) {
        twice += audio[frame * kChannels] > 0.6f;
        quiet += audio[frame * kChannels] < 0.4f;
    }
    EXPECT_EQ(twice, 0u);
    EXPECT_LT(quiet, 64u) << "a filter's edge";
}
