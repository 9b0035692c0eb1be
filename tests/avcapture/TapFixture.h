// TapServiceFixture: a scripted service on a fake machine. TapFixture: a tap on it, and what its callback was given.
#pragma once

#include "avcapture/AVCaptureCorvane.h"
#include "platform/kernel/Realtime.h"
#include "support/FakeMachine.h"
#include "support/ScriptedTapService.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

inline AudioStreamBasicDescription FloatFormat(double rate = 44100, uint32_t channels = 2)
{
    constexpr uint32_t kFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
    return {rate, kAudioFormatLinearPCM, kFlags, channels * 4, 1, channels * 4, channels, 32, 0};
}

inline AudioStreamBasicDescription Int16Format(uint32_t flags = 0)
{
    flags |= kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    return {44100, kAudioFormatLinearPCM, flags, 4, 1, 4, 2, 16, 0};
}

inline cf::Ref<cf::Object> Number(int32_t value)
{
    return cf::Ref<cf::Object>::Adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value));
}

inline cf::Ref<cf::Array> Array(std::vector<CFTypeRef> values)
{
    return cf::Ref<cf::Array>::Adopt(CFArrayCreate(kCFAllocatorDefault, values.data(), CFIndex(values.size())));
}

/// What a chunk was delivered with.
struct Delivered {
    std::vector<uint8_t> mBytes;
    uint32_t mFrames;
    uint64_t mTimeUS;

    float FloatAt(size_t sample) const
    {
        float value;
        std::memcpy(&value, mBytes.data() + sample * 4, 4);
        return value;
    }
};

class TapServiceFixture : public testing::Test {
protected:
    TapServiceFixture() { mService->mVersion = Number(2); }
    ~TapServiceFixture() override
    {
        EXPECT_EQ(mService->mClients, 0);
        EXPECT_EQ(mMachine.mMemory.mBytes, mBytesBefore);
        platform::kernel::WithdrawServices();
    }

    support::FakeMachine& mMachine = support::FakeMachine::Installed();
    std::shared_ptr<support::ScriptedTapService> mService = support::ScriptedTapService::Publish();
    const size_t mBytesBefore = mMachine.mMemory.mBytes;
};

class TapFixture : public TapServiceFixture {
protected:
    TapFixture() { mDetails.audioFormat = FloatFormat(); }

    int32_t Create(const cf::Ref<cf::Array>& devices = Array({CFSTR("speakers")}),
                   const cf::Ref<cf::Array>& processes = {}, bool translated = false)
    {
        AVCaptureCorvane* tap = nullptr;
        const int32_t error = AVCaptureCorvane::CreateWithCallback(&tap, Take, mUserData, mDetails, devices.Get(),
                                                                   processes.Get(), mFlags, translated);
        mTap.reset(tap);
        EXPECT_EQ(tap == nullptr, error != 0);
        return error;
    }

    /// A tap whose reader stands at the writer, with no thread of its own.
    void CreateAtWriter()
    {
        ASSERT_EQ(Create(), 0);
        mTap->MoveToWriter();
    }

    AVCaptureDetails mDetails;
    unsigned int mFlags = kAVCaptureLowLatencyAudio;
    void* mUserData = this;
    std::vector<Delivered> mDelivered;
    std::function<int()> mOnChunk = [] { return 0; };  // after the chunk was kept
    std::unique_ptr<AVCaptureCorvane> mTap;

private:
    static int Take(void* self, const void* samples, uint32_t bytes, uint32_t frames, uint64_t timeUS,
                    AudioStreamBasicDescription format)
    {
        const platform::kernel::RealtimeExemption exemption("a test keeps what it hears");
        auto& fixture = *static_cast<TapFixture*>(self);
        const auto* from = static_cast<const uint8_t*>(samples);
        EXPECT_EQ(format.mFormatFlags, fixture.mDetails.audioFormat.mFormatFlags);
        fixture.mDelivered.push_back({{from, from + bytes}, frames, timeUS});
        return fixture.mOnChunk();
    }
};
