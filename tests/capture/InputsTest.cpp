// Buffered and converted inputs over a scripted source.
#include "FakeSource.h"
#include "capture/OSLAudio_ConvertedInputCapture.h"

#include <memory>

namespace {

struct Rig {
    explicit Rig(double rateHz = 48000, UInt32 channels = 2) : mSource(new FakeSource(rateHz, channels))
    {
        mInput.Create(mSource);
        mInput.AllowRendering();
    }
    /// The frames from the head to the end of what the ring holds.
    UInt32 Readable()
    {
        UInt32 frames = 0;
        while (mInput.CheckFetch(frames + 1) == RingOK) ++frames;
        return frames;
    }
    OSStatus SetRate(double rateHz, UInt32 channels)
    {
        AudioStreamBasicDescription desc = FloatDesc(rateHz, channels, false);
        return mInput.SetOutputDesc(&desc);
    }
    OSStatus Render(Block& block, UInt32 frames)
    {
        UInt32 flags = 0;
        const AudioTimeStamp time{};
        return mInput.Render(&flags, &time, 0, frames, block.List());
    }

    FakeSource* mSource;
    OSLAudio_ConvertedInputCapture mInput;
};

TEST(BufferedInput, TheHeadIsPutAtAHostTimeAndRoundedUp)
{
    constexpr double kFrameNanos = 1e9 / 48000;
    struct {
        const char* mWhat;
        double mSampleTime;
        double mFramesLater;  // host time beyond the first stamp's
        bool mTranslates;
        double mSkip;
    } const cases[] = {
        {"the same buffer needs no clock", 1000, 0, false, 0},
        {"the same host time on another timeline does", 101'003, 0, true, 0},
        {"a whole number of frames later", 777, 480, true, 480},
        {"a fraction moves the head up", 777, 100.3, true, 101},
        {"a source that cannot tell is taken at its time 0", 777, 100.3, false, -1000},
    };
    for (const auto& at : cases) {
        SCOPED_TRACE(at.mWhat);
        Rig rig;
        rig.mSource->mHostZero = 0;
        rig.mSource->mTranslates = at.mTranslates;
        rig.mSource->Push(1000, 4800);
        AudioTimeStamp time{};
        time.mSampleTime = at.mSampleTime;
        time.mHostTime = rig.mInput.GetFirstInputTime().mHostTime + uint64_t(at.mFramesLater * kFrameNanos);
        EXPECT_EQ(rig.mInput.SynchronizeSkipSamples(&time), at.mSkip);
        if (at.mSkip < 0) continue;
        rig.mInput.Synchronize(&time);
        EXPECT_EQ(rig.Readable(), UInt32(4800 - at.mSkip));
    }
}

TEST(ConvertedInput, SkippingCountsTheSourcesFramesAndDropsAFraction)
{
    Rig rig(48000);
    ASSERT_EQ(rig.SetRate(44100, 2), 0);
    rig.mSource->Push(0, 4800);
    rig.mInput.SkipFrames(441);
    EXPECT_EQ(rig.Readable(), 4800u - 480);
    rig.mInput.SkipFrames(1);
    EXPECT_EQ(rig.Readable(), 4800u - 481);
    rig.mInput.OSLAudio_BufferedInputCapture::SkipFrames(100);
    EXPECT_EQ(rig.Readable(), 4800u - 581);
    rig.mSource->Push(4800, 480);
    EXPECT_EQ(rig.mInput.GetMissedFrames(), 0u);
    rig.mSource->Push(5290, 480);
    EXPECT_EQ(rig.mInput.GetMissedFrames(), 10u);
}

TEST(ConvertedInput, PullsFewerFramesOfASlowCrystalAndTakesNoScalarOfZero)
{
    struct {
        double mFirst, mThen;
        UInt32 mPulled;  // of 20 renders of 480 frames
    } const cases[] = {{1.0, 1.0, 9600}, {1.01, 1.01, 9504}, {0.99, 0.99, 9696}, {1.01, 0.0, 9504}, {0.0, 0.0, 9600}};
    for (const auto& at : cases) {
        SCOPED_TRACE(at.mFirst);
        Rig rig;
        ASSERT_EQ(rig.SetRate(48000, 2), 0);
        ASSERT_EQ(rig.mInput.Start(), 0);
        rig.mSource->Push(0, 20000);
        Block block(2, 480);
        for (int cycle = 0; cycle < 20; ++cycle) {
            rig.mSource->mRateScalar = cycle == 0 ? at.mFirst : at.mThen;
            ASSERT_EQ(rig.Render(block, 480), 0);
        }
        EXPECT_NEAR(20000.0 - rig.Readable(), at.mPulled, 4);  // the first block's speed is ramped
    }
}

TEST(ConvertedInput, TakesAMonoSourceThatCallsItselfInterleaved)
{
    Rig rig(48000, 1);
    ASSERT_EQ(rig.SetRate(48000, 1), 0);
    ASSERT_EQ(rig.mInput.Start(), 0);
    rig.mSource->Push(1, 4800);
    rig.mInput.SkipFrames(1);
    Block block(1, 1024);
    ASSERT_EQ(rig.Render(block, 1024), 0);
    double seconds = 0;
    ASSERT_EQ(rig.mInput.GetGraphLatency(&seconds), 0);
    const auto delay = size_t(seconds * 48000 + 0.5);
    EXPECT_EQ(block[0][delay - 1], 0);
    EXPECT_EQ(block[0][delay], SampleAt(1));  // bit exact where the rates are equal
    EXPECT_EQ(block[0][1023], SampleAt(1024 - double(delay)));
}

}  // namespace
