#include "platform/audio/units/UnitRig.h"
#include "platform/foundation/CFDictionary.h"
#include "support/FakeMachine.h"

using namespace support;
using platform::machine::CaptureCycle;
using P = platform::machine::ChannelPosition;

namespace {

constexpr UInt32 kElement = 1, kMap = kAudioOutputUnitProperty_ChannelMap;

/// An input device of three channels at 48 kHz, and a client that takes two of it.
class InputUnit : public testing::Test {
protected:
    InputUnit()
    {
        mMachine.mServer.mSnapshot.mInputs = {
            {80, "desk", "Desk", 48000, {P::FrontLeft, P::FrontRight, P::Auxiliary0}}};
        mMachine.mServer.mSnapshot.mDefaultInput = 80;
        mBlock.reserve(1 << 18);
        mStamps.reserve(1 << 10);
        EXPECT_EQ(Set(mUnit, kAudioOutputUnitProperty_EnableIO, kInput, kElement, UInt32{1}), 0);
        EXPECT_EQ(Set(mUnit, kAudioOutputUnitProperty_EnableIO, kOutput, 0, UInt32{0}), 0);
        EXPECT_EQ(Set(mUnit, kAudioOutputUnitProperty_StartTimestampsAtZero, kGlobal, 0, UInt32{0}), 0);
        const AURenderCallbackStruct callback{OnBuffer, this};
        EXPECT_EQ(Set(mUnit, kAudioOutputUnitProperty_SetInputCallback, kGlobal, 0, callback), 0);
    }

    void Choose(double clientHz)
    {
        AudioDeviceID desk = 0;
        UInt32 size = sizeof desk;
        EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyDefaultInputDevice, &size, &desk), 0);
        EXPECT_EQ(Set(mUnit, kAudioOutputUnitProperty_CurrentDevice, kGlobal, 0, desk), 0);
        EXPECT_EQ(SetFormat(mUnit, kOutput, kElement, FloatFormat(clientHz, 2, kInterleaved)), 0);
    }
    void Start()
    {
        ASSERT_EQ(AudioUnitInitialize(mUnit), 0);
        ASSERT_EQ(AudioOutputUnitStart(mUnit), 0);
    }

    /// Brings frames that count from `first`, in a hundred thousands of its own each channel.
    size_t Deliver(uint32_t first, uint32_t frames)
    {
        std::vector<float> samples[3];
        for (size_t i = 0; i < 3 * frames; ++i)
            samples[i / frames].push_back(float(i / frames * 100000 + first + i % frames));
        const CaptureCycle::Channel channels[] = {
            {P::FrontLeft, samples[0].data()}, {P::FrontRight, samples[1].data()}, {P::Auxiliary0, samples[2].data()}};
        const uint64_t nanos = 1'000'000'000 + uint64_t(first) * 1'000'000 / 48;
        return mMachine.mServer.Deliver("desk", CaptureCycle{nanos, first, 1.0, 48000, frames, 1, channels});
    }

    static OSStatus OnBuffer(void* me, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32 bus,
                             UInt32 frames, AudioBufferList* none)
    {
        auto& test = *static_cast<InputUnit*>(me);
        EXPECT_EQ(none, nullptr);
        EXPECT_EQ(bus, kElement);
        test.mStamps.push_back(*time);
        const size_t start = test.mBlock.size();
        test.mBlock.resize(start + 2 * (frames + 1));
        AudioBufferList list{1, {{2, 8 * (frames + 1), test.mBlock.data() + start}}};
        EXPECT_EQ(AudioUnitRender(test.mUnit, flags, time, kElement, frames + 1, &list),
                  kAudioUnitErr_TooManyFramesToProcess);
        EXPECT_EQ(AudioUnitRender(test.mUnit, flags, time, kElement, frames, &list), 0);
        test.mBlock.resize(start + 2 * frames);
        return -1;  // which is nobody's business but the client's
    }

    FakeMachine& mMachine = FakeMachine::Installed();
    const OwnedUnit mOwned = Open("ahal");
    const AudioUnit mUnit = mOwned.get();
    std::vector<float> mBlock;  // what came, interleaved; never moved by growing
    std::vector<AudioTimeStamp> mStamps;
};

}  // namespace

