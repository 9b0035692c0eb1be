#include "platform/audio/units/UnitRig.h"
#include "platform/foundation/CFDictionary.h"
#include "support/FakeMachine.h"

using namespace support;
using platform::machine::CaptureCycle;
using P = platform::machine::ChannelPosition;

namespace {

constexpr UInt32 kInput = kAudioUnitScope_Input, kOutput = kAudioUnitScope_Output, kGlobal = kAudioUnitScope_Global;
constexpr UInt32 kElement = 1;

/// An input device of three channels at 48 kHz, and a client that takes two of it.
class InputUnit : public testing::Test {
protected:
    InputUnit()
    {
        mMachine.mServer.mSnapshot.mInputs = {
            {80, "desk", "Desk", 48000, {P::FrontLeft, P::FrontRight, P::Auxiliary0}}};
        mBlock.reserve(1 << 18);
        mStamps.reserve(1 << 10);
        EXPECT_EQ(Set(mUnit, kAudioOutputUnitProperty_EnableIO, kInput, kElement, UInt32{1}), 0);
        EXPECT_EQ(Set(mUnit, kAudioOutputUnitProperty_EnableIO, kOutput, 0, UInt32{0}), 0);
        EXPECT_EQ(Set(mUnit, kAudioOutputUnitProperty_StartTimestampsAtZero, kGlobal, 0, UInt32{0}), 0);
        EXPECT_EQ(
            Set(mUnit, kAudioOutputUnitProperty_SetInputCallback, kGlobal, 0, AURenderCallbackStruct{OnBuffer, this}),
            0);
    }
    ~InputUnit() override { EXPECT_EQ(CloseComponent(mUnit), 0); }

    static AudioDeviceID Desk()
    {
        CFStringRef uid = CFSTR("desk");
        AudioDeviceID device = 0;
        AudioValueTranslation translation{&uid, sizeof uid, &device, sizeof device};
        UInt32 size = sizeof translation;
        EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyDeviceForUID, &size, &translation), 0);
        return device;
    }
    void Open()
    {
        EXPECT_EQ(Set(mUnit, kAudioOutputUnitProperty_CurrentDevice, kGlobal, 0, Desk()), 0);
        EXPECT_EQ(SetFormat(mUnit, kOutput, kElement, FloatFormat(48000, 2, kInterleaved)), 0);
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
        for (int channel = 0; channel < 3; ++channel) {
            for (uint32_t i = 0; i < frames; ++i) samples[channel].push_back(float(channel * 100000 + int(first + i)));
        }
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
    AudioUnit mUnit = OpenUnit("auou", "ahal");
    std::vector<float> mBlock;  // what came, interleaved
    std::vector<AudioTimeStamp> mStamps;
};

}  // namespace

TEST_F(InputUnit, GivesTheChannelsOfItsMapWhileItCallsBack)
{
    const struct {
        std::vector<SInt32> mMap;
        std::vector<float> mLast;  // of 64 frames
    } cases[] = {{{}, {63, 100063}},
                 {{2, 0}, {200063, 63}},
                 {{1, 1}, {100063, 100063}},
                 {{-1, 2}, {0, 200063}},
                 {{3, 1}, {0, 100063}}};
    Open();
    for (const auto& each : cases) {
        if (!each.mMap.empty()) {
            ASSERT_EQ(
                AudioUnitSetProperty(mUnit, kAudioOutputUnitProperty_ChannelMap, kInput, kElement, each.mMap.data(), 8),
                0);
            SInt32 map[2] = {};
            EXPECT_EQ(Get(mUnit, kAudioOutputUnitProperty_ChannelMap, kOutput, kElement, map), 0);
            EXPECT_EQ((std::vector{map[0], map[1]}), each.mMap);
        }
        Start();
        mBlock.clear();
        ASSERT_EQ(Deliver(0, 64), 1u);
        ASSERT_EQ(mBlock.size(), 128u);
        EXPECT_EQ((std::vector{mBlock[126], mBlock[127]}), each.mLast);
        EXPECT_EQ(AudioUnitUninitialize(mUnit), 0);
    }
}

TEST_F(InputUnit, HandsOutALongBufferInPiecesOfASliceEachWithItsOwnStamp)
{
    ASSERT_EQ(Set(mUnit, kAudioUnitProperty_MaximumFramesPerSlice, kGlobal, 0, UInt32{1000}), 0);
    Open();
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
    Open();
    EXPECT_EQ(AudioOutputUnitStart(mUnit), kAudioUnitErr_Uninitialized);
    Start();
    EXPECT_EQ(Deliver(0, 64), 1u);
    EXPECT_EQ(Set(mUnit, kAudioOutputUnitProperty_SetInputCallback, kGlobal, 0, AURenderCallbackStruct{}),
              kAudioUnitErr_Initialized);
    std::vector<float> samples(128);
    AudioBufferList list{1, {{2, 512, samples.data()}}};
    AudioUnitRenderActionFlags flags = 0;
    EXPECT_EQ(AudioUnitRender(mUnit, &flags, &mStamps[0], kElement, 64, &list), kAudioUnitErr_NoConnection);
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
    Open();
    AudioStreamBasicDescription device{};
    EXPECT_EQ(Get(mUnit, kAudioUnitProperty_StreamFormat, kInput, kElement, device), 0);
    EXPECT_EQ(device.mChannelsPerFrame, 3u);
    EXPECT_EQ(SetFormat(mUnit, kOutput, kElement, FloatFormat(48000, 2)), kAudioUnitErr_FormatNotSupported);
    EXPECT_EQ(SetFormat(mUnit, kOutput, kElement, FloatFormat(44100, 2, kInterleaved)), 0);
    EXPECT_EQ(AudioUnitInitialize(mUnit), kAudioUnitErr_FormatNotSupported);
    EXPECT_EQ(Set(mUnit, kAudioOutputUnitProperty_EnableIO, kOutput, 0, UInt32{1}), kAudio_ParamError);
}
