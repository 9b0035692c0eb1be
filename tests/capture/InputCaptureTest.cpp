// A hardware input over scripted devices.
#include "FakeSource.h"
#include "capture/OSLAudio_InputCapture.h"
#include "capture/buffers/AI.h"
#include "platform/audio/StampLatency.h"
#include "support/FakeMachine.h"

#include <array>
#include <cstdlib>

namespace {

using platform::machine::CaptureCycle;
using P = platform::machine::ChannelPosition;

std::vector<std::string> Texts(CFArrayRef list)
{
    std::vector<std::string> texts;
    for (CFIndex index = 0; index < CFArrayGetCount(list); ++index)
        texts.push_back(cf::ToStdString(cf::As<cf::String>(CFArrayGetValueAtIndex(list, index))));
    CFRelease(list);
    return texts;
}

class InputCapture : public testing::Test {
protected:
    InputCapture()
    {
        platform::machine::ServerSnapshot snapshot;
        snapshot.mConnected = true;
        snapshot.mOutputs = {{11, "speakers", "Speakers", 48000, {P::FrontLeft, P::FrontRight}}};
        snapshot.mInputs = {{21, "mono", "Mono", 44100, {P::Mono}},
                            {22, "pair", "Pair", 48000, {P::Auxiliary0, P::RearLeft, P::FrontLeft, P::FrontRight}},
                            {23, "wide", "Wide", 96000, {P::RearLeft, P::RearRight, P::SideLeft}}};
        snapshot.mDefaultInput = 22;
        mMachine.mServer.Change(snapshot);
    }
    std::vector<SInt32> Map()
    {
        SInt32* map = nullptr;
        UInt32 count = 0;
        EXPECT_EQ(mCapture.GetChannelMap(&map, &count), 0);
        const std::vector<SInt32> channels(map, map + count);
        std::free(map);
        return channels;
    }
    static OSStatus Take(void* self, UInt32*, const AudioTimeStamp*, UInt32, UInt32 frames, AudioBufferList* list)
    {
        auto& test = *static_cast<InputCapture*>(self);
        const auto* const samples = static_cast<const float*>(list->mBuffers[0].mData);
        std::copy_n(samples, std::min<size_t>(test.mTaken.size(), list->mBuffers[0].mNumberChannels * frames),
                    test.mTaken.begin());
        return -1;  // which is nobody's business but the taker's
    }

