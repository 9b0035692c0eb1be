// The output unit on simulated outputs. What is heard is compared with what its source gave for that very moment.
#include "capture/buffers/AI.h"
#include "platform/audio/units/UnitRig.h"
#include "platform/machine/simulated/Scenario.h"
#include "support/Forked.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <numbers>

namespace platform::machine::simulated {

using namespace std::chrono_literals;
using namespace support;

namespace {

/// A client of the unit that gives `mSignal`, and checks what it is asked.
struct Player {
    using Signal = std::function<float(unsigned channel, int64_t frame, double hostSeconds)>;

    Player(const AudioStreamBasicDescription& format, Signal signal, UInt32 sliceFrames = 4096)
        : mFormat(format), mSignal(std::move(signal)), mSliceFrames(sliceFrames)
    {
        EXPECT_EQ(AI_GetDefaultAU(&mUnit), 0);
        const AURenderCallbackStruct callback{Give, this};
        EXPECT_EQ(SetFormat(mUnit, kInput, 0, format), 0);
        EXPECT_EQ(Set(mUnit, kAudioUnitProperty_SetRenderCallback, kInput, 0, callback), 0);
        EXPECT_EQ(Set(mUnit, kAudioUnitProperty_MaximumFramesPerSlice, kGlobal, 0, sliceFrames), 0);
    }
    ~Player() { CloseComponent(mUnit); }

    void Start()
    {
        EXPECT_EQ(AudioUnitInitialize(mUnit), 0);
        EXPECT_EQ(AudioOutputUnitStart(mUnit), 0);
    }
    AudioDeviceID Device() const
    {
        AudioDeviceID device = 0;
        EXPECT_EQ(Get(mUnit, kAudioOutputUnitProperty_CurrentDevice, kGlobal, 0, device), 0);
        return device;
    }

    static OSStatus Give(void* me, AudioUnitRenderActionFlags*, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                         AudioBufferList* list)
    {
        auto& player = *static_cast<Player*>(me);
        EXPECT_EQ(bus, 0u);
        EXPECT_LE(frames, player.mSliceFrames);
        EXPECT_EQ(time->mFlags, kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid);
        if (player.mRefuses && ++player.mPulls % 3 == 0) return ++player.mRefused % 2 ? 17 : -50;
        if (player.mContinuous && player.mGiven > 0) {
            EXPECT_EQ(time->mSampleTime, player.mNextSampleTime);
        }
        player.mNextSampleTime = time->mSampleTime + frames;
        const double seconds = double(time->mHostTime - kStartNanos) * 1e-9;
        if (const double hertz = player.mDeviceHz; hertz > 0) {
            const double origin = time->mSampleTime - seconds * hertz;
            if (player.mGiven == 0) player.mOrigin = origin;
            EXPECT_NEAR(origin, player.mOrigin, 0.01);
        }
        for (UInt32 buffer = 0; buffer < list->mNumberBuffers; ++buffer) {
            const AudioBuffer& to = list->mBuffers[buffer];
            for (UInt32 i = 0; i < frames * to.mNumberChannels; ++i) {
                const UInt32 frame = i / to.mNumberChannels;
                static_cast<float*>(to.mData)[i] =
                    player.mSignal(buffer + i % to.mNumberChannels, player.mGiven + frame,
                                   seconds + frame / player.mFormat.mSampleRate);
            }
        }
        player.mGiven += frames;
        return 0;
    }

    const AudioStreamBasicDescription mFormat;
    const Signal mSignal;
    const UInt32 mSliceFrames;
    bool mContinuous = false;           // whether sample times have to follow on each other
    std::atomic<double> mDeviceHz{0};   // which both times have to count at, unless 0
    std::atomic<bool> mRefuses{false};  // every third pull
    std::atomic<size_t> mRefused{0};
    std::atomic<int64_t> mGiven{0};
    int mPulls = 0;
    double mOrigin = 0;
    double mNextSampleTime = 0;
    AudioUnit mUnit = nullptr;
};

/// What came out of outputs, one after the other, and when.
struct Ear {
    void Hear(Output& output)
    {
        output.heardBy([this](const HeardCycle& cycle) {
            mChannels.resize(cycle.mChannels.size());
            for (size_t i = 0; i < mChannels.size(); ++i)
                mChannels[i].insert(mChannels[i].end(), cycle.mChannels[i].begin(), cycle.mChannels[i].end());
            mCycles.push_back({double(cycle.mHostNanos - kStartNanos) * 1e-9, cycle.mChannels[0].size()});
        });
    }
    size_t SilentFrames() const { return size_t(std::ranges::count(mChannels.at(0), 0.0f)); }

