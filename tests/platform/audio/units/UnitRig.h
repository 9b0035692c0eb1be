// UnitRig: units as a client sees them, with a scripted source, and the chain that a capture puts after each source.
// Start at Chain.
#pragma once

#include "platform/audio/AudioUnit.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace support {

constexpr UInt32 kGlobal = kAudioUnitScope_Global, kInput = kAudioUnitScope_Input, kOutput = kAudioUnitScope_Output;
constexpr UInt32 kInterleaved = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
constexpr UInt32 kPlanar = kInterleaved | kAudioFormatFlagIsNonInterleaved;

inline AudioStreamBasicDescription FloatFormat(double rateHz, UInt32 channels, UInt32 flags = kPlanar)
{
    const UInt32 bytes = 4 * (flags == kPlanar ? 1 : channels);
    return {rateHz, kAudioFormatLinearPCM, flags, bytes, 1, bytes, channels, 32, 0};
}

inline ComponentDescription Description(const char (&subtype)[5])
{
    return {0, FourCC(subtype), FourCC("appl"), 0, 0};
}

struct Closer {
    void operator()(AudioUnit unit) const { CloseComponent(unit); }
};
using OwnedUnit = std::unique_ptr<OpaqueAudioUnit, Closer>;

inline OwnedUnit Open(const char (&subtype)[5])
{
    ComponentDescription description = Description(subtype);
    AudioUnit unit = nullptr;
    EXPECT_EQ(OpenAComponent(FindNextComponent(nullptr, &description), &unit), 0);
    return OwnedUnit(unit);
}

template <typename T>
OSStatus Set(AudioUnit unit, UInt32 property, UInt32 scope, UInt32 element, const T& value)
{
    return AudioUnitSetProperty(unit, property, scope, element, &value, sizeof value);
}

template <typename T>
OSStatus Get(AudioUnit unit, UInt32 property, UInt32 scope, UInt32 element, T& value)
{
    UInt32 bytes = sizeof value;
    return AudioUnitGetProperty(unit, property, scope, element, &value, &bytes);
}

inline OSStatus SetFormat(AudioUnit unit, UInt32 scope, UInt32 element, const AudioStreamBasicDescription& format)
{
    return Set(unit, kAudioUnitProperty_StreamFormat, scope, element, format);
}

using Channels = std::vector<std::vector<float>>;

/// Renders into the channels, whose sizes say how many frames.
inline OSStatus Render(AudioUnit unit, Channels& channels, UInt32 bus = 0)
{
    std::vector<uint64_t> memory(1 + 2 * channels.size());
    auto* const list = reinterpret_cast<AudioBufferList*>(memory.data());
    list->mNumberBuffers = UInt32(channels.size());
    for (size_t i = 0; i < channels.size(); ++i)
        list->mBuffers[i] = {1, UInt32(4 * channels[i].size()), channels[i].data()};
    AudioUnitRenderActionFlags flags = 0;
    const AudioTimeStamp time{};
    return AudioUnitRender(unit, &flags, &time, bus, UInt32(channels[0].size()), list);
}

/// Gives the frames of a signal one after the other, and counts them.
struct SignalSource {
    std::function<float(unsigned channel, int64_t frame)> mSignal;
    std::function<OSStatus()> mRefuse = [] { return 0; };
    int64_t mGiven = 0;

    void Feed(AudioUnit unit, UInt32 bus)
    {
        const AURenderCallbackStruct callback{Give, this};
        EXPECT_EQ(Set(unit, kAudioUnitProperty_SetRenderCallback, kInput, bus, callback), 0);
    }

private:
    static OSStatus Give(void* me, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32, UInt32 frames,
                         AudioBufferList* list)
    {
        auto& source = *static_cast<SignalSource*>(me);
        if (const OSStatus refusal = source.mRefuse()) return refusal;
        for (UInt32 buffer = 0; buffer < list->mNumberBuffers; ++buffer) {
            const AudioBuffer& to = list->mBuffers[buffer];
            const UInt32 channels = to.mNumberChannels;
            EXPECT_EQ(to.mDataByteSize, frames * channels * 4);
            for (UInt32 i = 0; i < frames * channels; ++i)
                static_cast<float*>(to.mData)[i] = source.mSignal(buffer + i % channels, source.mGiven + i / channels);
        }
        source.mGiven += frames;
        return 0;
    }
};

/// A signal without any pattern, different in each channel.
inline float Noise(unsigned channel, int64_t frame)
{
    auto bits = static_cast<uint32_t>(frame * 2654435761u + channel * 40503u);
    bits = (bits ^ bits >> 15) * 2246822519u;
    return static_cast<float>(static_cast<int32_t>(bits ^ bits >> 13)) * 0x1p-31f;
}

/// Converter, varispeed and generic output, as a capture puts them after a source.
class Chain {
public:
    Chain(const AudioStreamBasicDescription& from, double toHz, SignalSource source, UInt32 quality = 0)
        : mSource(std::move(source)), mOutput(from.mChannelsPerFrame)
    {
        const AudioStreamBasicDescription to = FloatFormat(toHz, from.mChannelsPerFrame);
        const char subtypes[][5] = {"genr", "vari", "conv"};
        AudioUnit* const units[] = {&mUnit, &mVarispeed, &mConverter};
        EXPECT_EQ(NewAUGraph(&mGraph), 0);
        AUNode nodes[3] = {};
        for (int i = 0; i < 3; ++i) {
            const ComponentDescription description = Description(subtypes[i]);
            EXPECT_EQ(AUGraphNewNode(mGraph, &description, 0, nullptr, &nodes[i]), 0);
        }
        EXPECT_EQ(AUGraphOpen(mGraph), 0);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(AUGraphGetNodeInfo(mGraph, nodes[i], nullptr, nullptr, nullptr, units[i]), 0);
            EXPECT_EQ(SetFormat(*units[i], kInput, 0, i == 2 ? from : to), 0);
            EXPECT_EQ(SetFormat(*units[i], kOutput, 0, to), 0);
        }
        for (int i : {1, 2}) {
            EXPECT_EQ(AUGraphConnectNodeInput(mGraph, nodes[i], 0, nodes[i - 1], 0), 0);
        }
        EXPECT_EQ(Set(mVarispeed, kAudioUnitProperty_RenderQuality, kGlobal, 0, quality), 0);
        mSource.Feed(mConverter, 0);
        EXPECT_EQ(AUGraphInitialize(mGraph), 0);
        EXPECT_EQ(AUGraphStart(mGraph), 0);
    }
    ~Chain() { EXPECT_EQ(DisposeAUGraph(mGraph), 0); }

    OSStatus SetSpeed(Float32 speed) { return AudioUnitSetParameter(mVarispeed, 0, kGlobal, 0, speed, 0); }

    /// Renders a block, and appends it to mOutput unless it was refused.
    OSStatus Pull(UInt32 frames)
    {
        constexpr float kUntouched = 77;
        const Channels before(mOutput.size(), std::vector<float>(frames, kUntouched));
        Channels block = before;
        const OSStatus status = Render(mUnit, block);
        if (status != 0) {
            EXPECT_EQ(block, before);
            return status;
        }
        for (size_t i = 0; i < block.size(); ++i) mOutput[i].insert(mOutput[i].end(), block[i].begin(), block[i].end());
        return 0;
    }

    SignalSource mSource;
    Channels mOutput;
    AudioUnit mUnit = nullptr, mVarispeed = nullptr, mConverter = nullptr;

private:
    AUGraph mGraph = nullptr;
};

}  // namespace support
