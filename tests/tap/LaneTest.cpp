#include "LaneRig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

#if defined(CORVANE_SANITIZED)
constexpr double kHourSeconds = 90;  // the sanitizers' hour, at their speed
#else
constexpr double kHourSeconds = 3600;
#endif
constexpr double kToneHz = 375;  // half a period is 64 frames of 48 kHz: more than any error looked for
constexpr size_t kWindow = 512;  // of a fit

/// Counts from 1, so that no frame of it is silent.
void Counter(double, double, uint64_t frame, std::span<float> samples)
{
    for (float& sample : samples) sample = float(++frame % support::kCounterModulus) / support::kCounterModulus;
}
void Tone(double start, double step, uint64_t, std::span<float> samples)
{
    FillSine(start, step, kToneHz, samples);
}

/// Largest errors of phase and noise over the windows of `output` from `fromSeconds` on.
struct Worst {
    double mLateFrames = 0;  // against the moment that a frame stands for
    double mStepFrames = 0;  // from one window to the next
    double mNoiseDB = -1000;
    double mLastFrames = NAN;

    void Take(std::span<const float> window, uint64_t frame, double tapHz)
    {
        const auto fit = support::FitSine(window, kToneHz, tapHz);
        const double late = LateSeconds(fit, frame, kToneHz, tapHz) * tapHz;
        mLateFrames = std::max(mLateFrames, std::abs(late));
        if (!std::isnan(mLastFrames))
            mStepFrames = std::max(mStepFrames, std::abs(std::remainder(late - mLastFrames, tapHz / kToneHz)));
        mNoiseDB = std::max(mNoiseDB, fit.mResidualDB);
        mLastFrames = late;
    }
};
Worst Judge(const std::vector<float>& output, double tapHz, double fromSeconds)
{
    Worst worst;
    for (size_t i = size_t(fromSeconds * tapHz); i + kWindow <= output.size(); i += kWindow)
        worst.Take({&output[i], kWindow}, i, tapHz);
    return worst;
}

}  // namespace

