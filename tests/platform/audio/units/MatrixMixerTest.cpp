#include "platform/audio/units/UnitRig.h"

#include <algorithm>
#include <random>

using namespace support;

namespace {

constexpr UInt32 kAll = 0xFFFF;

UInt32 Element(UInt32 input, UInt32 output)
{
    return input << 16 | output;
}

/// A mixer of as many buses as there are channel counts, into two channels; every crosspoint is 0.
struct Mixer {
    explicit Mixer(const std::vector<UInt32>& channels)
    {
        EXPECT_EQ(Set(mUnit.get(), kAudioUnitProperty_ElementCount, kInput, 0, UInt32(channels.size())), 0);
        EXPECT_EQ(Set(mUnit.get(), kAudioUnitProperty_ElementCount, kOutput, 0, UInt32{1}), 0);
        for (UInt32 bus = 0; bus < channels.size(); ++bus)
            EXPECT_EQ(SetFormat(mUnit.get(), kInput, bus, FloatFormat(44100, channels[bus])), 0);
    }
    Mixer(std::vector<SignalSource>& sources, const std::vector<UInt32>& channels) : Mixer(channels)
    {
        for (UInt32 bus = 0; bus < sources.size(); ++bus) sources[bus].Feed(mUnit.get(), bus);
        EXPECT_EQ(AudioUnitInitialize(mUnit.get()), 0);
    }

    OSStatus SetVolume(UInt32 element, Float32 value)
    {
        return AudioUnitSetParameter(mUnit.get(), 0, kGlobal, element, value, 0);
    }
    void SetDiagonal(UInt32 inputs, Float32 value)
    {
        for (UInt32 input = 0; input < inputs; ++input) EXPECT_EQ(SetVolume(Element(input, input % 2), value), 0);
    }
    OSStatus Pull(UInt32 frames)
    {
        mBlock.assign(2, std::vector<float>(frames, 77));
        return Render(mUnit.get(), mBlock);
    }
    bool IsSilent() const
    {
        const auto silent = [](const auto& samples) { return std::ranges::count(samples, 0) == std::ssize(samples); };
        return std::ranges::all_of(mBlock, silent);
    }

    OwnedUnit mUnit = Open("mxmx");
    Channels mBlock;
};

/// Two channels that count frames, weighed so that each source has digits of its own in a sum.
SignalSource Counter(float weight)
{
    return {[weight](unsigned channel, int64_t frame) { return weight * float((frame + 17 * channel) % 251); }};
}

}  // namespace

