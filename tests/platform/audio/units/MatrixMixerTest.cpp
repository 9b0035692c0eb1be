#include "platform/audio/units/UnitRig.h"

#include <algorithm>
#include <memory>
#include <random>

using namespace support;

namespace {

constexpr UInt32 kAll = 0xFFFF;

UInt32 Element(UInt32 input, UInt32 output)
{
    return input << 16 | output;
}

/// A mixer over sources with the given channels, into two channels, everything at the unit's defaults.
class Mixer {
public:
    Mixer(std::vector<SignalSource> sources, const std::vector<UInt32>& channels) : mSources(std::move(sources))
    {
        const auto count = UInt32(mSources.size());
        EXPECT_EQ(Set(mUnit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Input, 0, count), 0);
        EXPECT_EQ(Set(mUnit, kAudioUnitProperty_ElementCount, kAudioUnitScope_Output, 0, UInt32{1}), 0);
        EXPECT_EQ(SetFormat(mUnit, kAudioUnitScope_Output, 0, FloatFormat(48000, 2)), 0);
        for (UInt32 bus = 0; bus < count; ++bus) {
            EXPECT_EQ(SetFormat(mUnit, kAudioUnitScope_Input, bus, FloatFormat(48000, channels[bus])), 0);
            EXPECT_EQ(
                Set(mUnit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, bus, mSources[bus].Callback()),
                0);
        }
        EXPECT_EQ(AudioUnitInitialize(mUnit), 0);
    }
    ~Mixer() { EXPECT_EQ(CloseComponent(mUnit), 0); }

    OSStatus SetVolume(UInt32 element, Float32 value)
    {
        return AudioUnitSetParameter(mUnit, 0, kAudioUnitScope_Global, element, value, 0);
    }
    Float32 Volume(UInt32 element)
    {
        Float32 value = -1;
        EXPECT_EQ(AudioUnitGetParameter(mUnit, 0, kAudioUnitScope_Global, element, &value), 0);
        return value;
    }
    OSStatus Pull(UInt32 frames)
    {
        mBlock.assign(2, std::vector<float>(frames, 77));
        return Render(mUnit, mBlock);
    }

    std::vector<SignalSource> mSources;
    AudioUnit mUnit = OpenUnit("aumx", "mxmx");
    Channels mBlock;
};

/// Constants 1, 2, 4, ... by number of channel across the buses.
SignalSource Levels(unsigned firstChannel)
{
    return {[firstChannel](unsigned channel, int64_t) { return float(1 << (firstChannel + channel)); }};
}

/// Two channels that count frames, in which every source has a digit of its own.
SignalSource Counter(float weight)
{
    return {[weight](unsigned channel, int64_t frame) { return weight * float((frame + 17 * channel) % 251); }};
}

bool IsSilent(const Channels& block)
{
    return std::ranges::all_of(
        block, [](const auto& channel) { return std::ranges::all_of(channel, [](float x) { return x == 0; }); });
}

}  // namespace

TEST(MatrixMixer, NumbersChannelsAcrossBusesAndMultipliesFourVolumes)
{
    Mixer mixer({Levels(0), Levels(2), Levels(3)}, {2, 1, 2});
    const auto heard = [&] {
        EXPECT_EQ(mixer.Pull(8), 0);  // on its way to what was set
        EXPECT_EQ(mixer.Pull(8), 0);
        return std::pair(mixer.mBlock[0][0], mixer.mBlock[1][7]);
    };
    EXPECT_EQ(heard(), std::pair(0.0f, 0.0f));
    for (UInt32 input = 0; input < 5; ++input) EXPECT_EQ(mixer.SetVolume(Element(input, input % 2), 1), 0);
    EXPECT_EQ(heard(), std::pair(1.0f + 4 + 16, 2.0f + 8));
    EXPECT_EQ(mixer.SetVolume(Element(2, kAll), 0.5f), 0);
    EXPECT_EQ(heard(), std::pair(1.0f + 2 + 16, 2.0f + 8));
    EXPECT_EQ(mixer.SetVolume(Element(kAll, 1), 0.25f), 0);
    EXPECT_EQ(heard(), std::pair(19.0f, 2.5f));
    EXPECT_EQ(mixer.SetVolume(Element(4, 1), 1), 0);
    EXPECT_EQ(heard(), std::pair(19.0f, 6.5f));
    EXPECT_EQ(mixer.SetVolume(0xFFFFFFFF, 2), 0);
    EXPECT_EQ(heard(), std::pair(38.0f, 13.0f));
    EXPECT_EQ(mixer.Volume(Element(2, kAll)), 0.5f);
    EXPECT_EQ(mixer.Volume(Element(3, 0)), 0);
    EXPECT_EQ(mixer.Volume(0xFFFFFFFF), 2);
    for (const UInt32 wrong : {Element(5, 0), Element(0, 2), Element(5, kAll), Element(kAll, 2)})
        EXPECT_EQ(mixer.SetVolume(wrong, 1), kAudioUnitErr_InvalidElement);
}