// Stamps of a driver that wakes by a timer: each period cut to whole nanoseconds, as the servers' null sinks do.
TEST(Lane, EqualClocksPassBitExactAndFramesComeOutAtTheirStampPlusLatency)
{
    for (const uint32_t rate : {48000u, 44100u})
        for (const uint32_t quantum : {1024u, 256u, 8192u}) {
            LaneRig rig(rate);
            rig.mDevice.mRateHz = rate;
            rig.mDevice.mQuantum = quantum;
            const uint64_t first = uint64_t(rig.mDevice.mNanos);
            uint64_t cycle = 0;
            rig.mStampOf = [&](double) { return first + cycle++ * (quantum * 1'000'000'000ull / rate); };
            rig.mSignal = Counter;
            rig.Play(90);

            const auto report = support::CheckCounter(rig.mOutput);
            const double wanted = double(rig.mSchedule.FramesBy(first + LaneRig::kLatency));
            EXPECT_NEAR(double(report.mLeadingSilence), wanted, 1.0) << rate << " " << quantum;
            EXPECT_EQ(report.mBreaks, 0u) << rate << " " << quantum << " at " << report.mFirstBreak;
            EXPECT_EQ(rig.mLane.DroppedFrames() + rig.mLane.StarvedFrames(), 0u);
        }
}

TEST(Lane, QuantumChangesCostNoFrame)
{
    LaneRig rig;
    rig.mSignal = Counter;
    for (const uint32_t quantum : {1024u, 32u, 2048u, 333u, 256u, 1024u}) {
        rig.mDevice.mQuantum = quantum;
        rig.Play(2);
    }
    EXPECT_EQ(support::CheckCounter(rig.mOutput).mBreaks, 0u);
}

// A simulated hour of a crystal that is off, whose driver wakes late at random. Until the rate is known nothing
// is done about it; a minute is enough to know it and to pay back what came together.
TEST(Lane, SoundStaysAtItsMomentForAnHourWhateverTheCrystal)
{
    for (const double ppm : {-300.0, 300.0, 2.5}) {
        LaneRig rig;
        rig.mDevice.mScalar = 1 + ppm * 1e-6;
        rig.mSignal = Tone;
        std::mt19937 random(5);
        std::exponential_distribution<double> late(1 / 50e3);
        rig.mStampOf = [&](double nanos) { return uint64_t(nanos + std::min(late(random), 2e6)); };
        Worst worst;
        std::vector<float> window;
        rig.mOnBlock = [&](uint64_t frame, const std::vector<float>& block) {
            if (frame < 60 * rig.mTapHz || frame / kWindow % 20 != 0) return window.clear();
            window.insert(window.end(), block.begin(), block.end());
            if (window.size() == kWindow) worst.Take(window, frame + block.size() - kWindow, rig.mTapHz);
        };
        rig.Play(kHourSeconds);
        EXPECT_LT(worst.mLateFrames, 1) << ppm;
        EXPECT_LT(worst.mNoiseDB, -110) << ppm;
        EXPECT_EQ(rig.mLane.DroppedFrames() + rig.mLane.StarvedFrames(), 0u) << ppm;
    }
}

TEST(Lane, AnotherSessionRateIsConvertedInPlace)
{
    for (const uint32_t rate : {44100u, 96000u, 16000u}) {
        LaneRig rig(rate);
        rig.mSignal = Tone;
        rig.Play(10);
        const Worst worst = Judge(rig.mOutput, rate, 1);
        EXPECT_LT(worst.mLateFrames, 0.6) << rate;
        EXPECT_LT(worst.mNoiseDB, -105) << rate;
    }
}

TEST(Lane, AGapInPositionsIsThatMuchSilenceAndNothingElse)
{
    LaneRig rig;
    rig.mSignal = Counter;
    rig.Play(5);
    rig.Miss(300);
    rig.Play(5);
    EXPECT_EQ(rig.mLane.MissedFrames(), 300u);
    const auto start = std::ranges::find_if(rig.mOutput, [](float sample) { return sample != 0; });
    const auto silence = std::search_n(start, rig.mOutput.end(), 300, 0.0f);
    ASSERT_NE(silence, rig.mOutput.end());
    EXPECT_NE(silence[300], 0);
    EXPECT_NE(silence[-1], 0);
    rig.mOutput.erase(silence, silence + 300);
    EXPECT_EQ(support::CheckCounter(rig.mOutput).mBreaks, 0u);
}

TEST(Lane, ACycleThatALateServerDeliversUnderTheNextStampIsPutBack)
{
    LaneRig rig;
    rig.mSignal = Counter;
    rig.Play(0.5);
    rig.DeliverUnderTheNextStamp();
    rig.Play(5);
    EXPECT_EQ(support::CheckCounter(rig.mOutput).mBreaks, 0u);
    EXPECT_EQ(rig.mLane.MissedFrames(), 0u);
}

TEST(Lane, TwoCyclesUnderOneStampLoseNoFrameEvenWhenTheSecondIsLate)
{
    LaneRig rig;
    rig.mSignal = Counter;
    rig.Play(0.5);
    rig.DeliverUnderTheNextStamp();
    rig.mPlaying = false;
    rig.Play(0.06);
    rig.mPlaying = true;
    rig.Play(0.5);
    std::vector<float> heard = rig.mOutput;
    std::erase(heard, 0.0f);
    ASSERT_GT(heard.size(), 40000u);
    EXPECT_NEAR(double(heard.back() - heard.front()) * support::kCounterModulus, double(heard.size()), 64);
}

TEST(Lane, AnotherDriverLosesNoFrameAndItsPhaseIsPaidBackInaudibly)
{
    LaneRig rig;
    rig.mSignal = Tone;
    rig.Play(10);
    // The same frames go on under another driver, whose stamps say they happen 3 ms earlier.
    rig.mDevice.mClockID = 2;
    rig.mDevice.mPosition = -5'000'000;
    rig.mStampOf = [](double nanos) { return uint64_t(nanos - 3e6); };
    rig.Play(20);
    const Worst during = Judge(rig.mOutput, 48000, 1);
    EXPECT_LT(during.mStepFrames, 500e-6 * kWindow * 1.05);
    EXPECT_LT(during.mNoiseDB, -45);  // a rate that bends by 500 ppm within a window is no noise, but no sine either

    // In the end a sound comes 3 ms earlier, as its stamp says: 144 frames.
    const Worst end = Judge(rig.mOutput, 48000, 28);
    EXPECT_NEAR(std::remainder(end.mLastFrames + 144, 48000 / kToneHz), 0, 1);
    EXPECT_LT(end.mStepFrames, 0.01);
}

TEST(Lane, ANominalRateThatChangesCostsNoFrameAndShiftsNothing)
{
    LaneRig rig;
    rig.mSignal = Tone;
    rig.Play(5);
    for (const uint32_t rate : {44100u, 96000u, 48000u}) {
        rig.mDevice.mRateHz = rate;
        rig.Play(5);
    }
    const Worst worst = Judge(rig.mOutput, 48000, 1);
    EXPECT_LT(worst.mLateFrames, 0.2);
    EXPECT_LT(worst.mNoiseDB, -40);  // one filter's edge beside another's, for 32 frames
    EXPECT_EQ(rig.mLane.DroppedFrames() + rig.mLane.StarvedFrames(), 0u);
}

TEST(Lane, SilenceWhileNothingComesThenAtItsStampAgain)
{
    LaneRig rig;
    rig.mSignal = Tone;
    rig.Play(3);
    rig.mPlaying = false;
    rig.Play(1);
    rig.Miss(48000);
    rig.mPlaying = true;
    rig.mDevice.mPosition = 12;  // a device that was taken away counts from anywhere
    const size_t back = rig.mOutput.size();
    rig.Play(3);
    EXPECT_TRUE(std::all_of(&rig.mOutput[back - 24000], &rig.mOutput[back], [](float s) { return s == 0; }));
    EXPECT_LT(Judge(rig.mOutput, 48000, double(back) / 48000 + 0.2).mLateFrames, 0.6);
    EXPECT_EQ(rig.mLane.StarvedFrames(), 0u) << "nobody was late";
}

TEST(Lane, ARestIsAsLongAsTheHostClockSaysWhateverTheDriverCounted)
{
    for (const int64_t counted : {0, 1024, 1500}) {
        LaneRig rig;
        rig.mSignal = Tone;
        rig.Play(3);
        rig.Miss(1500);
        rig.mDevice.mPosition += counted - 1500;
        rig.mResumes = true;
        const size_t back = rig.mOutput.size();
        rig.Play(3);
        EXPECT_LT(Judge(rig.mOutput, 48000, double(back) / 48000 + 0.2).mLateFrames, 0.6) << counted;
        EXPECT_EQ(rig.mLane.StarvedFrames() + rig.mLane.MissedFrames(), 0u) << counted;
    }
}

TEST(Lane, ALateServerCostsSilenceButNoFrame)
{
    LaneRig rig;
    rig.mSignal = Counter;
    rig.Play(3);
    rig.mLateNanos = 150'000'000;
    rig.Play(0.5);
    rig.mLateNanos = 0;
    rig.Play(0.1);
    const auto start = std::ranges::find_if(rig.mOutput, [](float sample) { return sample != 0; });
    const auto silence = std::search_n(start, rig.mOutput.end(), 200, 0.0f);
    ASSERT_NE(silence, rig.mOutput.end());
    const auto sound = std::find_if(silence, rig.mOutput.end(), [](float sample) { return sample != 0; });
    // Off the edges, where a moving ratio makes the filter ring: the frame after the last one comes next.
    const double last = double(*(silence - 1)) * support::kCounterModulus;
    EXPECT_NEAR(double(sound[256]) * support::kCounterModulus, last + 1 + 256, 34);
    EXPECT_GT(rig.mLane.StarvedFrames(), 0u);
}

TEST(Lane, WhatTheQueueCannotHoldIsCountedAndSkippingBlocksKeepsThePhase)
{
    LaneRig rig;
    rig.mSignal = Tone;
    rig.Play(2);
    // The pacer stands still for ten seconds: the device plays on, the queue runs over.
    const uint64_t before = rig.mFrames;
    rig.mPlaying = true;
    const uint64_t skipped = 10 * 48000 / tap::kBlockFrames * tap::kBlockFrames;
    rig.mFrames += skipped;
    rig.mLane.SkipBlocks();
    rig.TakeBlock();
    EXPECT_GT(rig.mLane.DroppedFrames(), 48000u);
    rig.mOutput.resize(before + skipped + tap::kBlockFrames);
    rig.Play(3);
    EXPECT_LT(Judge(rig.mOutput, 48000, 12.5).mLateFrames, 0.6);
}