TEST(MatrixMixer, NumbersChannelsAcrossBusesAndMultipliesFourVolumes)
{
    std::vector<SignalSource> sources;
    for (const unsigned first : {0, 2, 3})  // 1, 2, 4, ... by number of channel across the buses
        sources.push_back({[first](unsigned channel, int64_t) { return float(1 << (first + channel)); }});
    Mixer mixer(sources, {2, 1, 2});
    const struct {
        UInt32 mElement;
        Float32 mVolume, mLeft, mRight;
    } steps[] = {{Element(1, 1), 1, 1 + 4 + 16, 2 + 8},
                 {Element(2, kAll), 0.5f, 1 + 2 + 16, 2 + 8},
                 {Element(kAll, 1), 0.25f, 19, 2.5f},
                 {Element(4, 1), 1, 19, 6.5f},
                 {Element(kAll, kAll), 2, 2 * 19, 2 * 6.5f}};
    EXPECT_EQ(mixer.Pull(8), 0);
    EXPECT_TRUE(mixer.IsSilent());
    mixer.SetDiagonal(5, 1);
    for (const auto& step : steps) {
        EXPECT_EQ(mixer.SetVolume(step.mElement, step.mVolume), 0);
        for (int i = 0; i < 2; ++i) EXPECT_EQ(mixer.Pull(8), 0);  // the first is on its way
        EXPECT_EQ(std::pair(mixer.mBlock[0][0], mixer.mBlock[1][7]), std::pair(step.mLeft, step.mRight));
        Float32 volume = 0;
        EXPECT_EQ(AudioUnitGetParameter(mixer.mUnit.get(), 0, kGlobal, step.mElement, &volume), 0);
        EXPECT_EQ(volume, step.mVolume);
    }
    for (const UInt32 wrong : {Element(5, 0), Element(0, 2), Element(5, kAll), Element(kAll, 2)})
        EXPECT_EQ(mixer.SetVolume(wrong, 1), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(mixer.SetVolume(0, NAN), kAudio_ParamError);

    std::vector<SignalSource> none;
    Mixer empty(none, {});
    EXPECT_EQ(empty.Pull(64), 0);
    EXPECT_TRUE(empty.IsSilent());
}

TEST(MatrixMixer, AChangeOfVolumeMakesNoStep)
{
    std::vector<SignalSource> sources{{[](unsigned, int64_t) { return 1.0f; }}};
    Mixer mixer(sources, {1});
    mixer.SetDiagonal(1, 1);
    float last = 1;
    for (const Float32 volume : {1.0f, 0.0f, 0.5f, 0.25f}) {
        ASSERT_EQ(mixer.SetVolume(Element(kAll, kAll), volume), 0);
        ASSERT_EQ(mixer.Pull(512), 0);
        for (const float sample : mixer.mBlock[0])
            ASSERT_LE(std::abs(sample - std::exchange(last, sample)), 1.001f / 512);
        EXPECT_NEAR(last, volume, 1.001f / 512);
    }
}

TEST(MatrixMixer, KeepsWhatBusesGaveBeforeARefusalWhateverIsAskedNext)
{
    std::mt19937 random(3);
    std::vector<SignalSource> sources{Counter(1), Counter(256), Counter(65536)};
    for (auto& source : sources)
        source.mRefuse = [&random] { return random() % 3 ? 0 : random() % 2 ? OSStatus(1 + random() % 4) : -1; };
    Mixer mixer(sources, {2, 2, 2});
    mixer.SetDiagonal(6, 1);
    int64_t frame = 0;
    for (unsigned block = 0; block < 5000; ++block) {
        const auto frames = UInt32(1 + random() % 700);
        if (mixer.Pull(frames) != 0) {
            ASSERT_EQ(mixer.mBlock, Channels(2, std::vector<float>(frames, 77)));
        } else if (!mixer.IsSilent()) {
            for (UInt32 i = 0; i < frames; ++i, ++frame) {
                for (unsigned channel : {0, 1})
                    ASSERT_EQ(mixer.mBlock[channel][i], float((frame + 17 * channel) % 251) * (1 + 256 + 65536));
            }
        }
    }
    EXPECT_GT(frame, 100000);

    while (sources[0].mGiven == frame) mixer.Pull(100);  // until something is kept
    ASSERT_EQ(AudioUnitReset(mixer.mUnit.get(), kGlobal, 0), 0);
    for (auto& source : sources) source.mRefuse = [] { return 0; };
    const int64_t next = sources[0].mGiven;
    ASSERT_EQ(mixer.Pull(100), 0);
    EXPECT_EQ(std::fmod(mixer.mBlock[0][0], 256), next % 251);
}

TEST(MatrixMixer, ChainsOfUnlikeRatesKeepTheirPlacesThroughRefusalsToTheBit)
{
    constexpr double kRates[] = {44100, 48000, 96000};
    constexpr Float32 kSpeeds[] = {1.0002f, 0.9998f, 1.0f};
    std::mt19937 random(11);
    const auto record = [&](std::function<OSStatus()> refuse) {
        Mixer mixer({2, 2, 2});
        std::vector<std::unique_ptr<Chain>> chains;
        for (UInt32 bus = 0; bus < 3; ++bus) {
            chains.push_back(std::make_unique<Chain>(FloatFormat(kRates[bus], 2), 48000, SignalSource{Noise, refuse}));
            EXPECT_EQ(chains[bus]->SetSpeed(kSpeeds[bus]), 0);
            const auto render = [](void* unit, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32,
                                   UInt32 frames, AudioBufferList* list) {
                return AudioUnitRender(static_cast<AudioUnit>(unit), flags, time, 0, frames, list);
            };
            EXPECT_EQ(Set(mixer.mUnit.get(), kAudioUnitProperty_SetRenderCallback, kInput, bus,
                          AURenderCallbackStruct{render, chains[bus]->mUnit}),
                      0);
        }
        EXPECT_EQ(AudioUnitInitialize(mixer.mUnit.get()), 0);
        mixer.SetDiagonal(6, 0.3f);
        std::vector<float> heard;
        while (heard.size() < 512 * 600) {
            EXPECT_EQ(mixer.Pull(512), 0);
            if (!mixer.IsSilent()) heard.insert(heard.end(), mixer.mBlock[1].begin(), mixer.mBlock[1].end());
        }
        return heard;
    };
    EXPECT_EQ(record([] { return 0; }), record([&random] { return random() % 4 ? 0 : OSStatus(1 + random() % 4); }));
}