TEST(MatrixMixer, AChangeOfVolumeMakesNoStep)
{
    Mixer mixer({{[](unsigned, int64_t) { return 1.0f; }}}, {1});
    ASSERT_EQ(mixer.SetVolume(Element(0, 0), 1), 0);
    float last = 1;
    for (const Float32 volume : {1.0f, 0.0f, 0.5f, 1.0f, 0.25f}) {
        ASSERT_EQ(mixer.SetVolume(0xFFFFFFFF, volume), 0);
        ASSERT_EQ(mixer.Pull(512), 0);
        for (const float sample : mixer.mBlock[0]) {
            ASSERT_LE(std::abs(sample - last), 1.001f / 512);
            last = sample;
        }
        EXPECT_NEAR(last, volume, 1.001f / 512);
    }
}

TEST(MatrixMixer, WithoutBusesItGivesSilence)
{
    Mixer mixer({}, {});
    EXPECT_EQ(mixer.Pull(64), 0);
    EXPECT_TRUE(IsSilent(mixer.mBlock));
}

TEST(MatrixMixer, KeepsWhatBusesGaveBeforeARefusalWhateverIsAskedNext)
{
    std::mt19937 random(3);
    Mixer mixer({Counter(1), Counter(256), Counter(65536)}, {2, 2, 2});
    for (UInt32 input = 0; input < 6; ++input) ASSERT_EQ(mixer.SetVolume(Element(input, input % 2), 1), 0);
    for (auto& source : mixer.mSources) {
        source.mRefuse = [&random] { return random() % 3 ? 0 : random() % 2 ? OSStatus(1 + random() % 4) : -1; };
    }
    int64_t frame = 0;
    unsigned silent = 0, failed = 0;
    for (unsigned block = 0; block < 5000; ++block) {
        const auto frames = UInt32(1 + random() % 700);
        const OSStatus status = mixer.Pull(frames);
        if (status != 0) {
            ASSERT_EQ(status, -1);
            ASSERT_EQ(mixer.mBlock[1].back(), 77);
            ++failed;
        } else if (IsSilent(mixer.mBlock)) {
            ++silent;
        } else {
            for (UInt32 i = 0; i < frames; ++i, ++frame) {
                for (unsigned channel : {0, 1})
                    ASSERT_EQ(mixer.mBlock[channel][i], float((frame + 17 * channel) % 251) * (1 + 256 + 65536));
            }
        }
    }
    EXPECT_GT(silent, 1000u);
    EXPECT_GT(failed, 1000u);
    EXPECT_GT(frame, 100000);
}

TEST(MatrixMixer, DropsWhatItKeptWhenReset)
{
    Mixer mixer({Counter(1), Counter(256)}, {2, 2});
    for (UInt32 input = 0; input < 4; ++input) ASSERT_EQ(mixer.SetVolume(Element(input, input % 2), 1), 0);
    mixer.mSources[1].mRefuse = [] { return 1; };
    ASSERT_EQ(mixer.Pull(100), 0);
    mixer.mSources[1].mRefuse = [] { return 0; };
    ASSERT_EQ(AudioUnitReset(mixer.mUnit, kAudioUnitScope_Global, 0), 0);
    ASSERT_EQ(mixer.Pull(100), 0);
    EXPECT_EQ(mixer.mBlock[0][0], 100);
    EXPECT_EQ(mixer.mBlock[0][99], 199 + 256 * 99);
}

TEST(MatrixMixer, ChainsOfUnlikeRatesKeepTheirPlacesThroughRefusalsToTheBit)
{
    constexpr double kRates[] = {44100, 48000, 96000};
    constexpr Float32 kSpeeds[] = {1.0002f, 0.9998f, 1.0f};
    std::mt19937 random(11);
    const auto run = [&](bool refusing) {
        std::vector<std::unique_ptr<Chain>> chains;
        std::vector<SignalSource> none(3);
        Mixer mixer(none, {2, 2, 2});
        EXPECT_EQ(AudioUnitUninitialize(mixer.mUnit), 0);
        for (UInt32 bus = 0; bus < 3; ++bus) {
            auto& chain =
                chains.emplace_back(std::make_unique<Chain>(FloatFormat(kRates[bus], 2), 48000, SignalSource{Noise}));
            chain->SetSpeed(kSpeeds[bus]);
            if (refusing) chain->mSource.mRefuse = [&random] { return random() % 4 ? 0 : OSStatus(1 + random() % 4); };
            const AURenderCallbackStruct callback{
                [](void* unit, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32, UInt32 frames,
                   AudioBufferList* list) {
                    return AudioUnitRender(static_cast<AudioUnit>(unit), flags, time, 0, frames, list);
                },
                chain->mUnit};
            EXPECT_EQ(Set(mixer.mUnit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, bus, callback), 0);
        }
        EXPECT_EQ(AudioUnitInitialize(mixer.mUnit), 0);
        for (UInt32 input = 0; input < 6; ++input) EXPECT_EQ(mixer.SetVolume(Element(input, input % 2), 0.3f), 0);
        std::vector<float> heard;
        while (heard.size() < 512 * 600) {
            EXPECT_EQ(mixer.Pull(512), 0);
            if (heard.empty() || !IsSilent(mixer.mBlock))
                heard.insert(heard.end(), mixer.mBlock[1].begin(), mixer.mBlock[1].end());
        }
        return heard;
    };
    const std::vector<float> whole = run(false), refused = run(true);
    const auto sound = [](const std::vector<float>& samples) {
        return std::ranges::find_if(samples, [](float x) { return x != 0; });
    };
    EXPECT_TRUE(std::equal(sound(refused), refused.end(), sound(whole)));
    EXPECT_LT(sound(whole) - whole.begin(), 600);
}