    Channels mChannels;
    std::vector<std::pair<double, size_t>> mCycles;  // when, and how long
};

float Moment(unsigned channel, int64_t, double hostSeconds)
{
    return float(0.5 * std::cos(2 * std::numbers::pi * 500 * hostSeconds + channel));
}

float Count(unsigned channel, int64_t frame, double)
{
    return float(channel == 0 ? frame + 1 : -frame - 1);
}

/// Silence left out, how many samples are not the successor of the one before.
size_t Breaks(const std::vector<float>& samples)
{
    size_t breaks = 0;
    float last = 0;
    for (const float sample : samples) {
        if (sample == 0) continue;
        breaks += sample != last + 1;
        last = sample;
    }
    return breaks;
}

constexpr double kStereoHz = 48000;
const AudioStreamBasicDescription kStereo = FloatFormat(kStereoHz, 2, kInterleaved);

}  // namespace

TEST(OutputUnit, WhatIsPulledForAMomentIsHeardAtThatMomentWhateverTheFormats)
{
    struct Case {
        double mClientHz, mDeviceHz, mLaterHz;
        UInt32 mFlags, mChannels, mDeviceChannels, mQuantum, mSlice;
    };
    const Case cases[] = {
        {48000, 48000, 44100, kInterleaved, 2, 2, 1024, 4096}, {48000, 48000, 48000, kPlanar, 2, 2, 1024, 100},
        {44100, 48000, 44100, kInterleaved, 2, 2, 256, 4096},  {96000, 44100, 192000, kInterleaved, 2, 2, 1000, 64},
        {48000, 48000, 48000, kPlanar, 1, 2, 64, 4096},        {44100, 48000, 48000, kInterleaved, 2, 6, 512, 4096},
    };
    for (const Case& each : cases) {
        ExpectForked([&] {
            Ear ear;  // hears until the scenario ends
            Scenario s;
            auto& speakers = s.output("speakers").rate(uint32_t(each.mDeviceHz)).quantum(each.mQuantum);
            std::vector<ChannelPosition> positions;
            for (UInt32 i = 0; i < each.mDeviceChannels; ++i)
                positions.push_back(ChannelPosition(unsigned(ChannelPosition::FrontLeft) + i));
            speakers.channels(positions);
            ear.Hear(speakers);
            Player player(FloatFormat(each.mClientHz, each.mChannels, each.mFlags), Moment, each.mSlice);
            player.mContinuous = each.mDeviceHz == each.mLaterHz;
            s.at(250ms).rate(speakers, uint32_t(each.mLaterHz));
            player.Start();
            s.runUntil(500ms);
            EXPECT_EQ(AudioOutputUnitStop(player.mUnit), 0);
            constexpr double kTolerance = 0.5 * 2 * std::numbers::pi * 500 * 2e-9 + 1e-6;  // stamps are in nanoseconds
            size_t at = 0;
            for (const auto& [seconds, frames] : ear.mCycles) {
                const bool later = seconds >= 0.25;
                // A cycle for each format, then the converter's 10 ms.
                const bool settled = seconds >= (later ? 0.31 : 0.06);
                for (size_t i = 0; i < frames && settled; ++i) {
                    for (unsigned channel = 0; channel < each.mDeviceChannels; ++channel) {
                        const unsigned from = each.mChannels == 1 ? 0 : channel;
                        const double wanted =
                            channel < 2
                                ? Moment(from, 0, seconds + double(i) / (later ? each.mLaterHz : each.mDeviceHz))
                                : 0.0;
                        ASSERT_NEAR(ear.mChannels[channel][at + i], wanted, kTolerance) << seconds << " " << channel;
                    }
                }
                at += frames;
            }
        });
    }
}

TEST(OutputUnit, LosesNoFrameOverRefusalsOtherDefaultsPausesAndDevicesThatAreAway)
{
    ExpectForked([] {
        Ear ear;
        Scenario s;
        auto& speakers = s.output("speakers").quantum(1024).crystal(+300);
        auto& headset = s.output("headset").quantum(256);
        ear.Hear(speakers);
        Player player(kStereo, Count);
        player.mDeviceHz = kStereoHz * 1.0003;
        player.Start();
        const auto play = [&](auto length) {
            const int64_t before = player.mGiven;
            s.runFor(length);
            return int64_t(player.mGiven - before);
        };
        EXPECT_NEAR(double(play(1s)), kStereoHz, 1100);
        player.mRefuses = true;
        const size_t silent = ear.SilentFrames();
        EXPECT_NEAR(double(play(3s)), 2 * kStereoHz, 1100);
        EXPECT_EQ(ear.SilentFrames() - silent, 1024 * player.mRefused) << "a refusal is a cycle of silence";
        player.mRefuses = false;
        player.mDeviceHz = 0;

        s.at(s.now() + 10ms).unplug(headset).unplug(speakers);
        EXPECT_LT(play(1s), 1024 + 1);
        EXPECT_EQ(player.Device(), 0u);
        ear.Hear(headset);
        s.at(s.now() + 10ms).plug(headset);
        s.at(s.now() + 200ms).plug(speakers).serverDown();
        s.at(s.now() + 300ms).serverUp();
        s.at(s.now() + 400ms).makeDefault(headset);
        EXPECT_NEAR(double(play(1s)), 0.89 * kStereoHz, 3000);
        EXPECT_EQ(Breaks(ear.mChannels[0]), 0u);
    });
}

TEST(OutputUnit, PlaysBetweenStartAndStopAndOnTheChosenDeviceAlone)
{
    ExpectForked([] {
        Ear loud, quiet;
        Scenario s;
        auto& speakers = s.output("speakers").quantum(512);
        auto& headset = s.output("headset").quantum(512).channels({ChannelPosition::Mono});
        Player player(kStereo, Count), other(kStereo, [](unsigned, int64_t, double) { return 0.25f; });
        const AudioDeviceID standard = player.Device();
        s.at(0s).makeDefault(headset);
        s.runUntil(1ms);
        const AudioDeviceID chosen = player.Device();
        EXPECT_NE(chosen, standard);
        EXPECT_EQ(Set(player.mUnit, kAudioOutputUnitProperty_CurrentDevice, kGlobal, 0, AudioDeviceID{4711}),
                  kAudioHardwareBadDeviceError);
        EXPECT_EQ(Set(player.mUnit, kAudioOutputUnitProperty_CurrentDevice, kGlobal, 0, standard), 0);
        EXPECT_EQ(player.Device(), standard);
        EXPECT_EQ(AudioOutputUnitStart(player.mUnit), kAudioUnitErr_Uninitialized);

        loud.Hear(speakers);
        quiet.Hear(headset);
        UInt32 running = 1;
        EXPECT_EQ(Get(player.mUnit, kAudioOutputUnitProperty_IsRunning, kGlobal, 0, running), 0);
        EXPECT_EQ(running, 0u);
        player.Start();
        EXPECT_EQ(Get(player.mUnit, kAudioOutputUnitProperty_IsRunning, kGlobal, 0, running), 0);
        EXPECT_EQ(running, 1u);
        EXPECT_EQ(Set(player.mUnit, kAudioOutputUnitProperty_CurrentDevice, kGlobal, 0, chosen),
                  kAudioUnitErr_Initialized);
        other.Start();
        s.runUntil(500ms);
        EXPECT_EQ(AudioOutputUnitStop(player.mUnit), 0);
        const int64_t given = player.mGiven;
        const size_t heard = loud.mChannels[0].size();
        s.runUntil(1s);
        EXPECT_EQ(player.mGiven, given);
        EXPECT_EQ(std::count(loud.mChannels[0].begin() + long(heard), loud.mChannels[0].end(), 0.0f),
                  long(loud.mChannels[0].size() - heard));
        EXPECT_EQ(Breaks(loud.mChannels[0]), 0u);
        EXPECT_EQ(quiet.mChannels[0].back(), 0.25f) << "the mean of both channels, which are equal";
        EXPECT_TRUE(s.machine().GetAudioServer().Snapshot().mStreams.empty()) << "it is no application";
        EXPECT_EQ(AudioUnitUninitialize(other.mUnit), 0);
    });
}

}  // namespace platform::machine::simulated
