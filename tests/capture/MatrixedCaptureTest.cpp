// The cycle over scripted sources: alignment, silence, counting, and the flags that go one way.
#include "FakeSource.h"
#include "capture/CVNMatrixedCapture.h"
#include "capture/Status.h"
#include "platform/audio/StampLatency.h"
#include "support/FakeMachine.h"

#include <memory>

namespace {

constexpr UInt32 kFrames = 512;
constexpr UInt32 kDelay = 512;  // of converter and varispeed, at 48,000 Hz

class MatrixedCapture : public testing::Test {
protected:
    MatrixedCapture() { SetRate(48000); }
    void SetRate(double rateHz)
    {
        AudioStreamBasicDescription desc{};
        mCapture.GetCaptureDesc(&desc);
        desc.mSampleRate = rateHz;
        mCapture.SetCaptureDesc(&desc);
    }
    FakeSource& Add(double rateHz = 48000, UInt32 channels = 2)
    {
        auto source = std::make_unique<FakeSource>(rateHz, channels);
        FakeSource& added = *source;
        EXPECT_EQ(mCapture.AddInput(std::move(source), channels), 0);
        return added;
    }
    /// Starts, and lets a first cycle open the gates.
    void Start()
    {
        ASSERT_EQ(mCapture.Initialize(), 0);
        ASSERT_EQ(mCapture.Resume(), 0);
        EXPECT_TRUE(Render().IsSilent());
    }
    Block Render(OSStatus expected = 0, UInt32 frames = kFrames)
    {
        Block block(2, frames, 0.5F);
        UInt32 flags = 0;
        const AudioTimeStamp time{};
        EXPECT_EQ(mCapture.Render(&flags, &time, 0, frames, block.List()), expected);
        return block;
    }
    /// Renders until the delay is over. @return the sample time of the next frame, as its sample tells: the sum of all
    /// inputs' sample times
    double NextSampleTime()
    {
        for (UInt32 delay = 0; delay < 2 * kDelay; delay += kFrames) Render();
        return double(Render()[0][0]) * (1 << 20);
    }
    uint32_t Behind() const { return mCapture.GetRenderCounts().mBehindCycles; }
    std::string Diagnostics()
    {
        testing::internal::CaptureStdout();
        mCapture.Dump_Diagnostics();
        std::fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }

