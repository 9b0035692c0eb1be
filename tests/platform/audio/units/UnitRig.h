// UnitRig: units as a client sees them, with a scripted source, and the chain that a capture puts after each source.
// Start at Chain.
#pragma once

#include "platform/audio/AudioUnit.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace support {

constexpr UInt32 kInterleaved = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
constexpr UInt32 kPlanar = kInterleaved | kAudioFormatFlagIsNonInterleaved;

inline AudioStreamBasicDescription FloatFormat(double rateHz, UInt32 channels, UInt32 flags = kPlanar)
{
    const UInt32 bytes = 4 * (flags == kPlanar ? 1 : channels);
    return {rateHz, kAudioFormatLinearPCM, flags, bytes, 1, bytes, channels, 32, 0};
}

using Channels = std::vector<std::vector<float>>;

/// A buffer list over channels that lie apart.
class ListOf {
public:
    explicit ListOf(Channels& channels) : mMemory(1 + 2 * channels.size())
    {
        List()->mNumberBuffers = UInt32(channels.size());
        for (size_t i = 0; i < channels.size(); ++i)
            List()->mBuffers[i] = {1, UInt32(4 * channels[i].size()), channels[i].data()};
    }
    AudioBufferList* List() { return reinterpret_cast<AudioBufferList*>(mMemory.data()); }

private:
    std::vector<uint64_t> mMemory;
};

inline AudioUnit OpenUnit(const char (&type)[5], const char (&subtype)[5])
{
    ComponentDescription description{FourCC(type), FourCC(subtype), FourCC("appl"), 0, 0};
    AudioUnit unit = nullptr;
    EXPECT_EQ(OpenAComponent(FindNextComponent(nullptr, &description), &unit), 0);
    return unit;
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

/// Renders bus 0 into the channels, whose sizes say how many frames.
inline OSStatus Render(AudioUnit unit, Channels& channels, UInt32 bus = 0)
{
    ListOf list(channels);
    AudioUnitRenderActionFlags flags = 0;
    const AudioTimeStamp time{};
    return AudioUnitRender(unit, &flags, &time, bus, UInt32(channels[0].size()), list.List());
}

/// Gives the frames of a signal one after the other, and counts them.
struct SignalSource {
    std::function<float(unsigned channel, int64_t frame)> mSignal;
    std::function<OSStatus()> mRefuse = [] { return 0; };
    int64_t mGiven = 0;

    AURenderCallbackStruct Callback() { return {Give, this}; }

private:
    static OSStatus Give(void* me, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32, UInt32 frames,
                         AudioBufferList* list)
    {
        auto& source = *static_cast<SignalSource*>(me);
        if (const OSStatus refusal = source.mRefuse()) return refusal;
        for (UInt32 buffer = 0; buffer < list->mNumberBuffers; ++buffer) {
            const AudioBuffer& to = list->mBuffers[buffer];
            EXPECT_EQ(to.mDataByteSize, frames * to.mNumberChannels * 4);
            for (UInt32 i = 0; i < frames * to.mNumberChannels; ++i) {
                static_cast<float*>(to.mData)[i] =
                    source.mSignal(buffer + i % to.mNumberChannels, source.mGiven + i / to.mNumberChannels);
            }
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
        EXPECT_EQ(NewAUGraph(&mGraph), 0);
        const AUNode output = Add("auou", "genr"), varispeed = Add("aufc", "vari"), converter = Add("aufc", "conv");
        EXPECT_EQ(AUGraphOpen(mGraph), 0);
        mUnit = UnitOf(output);
        mVarispeed = UnitOf(varispeed);
        mConverter = UnitOf(converter);
        EXPECT_EQ(SetFormat(mConverter, kAudioUnitScope_Input, 0, from), 0);
        for (const AudioUnit unit : {mVarispeed, mUnit}) EXPECT_EQ(SetFormat(unit, kAudioUnitScope_Input, 0, to), 0);
        for (const AudioUnit unit : {mConverter, mVarispeed, mUnit})
            EXPECT_EQ(SetFormat(unit, kAudioUnitScope_Output, 0, to), 0);
        EXPECT_EQ(Set(mVarispeed, kAudioUnitProperty_RenderQuality, kAudioUnitScope_Global, 0, quality), 0);
        EXPECT_EQ(AUGraphConnectNodeInput(mGraph, varispeed, 0, output, 0), 0);
        EXPECT_EQ(AUGraphConnectNodeInput(mGraph, converter, 0, varispeed, 0), 0);
        EXPECT_EQ(Set(mConverter, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0, mSource.Callback()),
                  0);
        EXPECT_EQ(AUGraphInitialize(mGraph), 0);
        EXPECT_EQ(AUGraphStart(mGraph), 0);
    }
    ~Chain()
    {
        AUGraphUninitialize(mGraph);
        AUGraphClose(mGraph);
        DisposeAUGraph(mGraph);
    }

    void SetSpeed(Float32 speed)
    {
        EXPECT_EQ(AudioUnitSetParameter(mVarispeed, 0, kAudioUnitScope_Global, 0, speed, 0), 0);
    }

    /// Renders a block, and appends it to mOutput unless it was refused.
    OSStatus Pull(UInt32 frames)
    {
        constexpr float kUntouched = 77;
        Channels block(mOutput.size(), std::vector<float>(frames, kUntouched));
        const Channels before = block;
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
    AUNode Add(const char (&type)[5], const char (&subtype)[5])
    {
        const ComponentDescription description{FourCC(type), FourCC(subtype), FourCC("appl"), 0, 0};
        AUNode node = 0;
        EXPECT_EQ(AUGraphNewNode(mGraph, &description, 0, nullptr, &node), 0);
        return node;
    }
    AudioUnit UnitOf(AUNode node)
    {
        AudioUnit unit = nullptr;
        EXPECT_EQ(AUGraphGetNodeInfo(mGraph, node, nullptr, nullptr, nullptr, &unit), 0);
        return unit;
    }

    AUGraph mGraph = nullptr;
};

}  // namespace support