    support::FakeMachine& mMachine = support::FakeMachine::Installed();
    OSLAudio_InputCapture mCapture;
    std::array<float, 8> mTaken{};
};

TEST_F(InputCapture, TakesTheDevicesRateAndMapsItsChannels)
{
    struct {
        const char* mUID;
        UInt32 mChannels;  // 0: no wish
        double mRate;
        std::vector<SInt32> mMap;
    } const cases[] = {
        {"mono", 2, 44100, {0, 0}},  // both sides the same
        {"pair", 2, 48000, {2, 3}},  // what the device prefers
        {"pair", 1, 48000, {0}},     // but for stereo alone
        {"wide", 2, 96000, {0, 1}}, {"wide", 0, 96000, {0, 1, 2}}, {"mono", 5, 44100, {0, 0, 0, 0, 0}},
    };
    for (const auto& at : cases) {
        SCOPED_TRACE(at.mUID);
        AudioStreamBasicDescription desc = FloatDesc(32000, at.mChannels);
        ASSERT_EQ(mCapture.Create(CFSTR(at.mUID), 0, at.mChannels ? &desc : nullptr), 0);
        ASSERT_EQ(mCapture.GetAudioDesc(&desc), 0);
        EXPECT_EQ(desc.mSampleRate, at.mRate);
        EXPECT_EQ(desc.mBytesPerFrame, 4 * at.mMap.size());
        EXPECT_EQ(Map(), at.mMap);
        EXPECT_TRUE(mCapture.IsInitialized());
        EXPECT_EQ(mCapture.GetBufferList()->mBuffers[0].mNumberChannels, at.mMap.size());
        EXPECT_EQ(Texts(mCapture.CopyCapturedSources()), std::vector<std::string>{at.mUID});
        EXPECT_EQ(mCapture.Uninitialize(), 0);
    }
}

TEST_F(InputCapture, TheDefaultDeviceIsTheTrueOneByNumber)
{
    ASSERT_EQ(mCapture.Create(CFStringRef{}, 0, nullptr), 0);
    AudioDeviceID device = 0, pair = 0;
    ASSERT_EQ(AI_GetDeviceWithUID(CFSTR("pair"), &pair), 0);
    ASSERT_EQ(mCapture.GetDeviceID(&device), 0);
    EXPECT_EQ(device, pair);
    UInt32 latency = 9;
    EXPECT_EQ(mCapture.GetDeviceLatency(0, true, &latency), 0);
    EXPECT_EQ(latency, 0u);
    EXPECT_EQ(mCapture.SetMuted(true), -1);
    EXPECT_FALSE(mCapture.IsMuted() || mCapture.IsMutable());
}

TEST_F(InputCapture, ADeviceThatIsNotThereFailsAndLeavesNothingOpen)
{
    EXPECT_EQ(mCapture.Create(CFSTR("gone"), 0, nullptr), kAudioHardwareBadDeviceError);
    EXPECT_FALSE(mCapture.IsInitialized());
    mMachine.mServer.Change({});
    EXPECT_NE(mCapture.Create(CFStringRef{}, 0, nullptr), 0);
}

TEST_F(InputCapture, HandsOnWhatTheDeviceBrings)
{
    AudioStreamBasicDescription desc = FloatDesc(0, 2);
    ASSERT_EQ(mCapture.Create(CFStringRef{}, 0, &desc), 0);
    mMachine.mServer.mSnapshot.mDefaultInput = 21;  // the capture stays where it is
    mCapture.SetRenderCallback(Take, this);
    ASSERT_EQ(mCapture.Start(), 0);
    EXPECT_FALSE(mCapture.HasRendered());
    EXPECT_EQ(mCapture.GetRateScalar(), 1.0);
    const float left[] = {1, 2, 3, 4}, right[] = {5, 6, 7, 8};
    const CaptureCycle::Channel channels[] = {{P::FrontRight, right}, {P::FrontLeft, left}};
    for (int64_t cycle = 0; cycle < 3; ++cycle) {  // an input holds one back, to learn whether it was late
        const uint64_t nanos = 1'000'000'000 + uint64_t(cycle) * 83'333;
        EXPECT_EQ(mMachine.mServer.Deliver("pair", CaptureCycle{nanos, 100 + 4 * cycle, 1.0, 48000, 4, 1, channels}),
                  1u);
    }
    EXPECT_TRUE(mCapture.HasRendered());
    AudioTimeStamp in{.mHostTime = 1'000'000'000 + platform::audio::StampLatencyNanos(), .mFlags = 2}, out{.mFlags = 1};
    EXPECT_EQ(mCapture.TranslateTime(&in, &out), 0);
    EXPECT_EQ(out.mSampleTime, 100);
    EXPECT_EQ(mTaken, (std::array<float, 8>{1, 5, 2, 6, 3, 7, 4, 8}));
    mTaken = {};
    UInt32 flags = 0;
    EXPECT_NE(mCapture.RenderCallback(&flags, &in, 1, 4, nullptr), 0) << "the device has brought nothing";
    EXPECT_EQ(mTaken, (std::array<float, 8>{})) << "and nothing old is taken for it";
    EXPECT_EQ(mCapture.Uninitialize(), 0);
    EXPECT_EQ(mMachine.mServer.Deliver("pair", CaptureCycle{}), 0u);
}

TEST_F(InputCapture, DevicesAreListedByDirectionInTheServersOrder)
{
    CFArrayRef names = nullptr, uids = nullptr;
    UInt32 count = 0;
    ASSERT_EQ(AI_GetListOfInputDevices(&names, &uids, &count), 0);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(Texts(names), (std::vector<std::string>{"Mono", "Pair", "Wide"}));
    EXPECT_EQ(Texts(uids), (std::vector<std::string>{"mono", "pair", "wide"}));
    ASSERT_EQ(AI_GetListOfOutputDevices(nullptr, &uids, nullptr), 0);
    EXPECT_EQ(Texts(uids), std::vector<std::string>{"speakers"});
    AudioDeviceID wide = 0;
    ASSERT_EQ(AI_GetDeviceWithUID(CFSTR("wide"), &wide), 0);
    EXPECT_TRUE(AI_HasInputStream(wide));
    EXPECT_FALSE(AI_HasOutputStream(wide));
    double rate = 44100;
    EXPECT_EQ(AI_GetClosestSampleRate(wide, &rate), 0);
    EXPECT_EQ(rate, 96000);
    AudioDeviceID device = 7;
    EXPECT_EQ(AI_GetDeviceWithUID(nullptr, &device), 0);
    EXPECT_EQ(device, 7u);
    UInt32 alive = 0, channels = 0;
    EXPECT_EQ(AI_IsDeviceAlive(wide, &alive), 0);
    EXPECT_EQ(AI_GetNumChannels(wide, &channels), 0);
    EXPECT_EQ(alive + channels, 1u + 3u);
    EXPECT_EQ(AI_IsDeviceAlive(7, &alive), kAudioHardwareBadDeviceError);
    EXPECT_FALSE(AI_SupportsStereo(wide)) << "the pair is the device's to say";
    EXPECT_FALSE(AI_SupportsGain(wide));
    Float32 decibels = 0;
    AudioValueRange range{};
    UInt32* sources = nullptr;
    EXPECT_EQ(AI_GetGain(wide, &decibels), kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(AI_GetGainRangeDecibels(wide, &range), kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(AI_SetGain(wide, decibels), kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(AI_GetListOfSources(wide, true, &sources, &names, &count), kAudioHardwareUnknownPropertyError);
    EXPECT_EQ(AI_StreamsEnable(wide, true, nullptr), kAudioHardwareUnknownPropertyError);
    AudioStreamBasicDescription desc = FloatDesc(44100, 2);
    EXPECT_EQ(AI_SetDeviceToClosestFormatMatch(wide, &desc), 0);
    EXPECT_EQ(desc.mSampleRate, 96000) << "a native device stays as it is, and says so";
    EXPECT_EQ(desc.mChannelsPerFrame, 3u);
}

TEST(AI, PrintsADescriptionFieldByFieldAndGivesAUnitsInputTheFormatOfItsOutput)
{
    ComponentDescription description = {FourCC("aufc"), FourCC("conv"), FourCC("appl"), 0, 0};
    AudioUnit unit = nullptr;
    ASSERT_EQ(OpenAComponent(FindNextComponent(nullptr, &description), &unit), 0);
    const AudioStreamBasicDescription six = FloatDesc(96000, 6, false);
    ASSERT_EQ(AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0, &six, sizeof six),
              0);
    AudioStreamBasicDescription desc{};
    EXPECT_EQ(AI_MatchAUFormats(&unit, &desc, 0), 0);
    EXPECT_EQ(AI_MatchAUFormats(&unit, &desc, 1), kAudioUnitErr_InvalidElement);
    desc = {};
    UInt32 size = sizeof desc;
    AudioUnitGetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0, &desc, &size);
    CloseComponent(unit);
    testing::internal::CaptureStderr();
    AI_PrintStreamDesc(&desc);
    AI_PrintStreamDesc(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "- - - - - - - - - - - - - - - - - - - -\n  Sample Rate:96000.000000\n  Format ID:lpcm\n"
              "  Format Flags:29\n  Bytes per Packet:4\n  Frames per Packet:1\n  Bytes per Frame:4\n"
              "  Channels per Frame:6\n  Bits per Channel:32\n  Reserved: 0\n"
              "- - - - - - - - - - - - - - - - - - - -\nCan't print a NULL desc!\n");
}

}  // namespace