    support::FakeMachine& mMachine = support::FakeMachine::Installed();
    CVNMatrixedCapture mCapture;
};

TEST_F(MatrixedCapture, IsSilentWhereThereIsNoGraphAndWhereThereAreNoSources)
{
    EXPECT_TRUE(Render().IsSilent());
    UInt32 channels = 0;
    EXPECT_EQ(mCapture.GetMixerInputChannelCount(&channels), kAudioUnitErr_Uninitialized);
    Start();
    for (int cycle = 0; cycle < 3; ++cycle) EXPECT_TRUE(Render().IsSilent());
    EXPECT_EQ(mCapture.GetRenderCounts().mWaitingCycles, 4u);
    EXPECT_EQ(mCapture.Uninitialize(), 0);
    EXPECT_TRUE(Render().IsSilent());
}

TEST_F(MatrixedCapture, OneInputIsHeardFromTheFirstFrameAfterTheGateOpened)
{
    FakeSource& source = Add();
    ASSERT_EQ(mCapture.Initialize(), 0);
    ASSERT_EQ(mCapture.Resume(), 0);
    source.Push(0, 4096);  // nobody has asked yet
    Render();
    source.Push(4096, 20000);
    Render();
    EXPECT_EQ(NextSampleTime(), 4096 + 3 * kFrames - kDelay);
    EXPECT_EQ(mCapture.GetAlignedHostTime(), source.mHostZero + uint64_t(4096 / 48000.0 * 1e9 + 0.5));
    uint64_t nanos = 0;
    ASSERT_EQ(mCapture.GetLatencyNanos(&nanos), 0);
    EXPECT_NEAR(double(nanos - platform::audio::StampLatencyNanos()), kDelay / 48000.0 * 1e9, 1);
}

TEST_F(MatrixedCapture, AllInputsBeginAtTheMomentAtWhichTheLastOneBegan)
{
    FakeSource& early = Add();
    FakeSource& late = Add();
    early.mHostZero = 1'000'000'007;
    late.mHostZero = 1'200'000'007 + 7'000;  // a third of a frame off
    Start();
    early.Push(100, 20000);
    EXPECT_TRUE(Render().IsSilent());
    EXPECT_FALSE(mCapture.GetInputStatus(1).mHasData);
    EXPECT_EQ(mCapture.GetInputStatus(1).mSilentFrames, 2 * kFrames);
    EXPECT_EQ(mCapture.GetInputStatus(0).mSilentFrames, 0u);
    late.Push(1000, 256);  // at 9600.336 + 1000 of the early one's
    EXPECT_TRUE(Render().IsSilent()) << "less than a cycle of it";
    EXPECT_EQ(mCapture.GetRenderCounts().mSilentCycles, 1u);
    late.Push(1256, 9000);
    const double both = NextSampleTime();
    const double delayed = 2 * kFrames - kDelay;
    EXPECT_NEAR(both, (10601 + delayed) + (1000 + delayed), 0.5);
    EXPECT_EQ(mCapture.GetInputStatus(1).mSilentFrames, 0u);
}

TEST_F(MatrixedCapture, WaitsForAHostTimeAndTakesTheEarlierOfTwoThatTie)
{
    FakeSource& first = Add();
    FakeSource& second = Add();
    Start();
    first.Push(0, 4096, 5000);
    second.Push(0, 2048, 0);
    AudioTimeStamp latest{};
    EXPECT_EQ(mCapture.GetLatestTimeStamp(&latest, true), nullptr);
    EXPECT_TRUE(Render().IsSilent());
    second.Push(2048, 2048, 5000);
    OSLAudio_ConvertedInputCapture* const reference = mCapture.GetLatestTimeStamp(&latest, true);
    ASSERT_NE(reference, nullptr);
    EXPECT_EQ(reference->GetSource(), &first);
    EXPECT_EQ(latest.mHostTime, 5000u);
}

TEST_F(MatrixedCapture, OneThatIsAheadSilencesTheMixMovesNothingAndIsNeverCounted)
{
    FakeSource& delivers = Add();
    FakeSource& stops = Add();
    Start();
    delivers.Push(0, 60000);
    stops.Push(0, 2048);
    for (int cycle = 0; cycle < 4; ++cycle) Render();
    for (int cycle = 0; cycle < 20; ++cycle) EXPECT_TRUE(Render().IsSilent());
    EXPECT_EQ(mCapture.GetRenderCounts().mSilentCycles, 20u);
    EXPECT_EQ(mCapture.GetInputStatus(1).mSilentFrames, 20 * kFrames);
    EXPECT_EQ(Behind(), 0u);
    stops.Push(2048, kFrames + 256);
    EXPECT_EQ(Render()[0][100], 2 * SampleAt(2048 - kDelay + 100));
    EXPECT_FALSE(Render(0, 256).IsSilent());
    EXPECT_TRUE(Render().IsSilent()) << "nothing is left of a longer cycle before the short one";
}

TEST_F(MatrixedCapture, AnInputAtAnotherRateThatRefusesThePullMovesAgainstNoOther)
{
    FakeSource& equal = Add(48000);
    FakeSource& faster = Add(96000);
    Start();
    equal.Push(0, 20000);
    faster.Push(0, 700);  // enough for the look, not for the pull of 1,024
    EXPECT_TRUE(Render().IsSilent());
    EXPECT_TRUE(Render().IsSilent());
    EXPECT_EQ(mCapture.GetRenderCounts().mSilentCycles, 2u);
    EXPECT_GT(mCapture.GetInputStatus(1).mSilentFrames, 0u);
    faster.Push(700, 40000);
    const double both = NextSampleTime();
    const double time = 2 * kFrames - kDelay;
    EXPECT_NEAR(both, time + 2 * time, 1);
}

TEST_F(MatrixedCapture, TheThirdBehindCycleBeginsAnewHoweverFarApart)
{
    FakeSource& source = Add();
    Start();
    source.Push(500'000, 100'000);
    Render();
    for (uint32_t behind = 1; behind <= 2; ++behind) {
        mCapture.AdjustReadTime(-300'000);
        EXPECT_TRUE(Render().IsSilent());
        EXPECT_EQ(Behind(), behind);
        mCapture.AdjustReadTime(300'000);
        for (int cycle = 0; cycle < 50; ++cycle) EXPECT_FALSE(Render().IsSilent());
        EXPECT_EQ(Behind(), behind);
    }
    mCapture.AdjustReadTime(-300'000);
    EXPECT_TRUE(Render().IsSilent());
    EXPECT_EQ(Behind(), 0u);
    EXPECT_FALSE(mCapture.GetInputStatus(0).mHasData);
    EXPECT_TRUE(Render().IsSilent()) << "it waits for what is new";
    source.Push(700'000, 20'000);
    EXPECT_EQ(NextSampleTime(), 700'000 + 2 * kFrames - kDelay);
}

TEST_F(MatrixedCapture, AnAlignmentOlderThanTheRingsTakesNewFirstStamps)
{
    FakeSource& rests = Add();
    FakeSource& delivers = Add();
    Start();
    rests.Push(0, 128);
    delivers.Push(0, 20'000);
    EXPECT_TRUE(Render().IsSilent());
    EXPECT_EQ(mCapture.GetInputStatus(0).mSilentFrames, 2 * kFrames);
    EXPECT_EQ(mCapture.GetInputStatus(1).mSilentFrames, 0u) << "noted though another refused before it";
    for (double time = 20'000; time < 200'000; time += 20'000) delivers.Push(time, 20'000);
    EXPECT_TRUE(Render().IsSilent());
    for (FakeSource* const source : {&rests, &delivers}) source->Push(200'000, 20'000);
    EXPECT_EQ(NextSampleTime(), 2 * (200'000 + 2 * kFrames - kDelay));
    EXPECT_EQ(Behind(), 0u);
}

TEST_F(MatrixedCapture, ANewAlignmentKeepsNothingOfTheOldInChainsAndMixer)
{
    FakeSource& equal = Add(48000);
    FakeSource& faster = Add(96000);
    Start();
    equal.Push(600'000, 20'000, 5000);
    faster.Push(600'000, 2 * 2 * kFrames + 600, 5000);  // enough for two pulls, and for the look at a third
    for (int cycle = 0; cycle < 3; ++cycle) Render();   // the mixer keeps what the equal one gave in the last
    mCapture.AdjustReadTime(-300'000);
    Render();
    Render();
    ASSERT_FALSE(mCapture.GetInputStatus(0).mHasData);
    for (FakeSource* const source : {&equal, &faster}) source->Push(700'000, 20'000, 6000);
    EXPECT_EQ(Render()[0][0], 0) << "the delay begins with silence";
    EXPECT_NE(Render()[0][0], 0);
}

TEST_F(MatrixedCapture, InputsBehindInOneCycleCountOnceEach)
{
    FakeSource& first = Add();
    FakeSource& second = Add();
    Start();
    first.Push(500'000, 100'000);
    second.Push(500'000, 100'000);
    Render();
    mCapture.AdjustReadTime(-300'000);
    Render();
    EXPECT_EQ(Behind(), 2u);
    Render();
    EXPECT_EQ(Behind(), 0u) << "the first input's third";
    EXPECT_FALSE(mCapture.GetInputStatus(1).mHasData);
}

TEST_F(MatrixedCapture, WhatFollowsAPauseIsAlignedAnew)
{
    FakeSource& source = Add();
    Start();
    source.Push(5'000, 20'000);
    Render();
    ASSERT_EQ(mCapture.Pause(), 0);
    ASSERT_EQ(mCapture.Resume(), 0);
    EXPECT_TRUE(Render().IsSilent());
    source.Push(100, 20'000);  // counts anew
    EXPECT_EQ(NextSampleTime(), 100 + 2 * kFrames - kDelay);
}

TEST_F(MatrixedCapture, SaysWhyAnInputCannotBeMixed)
{
    struct {
        double mMixRate, mRate;
        UInt32 mChannels;
        const char* mWhy;
    } const cases[] = {
        {48'000, 4800, 2, ""},
        {48'000, 4799, 2,
         "It runs at 4799 Hz and the mix at 48000 Hz. Below 4800 Hz no rate is converted: choose 4799 Hz for the mix."},
        {4799, 4799, 2, ""},
        {192'000, 12'000, 64, ""},
        {192'000, 11'025, 2,
         "It runs at 11025 Hz, too far from the 192000 Hz of the mix. Choose 4800 to 176400 Hz for the mix."},
        {8000, 192'000, 2,
         "It runs at 192000 Hz, too far from the 8000 Hz of the mix. Choose 12000 to 3072000 Hz for the mix."},
        {48'000, 48'000, 65, "It has 65 channels, and a mix takes at most 64 of one source. Take fewer."},
    };
    for (const auto& at : cases) {
        SetRate(at.mMixRate);
        Add(at.mRate, at.mChannels);
        EXPECT_EQ(mCapture.ExplainRefusal(0), at.mWhy);
        ASSERT_EQ(mCapture.Initialize(), 0);
        EXPECT_EQ(mCapture.Resume(), *at.mWhy ? kAudioUnitErr_FormatNotSupported : 0) << at.mRate;
        ASSERT_EQ(mCapture.Uninitialize(), 0);
    }
}

TEST_F(MatrixedCapture, LimitsTheMixToFullScale)
{
    FakeSource* sources[] = {&Add(), &Add(), &Add()};
    Start();
    for (FakeSource* const source : sources) source->Push(600'000, 4096);
    Render(0, 1024);
    const uint64_t before = mCapture.GetRenderCounts().mClippedSamples;
    EXPECT_EQ(Render()[1][0], 1.0F);
    EXPECT_EQ(mCapture.GetRenderCounts().mClippedSamples - before, 2 * kFrames);
}

TEST_F(MatrixedCapture, FlagsOfStartAndPauseGoOneWay)
{
    FakeSource& first = Add();
    FakeSource& second = Add();
    first.mMutable = true;
    second.mStartStatus = -7;
    EXPECT_FALSE(mCapture.IsSoftwareSourcesMuted());
    mCapture.SetSoftwareSourcesMuted(true);
    EXPECT_FALSE(first.mMuted) << "not before it runs";
    ASSERT_EQ(mCapture.Initialize(), 0);
    EXPECT_EQ(mCapture.Resume(), -7);
    EXPECT_TRUE(first.mStarted);
    EXPECT_TRUE(first.mMuted);
    EXPECT_TRUE(mCapture.IsSoftwareSourcesMuted());
    EXPECT_NE(Diagnostics().find("mRestarting: 0\nmIsPaused: 0\nmIsRunning: 0\n"), std::string::npos);
    second.mStartStatus = 0;
    EXPECT_EQ(mCapture.Resume(), 0);
    Render();
    for (FakeSource* const source : {&first, &second}) source->Push(0, 4096);
    Render();
    EXPECT_EQ(mCapture.Resume(), 0) << "which is a restart, since all is aligned";
    mCapture.SetSoftwareSourcesMuted(false);
    EXPECT_FALSE(first.mMuted);
    EXPECT_EQ(mCapture.Pause(), 0);
    EXPECT_EQ(mCapture.Uninitialize(), 0);
    EXPECT_TRUE(mCapture.IsSoftwareSourcesMuted()) << "where there is nothing to mute";
    const std::string text = Diagnostics();
    EXPECT_NE(text.find("mRestarting: 1\nmIsPaused: 1\nmIsRunning: 1\nend Perform_Diagnostics\n"), std::string::npos)
        << text;
    EXPECT_EQ(text.find("begin Perform_Diagnostics\nmCaptureDesc\nAudioStreamBasicDescription: "), 0u) << text;
}

TEST_F(MatrixedCapture, NoChannelOfASourceIsEverFoundInTheMixer)
{
    Add();
    ASSERT_EQ(mCapture.Initialize(), 0);
    UInt32 first = 77, count = 78;
    EXPECT_EQ(mCapture.GetChannelsForMixerSource(CFSTR("fake"), &first, &count), 0);
    EXPECT_EQ(first, 77u);
    EXPECT_EQ(count, 78u);
    EXPECT_EQ(mCapture.GetChannelsForMixerSource(CFSTR("other"), &first, &count), capture::kSourceNotFound);
    EXPECT_EQ(mCapture.SetMixerSourceVolume(CFSTR("other"), 0, 1), capture::kSourceNotFound);
    EXPECT_EQ(mCapture.SetMixerSourceVolume(CFSTR("fake"), 0, 0.25F), 0);
    EXPECT_EQ(mCapture.ConnectSourceChannel(CFSTR("fake"), 0, 1), 0);
    EXPECT_EQ(mCapture.DisconnectSourceChannel(CFSTR("fake"), 0), 0);
    EXPECT_FALSE(mCapture.IsSourceConnected(CFSTR("fake"), 0, 0)) << "though it is heard there";
    float volume = 0;
    EXPECT_EQ(mCapture.GetMixerInputVolume(0, &volume), 0);
    EXPECT_EQ(volume, 1.0F);
}

TEST_F(MatrixedCapture, DisconnectingAllClearsAsManyRowsAsTheLastBusHas)
{
    FakeSource& stereo = Add();
    FakeSource& mono = Add(48000, 1);
    Start();
    ASSERT_EQ(mCapture.DisconnectAllSources(), 0);
    stereo.Push(0, 20000);
    mono.Push(0, 20000);
    for (int cycle = 0; cycle < 30; ++cycle) Render();  // until the change is ramped
    const Block block = Render();
    EXPECT_EQ(block[0][9], block[1][9]) << "left of the first is gone, right and the mono one are left";
    EXPECT_NE(block[0][9], 0);
}

TEST_F(MatrixedCapture, AnotherRateWhileRunningGivesNothingUntilTheNextStart)
{
    FakeSource& source = Add();
    Start();
    source.Push(0, 20000);
    EXPECT_FALSE(Render(0, 1024).IsSilent());
    mCapture.UpdateOutputSampleRate(44100);
    const Block block = Render(kAudioUnitErr_Uninitialized);
    EXPECT_EQ(block[0][0], 0.5F) << "as it was";
    ASSERT_EQ(mCapture.Pause(), 0);
    ASSERT_EQ(mCapture.Uninitialize(), 0);
    AudioStreamBasicDescription desc{};
    mCapture.GetRenderDesc(&desc);
    EXPECT_EQ(desc.mSampleRate, 44100);
    FakeSource& next = Add(44100);
    Start();
    next.Push(0, 20000);
    EXPECT_FALSE(Render(0, 1024).IsSilent());
    EXPECT_NE(Diagnostics().find("mRenderCount: 2\n"), std::string::npos) << "counted in the second graph, too";
}

}  // namespace
