// FakeSource: a source whose buffers, stamps and clock are in a test's hand.
// The sample of a frame at sample time n is n / 2^20 on every channel, so that a block tells where it was taken from.
#pragma once

#include "capture/OSLAudio_InputCapture.h"
#include "platform/foundation/CFDictionary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

constexpr float SampleAt(double sampleTime)
{
    return float(sampleTime / (1 << 20));
}

inline AudioStreamBasicDescription FloatDesc(double rateHz, UInt32 channels, bool interleaved = true)
{
    const UInt32 bytes = interleaved ? 4 * channels : 4;
    const UInt32 flags =
        kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked | (interleaved ? 0 : kAudioFormatFlagIsNonInterleaved);
    return {rateHz, kAudioFormatLinearPCM, flags, bytes, 1, bytes, channels, 32, 0};
}

/// A list of mono buffers.
class Block {
public:
    Block(UInt32 channels, UInt32 frames, float fill = 0) : mSamples(channels, std::vector<float>(frames, fill))
    {
        mMemory.resize(8 + 16 * channels);
        List()->mNumberBuffers = channels;
        for (UInt32 channel = 0; channel < channels; ++channel)
            List()->mBuffers[channel] = {1, 4 * frames, mSamples[channel].data()};
    }
    AudioBufferList* List() { return reinterpret_cast<AudioBufferList*>(mMemory.data()); }
    const std::vector<float>& operator[](size_t channel) const { return mSamples[channel]; }
    bool IsSilent() const
    {
        return std::all_of(mSamples.begin(), mSamples.end(), [](const auto& channel) {
            return std::count(channel.begin(), channel.end(), 0.0F) == ptrdiff_t(channel.size());
        });
    }

private:
    std::vector<std::vector<float>> mSamples;
    std::vector<uint64_t> mMemory;
};

class FakeSource final : public OSLAudio_InputCapture {
public:
    explicit FakeSource(double rateHz = 48000, UInt32 channels = 2) : mDesc(FloatDesc(rateHz, channels)) {}
    OSStatus Initialize() override
    {
        mInitialized = true;
        return 0;
    }
    OSStatus Uninitialize() override { return 0; }
    OSStatus SetRenderCallback(AURenderCallback callback, void* refCon) override
    {
        mCallback = callback;
        mRefCon = refCon;
        return 0;
    }
    OSStatus Start() override
    {
        mStarted = mStartStatus == 0;
        return mStartStatus;
    }
    OSStatus Pause() override { return 0; }
    OSStatus GetAudioDesc(AudioStreamBasicDescription* desc) override
    {
        *desc = mDesc;
        return 0;
    }
    CFArrayRef CopyCapturedSources() override
    {
        const CFTypeRef uid = CFSTR("fake");
        return CFArrayCreate(kCFAllocatorDefault, &uid, 1);
    }
    OSStatus SetMuted(bool muted) override
    {
        mMuted = muted;
        return 0;
    }
    bool IsMuted() override { return mMuted; }
    bool IsMutable() override { return mMutable; }
    /// Sample time 0 is at host time mHostZero.
    OSStatus TranslateTime(const AudioTimeStamp* in, AudioTimeStamp* out) noexcept override
    {
        if (!mTranslates) return -1;
        out->mSampleTime = (double(in->mHostTime) - double(mHostZero)) * 1e-9 * mDesc.mSampleRate;
        return 0;
    }
    double GetRateScalar() noexcept override { return mRateScalar; }

    /// Delivers frames from `sampleTime` on, with the host time that goes with them.
    void Push(double sampleTime, UInt32 frames)
    {
        Push(sampleTime, frames, mHostZero + uint64_t(sampleTime * 1e9 / mDesc.mSampleRate + 0.5));
    }
    void Push(double sampleTime, UInt32 frames, uint64_t hostTime)
    {
        std::vector<float> samples;
        for (UInt32 frame = 0; frame < frames; ++frame)
            samples.insert(samples.end(), mDesc.mChannelsPerFrame, SampleAt(sampleTime + frame));
        AudioBufferList list = {1, {{mDesc.mChannelsPerFrame, UInt32(4 * samples.size()), samples.data()}}};
        AudioTimeStamp time{};
        time.mSampleTime = sampleTime;
        time.mHostTime = hostTime;
        UInt32 flags = 0;
        mCallback(mRefCon, &flags, &time, 0, frames, &list);
    }

    AudioStreamBasicDescription mDesc;
    uint64_t mHostZero = 1'000'000'007;
    double mRateScalar = 1.0;
    bool mTranslates = true;
    bool mMutable = false;
    bool mMuted = false;
    bool mStarted = false;
    OSStatus mStartStatus = 0;

private:
    AURenderCallback mCallback = nullptr;
    void* mRefCon = nullptr;
};