TEST_F(InputUnit, GivesTheChannelsOfItsMapWhileItCallsBack)
{
    using Map = std::vector<SInt32>;
    const std::pair<Map, std::vector<float>> cases[] = {
        {{2, 0}, {200063, 63}}, {{1, 1}, {100063, 100063}}, {{-1, 2}, {0, 200063}}, {{3, 1}, {0, 100063}}};
    Choose(48000);
    Map before{0, 1};  // where nobody said anything
    for (const auto& [map, last] : cases) {
        Map read(2);
        UInt32 size = 8;
        EXPECT_EQ(AudioUnitGetProperty(mUnit, kMap, kOutput, kElement, read.data(), &size), 0);
        EXPECT_EQ(read, before);
        before = map;
        EXPECT_EQ(AudioUnitSetProperty(mUnit, kMap, kInput, kElement, map.data(), size), 0);
        Start();
        ASSERT_EQ(Deliver(0, 64), 1u);
        EXPECT_EQ(std::vector(mBlock.end() - 2, mBlock.end()), last);
        EXPECT_EQ(AudioUnitUninitialize(mUnit), 0);
    }
}

TEST_F(InputUnit, HandsOutALongBufferInPiecesOfASliceEachWithItsOwnStamp)
{
    ASSERT_EQ(Set(mUnit, kAudioUnitProperty_MaximumFramesPerSlice, kGlobal, 0, UInt32{1000}), 0);
    Choose(48000);
    Start();
    Deliver(0, 2400);
    ASSERT_EQ(mStamps.size(), 3u);
    ASSERT_EQ(mBlock.size(), 4800u);
    for (size_t i = 0; i < 2400; ++i) ASSERT_EQ(mBlock[2 * i], float(i));
    for (size_t piece : {1, 2}) {
        EXPECT_EQ(mStamps[piece].mSampleTime - mStamps[0].mSampleTime, double(1000 * piece));
        EXPECT_NEAR(double(mStamps[piece].mHostTime - mStamps[0].mHostTime), 1e9 / 48 * double(piece), 1);
    }
}

TEST_F(InputUnit, CallsBackOnlyBetweenStartAndStop)
{
    Choose(48000);
    EXPECT_EQ(AudioOutputUnitStart(mUnit), kAudioUnitErr_Uninitialized);
    Start();
    EXPECT_EQ(Deliver(0, 64), 1u);
    AudioBufferList list{1, {{2, 512, mBlock.data()}}};
    EXPECT_EQ(AudioUnitRender(mUnit, nullptr, nullptr, kElement, 64, &list), kAudioUnitErr_NoConnection);
    EXPECT_EQ(AudioOutputUnitStop(mUnit), 0);
    EXPECT_EQ(Deliver(64, 64), 0u);
    EXPECT_EQ(AudioOutputUnitStart(mUnit), 0);
    EXPECT_EQ(Deliver(128, 64), 1u);
    EXPECT_EQ(mStamps.size(), 2u);
}

TEST_F(InputUnit, RefusesWhatTheDeviceIsNot)
{
    EXPECT_EQ(AudioUnitInitialize(mUnit), kAudioUnitErr_FailedInitialization);
    EXPECT_EQ(Set(mUnit, kAudioOutputUnitProperty_CurrentDevice, kGlobal, 0, AudioDeviceID{4711}),
              kAudioHardwareBadDeviceError);
    EXPECT_EQ(Set(mUnit, kAudioOutputUnitProperty_EnableIO, kOutput, 0, UInt32{1}), kAudio_ParamError);
    EXPECT_EQ(SetFormat(mUnit, kOutput, kElement, FloatFormat(48000, 2)), kAudioUnitErr_FormatNotSupported);
    Choose(44100);
    EXPECT_EQ(AudioUnitInitialize(mUnit), kAudioUnitErr_FormatNotSupported);
}
