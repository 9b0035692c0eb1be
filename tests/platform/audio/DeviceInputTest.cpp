#include "platform/audio/DeviceInput.h"

#include "platform/audio/DeviceClock.h"
#include "platform/audio/PublishedReading.h"
#include "platform/foundation/CFDictionary.h"
#include "platform/kernel/Realtime.h"
#include "support/FakeMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <thread>
#include <utility>

namespace platform::audio {

using machine::CaptureCycle;
using machine::ChannelPosition;
using testing::ElementsAre;

namespace {

constexpr uint64_t kSecond = 1'000'000'000;

AudioDeviceID NumberOf(const char* uid)
{
    CFStringRef string = CFSTR(uid);
    AudioDeviceID device = 0;
    AudioValueTranslation translation{&string, sizeof string, &device, sizeof device};
    UInt32 size = sizeof translation;
    EXPECT_EQ(AudioHardwareGetProperty(kAudioHardwarePropertyDeviceForUID, &size, &translation), 0);
    return device;
}

/// Keeps stamps, and the left channel's samples.
class Client final : public DeviceInputClient {
public:
    void TakeBuffer(const AudioTimeStamp& time, UInt32 frames, std::span<const float* const> channels) noexcept override
    {
        const kernel::RealtimeExemption exemption("a test keeps what it is given");
        mTimes.push_back(time);
        mFrames.push_back(frames);
        if (channels[0]) mLeft.insert(mLeft.end(), channels[0], channels[0] + frames);
        mChannels.assign(channels.begin(), channels.end());
    }

    std::vector<int64_t> SampleTimes() const
    {
        std::vector<int64_t> times;
        for (const AudioTimeStamp& time : mTimes) times.push_back(int64_t(time.mSampleTime));
        return times;
    }

    std::vector<AudioTimeStamp> mTimes;
    std::vector<UInt32> mFrames;
    std::vector<float> mLeft;
    std::vector<const float*> mChannels;
};

/// An input device whose every frame carries its number, with a crystal of its own.
class Device {
public:
    explicit Device(support::FakeAudioServer& server, double ppm = 0) : mServer(server), mPPM(ppm) {}

    /// Delivers the next cycle under the stamp of the one `later` cycles after it.
    void DeliverOne(unsigned later, uint64_t lateNanos = 0)
    {
        for (unsigned i = 0; i < kFrames; ++i) mSound[i] = float(mProduced + i);
        mProduced += kFrames;
        const int64_t position = mPosition + later * int64_t(kFrames);
        const CaptureCycle::Channel channels[] = {{ChannelPosition::FrontRight, mSilence},
                                                  {ChannelPosition::FrontLeft, mSound}};
        mServer.Deliver("microphone", {.mHostNanos = HostNanosOf(position) + lateNanos,
                                       .mSampleTime = position,
                                       .mRateScalar = 1,
                                       .mRateHz = 48000,
                                       .mFrames = kFrames,
                                       .mClockID = mClockID,
                                       .mChannels = channels,
                                       .mResumed = std::exchange(mResumes, false)});
        mPosition += kFrames;
    }
    /// Delivers the next cycles, each with a stamp as late as `lateNanos` says.
    void Deliver(
        int cycles, const std::function<uint64_t()>& lateNanos = [] { return 0; })
    {
        for (int i = 0; i < cycles; ++i) DeliverOne(0, lateNanos());
    }
    /// Goes on without delivering.
    void Miss(unsigned cycles)
    {
        mPosition += cycles * int64_t(kFrames);
        mProduced += cycles * int64_t(kFrames);
    }
    /// Counts from somewhere else, as another driver does.
    void CountAnew(int64_t position)
    {
        mSinceNanos = HostNanosOf(mPosition);
        mSincePosition = mPosition = position;
        ++mClockID;
    }
    /// Is away for so long, and its count with it.
    void Rest(uint64_t nanos)
    {
        mSinceNanos += nanos;
        mResumes = true;
    }

    uint64_t HostNanosOf(int64_t position) const
    {
        const double seconds = double(position - mSincePosition) / (48000 * (1 + mPPM * 1e-6));
        return mSinceNanos + uint64_t(std::llround(seconds * 1e9));
    }

    static constexpr unsigned kFrames = 480;
    int64_t mPosition = 1'000'003;

private:
    support::FakeAudioServer& mServer;
    const double mPPM;
    uint64_t mSinceNanos = 1'000'000'000'000'007;
    int64_t mSincePosition = mPosition;
    int64_t mProduced = 0;
    uint32_t mClockID = 40;
    bool mResumes = false;
    float mSound[kFrames], mSilence[kFrames] = {};
};

class DeviceInputTest : public testing::Test {
protected:
    DeviceInputTest()
    {
        mServer.mSnapshot.mInputs = {
            {80, "microphone", "Microphone", 48000, {ChannelPosition::FrontLeft, ChannelPosition::FrontRight}},
            {81, "other", "Other", 44100, {ChannelPosition::Mono}}};
        mMicrophone = NumberOf("microphone");
    }

    support::FakeAudioServer& mServer = support::FakeMachine::Installed().mServer;
    Client mClient;
    AudioDeviceID mMicrophone = 0;
};

}  // namespace

TEST_F(DeviceInputTest, GivesTheDevicesChannelsInItsOrderAndStampsOnTheMoment)
{
    Device device(mServer);
    {
        DeviceInput input(mMicrophone, mClient);
        device.Deliver(3);
        EXPECT_EQ(mClient.mChannels[1][0], 0);
        EXPECT_EQ(mClient.mLeft.size(), 3 * Device::kFrames);
        EXPECT_EQ(mClient.mLeft.back(), 3 * Device::kFrames - 1);
        EXPECT_THAT(mClient.SampleTimes(), ElementsAre(1'000'003, 1'000'483, 1'000'963));
        EXPECT_EQ(mClient.mTimes[2].mHostTime, device.HostNanosOf(1'000'963) + StampLatencyNanos());
        EXPECT_EQ(mClient.mTimes[2].mRateScalar, 1);
        EXPECT_EQ(mClient.mTimes[2].mFlags, 7u);

        const CaptureCycle::Channel left[] = {{ChannelPosition::FrontLeft, mClient.mLeft.data()}};
        mServer.Deliver("microphone", {.mHostNanos = device.HostNanosOf(device.mPosition),
                                       .mSampleTime = device.mPosition,
                                       .mRateHz = 48000,
                                       .mFrames = 3,
                                       .mClockID = 40,
                                       .mChannels = left});
        EXPECT_EQ(mClient.mChannels[1], nullptr) << "nothing was linked there";
    }
    EXPECT_EQ(mServer.Deliver("microphone", {}), 0u);
    EXPECT_FALSE(ReadDeviceClock(mMicrophone));
    DeviceInput unknown(12'345, mClient);
}

TEST_F(DeviceInputTest, StampsShowTheCrystalAndNotTheWakeUps)
{
    Device device(mServer, 200);
    DeviceInput input(mMicrophone, mClient);
    unsigned seed = 1;
    device.Deliver(6000, [&] { return (seed = seed * 1664525 + 1013904223) >> 12; });  // up to a millisecond
    for (size_t i = 5000; i < mClient.mTimes.size(); ++i) {
        const AudioTimeStamp& time = mClient.mTimes[i];
        const uint64_t moment = device.HostNanosOf(int64_t(time.mSampleTime)) + StampLatencyNanos();
        ASSERT_NEAR(double(int64_t(time.mHostTime - moment)), 0, 20'000) << i;
    }
    double saidNanos = 0;
    for (const AudioTimeStamp& time : mClient.mTimes) saidNanos += Device::kFrames / 48000e-9 * time.mRateScalar;
    const double passed =
        double(device.HostNanosOf(device.mPosition) + StampLatencyNanos() - mClient.mTimes[0].mHostTime);
    EXPECT_NEAR(saidNanos, passed, 60'000) << "what was mis-said since the first stamp is paid back";
    const float speed = float(1.0 / mClient.mTimes.back().mRateScalar);
    EXPECT_EQ(1.0 / double(speed), mClient.mTimes.back().mRateScalar) << "the speed is a float's value";
}

TEST_F(DeviceInputTest, WhatIsMissingIsAGapOfItsLengthAndDoesNotUnsettleTheRate)
{
    Device device(mServer, 200);
    DeviceInput input(mMicrophone, mClient);
    device.Deliver(500);
    const double rate = mClient.mTimes.back().mRateScalar;
    EXPECT_NE(rate, 1);
    device.Miss(7);
    device.Deliver(2);
    ASSERT_EQ(mClient.mTimes.size(), 502u);
    EXPECT_EQ(mClient.mTimes[500].mSampleTime, mClient.mTimes[499].mSampleTime + 8 * Device::kFrames);
    EXPECT_EQ(mClient.mLeft[500 * Device::kFrames], 507 * Device::kFrames);
    EXPECT_NEAR(mClient.mTimes[501].mRateScalar, rate, 1e-6);
}

TEST_F(DeviceInputTest, ACycleUnderTheStampOfTheNextIsPutWhereItBelongs)
{
    Device device(mServer);
    DeviceInput input(mMicrophone, mClient);
    device.Deliver(2);
    device.DeliverOne(1);
    EXPECT_EQ(mClient.mTimes.size(), 2u) << "held until it shows what it was";
    device.Deliver(2);
    ASSERT_EQ(mClient.mTimes.size(), 5u);
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(mClient.mTimes[i].mSampleTime, 1'000'003 + i * Device::kFrames);
        EXPECT_EQ(mClient.mTimes[i].mHostTime,
                  device.HostNanosOf(int64_t(mClient.mTimes[i].mSampleTime)) + StampLatencyNanos());
    }
    for (size_t i = 0; i < mClient.mLeft.size(); ++i) ASSERT_EQ(mClient.mLeft[i], float(i));
}

TEST(HeldCycle, IsPutBackByWhatItSharesWithTheNextAndNotBeyondTheGap)
{
    const struct {
        int64_t mGap, mNext, mPlace;
        uint32_t mClockID;
    } cases[] = {
        {480, 1000, 520, 1}, {480, 1480, 1000, 1}, {480, 1240, 760, 1}, {100, 1000, 900, 1}, {480, 1000, 1000, 2}};
    for (const auto& at : cases) {
        HeldCycle held(1, 480);
        ASSERT_TRUE(held.Hold(
            {.mHostNanos = kSecond, .mSampleTime = 1000, .mRateHz = 48000, .mFrames = 480, .mClockID = 1}, at.mGap));
        const CaptureCycle& cycle =
            held.Release({.mSampleTime = at.mNext, .mRateHz = 48000, .mFrames = 480, .mClockID = at.mClockID});
        EXPECT_EQ(cycle.mSampleTime, at.mPlace);
        EXPECT_EQ(cycle.mHostNanos, kSecond - uint64_t(1000 - at.mPlace) * kSecond / 48000);
    }
}

TEST_F(DeviceInputTest, SampleTimesNeverGoBackAndNothingIsDropped)
{
    Device device(mServer);
    DeviceInput input(mMicrophone, mClient);
    device.DeliverOne(1);  // late from the first cycle on: nothing tells
    device.Deliver(3);
    device.CountAnew(5);
    device.Deliver(2);
    EXPECT_THAT(mClient.SampleTimes(), ElementsAre(1'000'483, 1'000'963, 1'001'443, 1'001'923, 1'002'403, 1'002'883));
    for (size_t i = 0; i < mClient.mLeft.size(); ++i) ASSERT_EQ(mClient.mLeft[i], float(i));
}

TEST_F(DeviceInputTest, ADeviceThatWasAwayComesBackAsMuchLaterAsItWasAway)
{
    Device device(mServer);
    DeviceInput input(mMicrophone, mClient);
    device.Deliver(2);
    for (const bool anew : {true, false}) {  // or its count goes on as if nothing had been
        if (anew) device.CountAnew(77);
        device.Rest(3 * kSecond);
        const uint64_t moment = device.HostNanosOf(device.mPosition);
        const double before = mClient.mTimes.back().mSampleTime;
        device.Deliver(1);
        EXPECT_NEAR(mClient.mTimes.back().mSampleTime - before, 3 * 48000 + Device::kFrames, 1);
        EXPECT_NEAR(double(int64_t(mClient.mTimes.back().mHostTime - moment - StampLatencyNanos())), 0, 21'000);
    }
}

TEST_F(DeviceInputTest, AHostTimeMeansTheSameFrameToAllWhoHaveTheDeviceOpen)
{
    Device device(mServer, -300);
    auto first = std::make_unique<DeviceInput>(mMicrophone, mClient);
    device.Deliver(400);
    device.CountAnew(17);
    device.Deliver(400);
    Client late;
    DeviceInput second(mMicrophone, late);
    device.Deliver(3);
    EXPECT_EQ(late.mTimes.back().mSampleTime, mClient.mTimes.back().mSampleTime);
    EXPECT_EQ(late.mTimes.back().mHostTime, mClient.mTimes.back().mHostTime);
    EXPECT_NE(late.mTimes.front().mRateScalar, 1) << "the rate is known already";
    first.reset();
    device.Deliver(1);
    EXPECT_EQ(late.mTimes.size(), 4u);
    EXPECT_TRUE(ReadDeviceClock(mMicrophone));
}

TEST_F(DeviceInputTest, TimesAreTranslatedBothWaysOnOneLine)
{
    AudioTimeStamp in{.mSampleTime = 1, .mFlags = 1}, out{.mFlags = 3}, now{};
    EXPECT_EQ(AudioDeviceTranslateTime(mMicrophone, &in, &out), kAudioHardwareNotRunningError);
    EXPECT_EQ(AudioDeviceGetCurrentTime(mMicrophone, &now), kAudioHardwareNotRunningError);
    Device device(mServer, 150);
    DeviceInput input(mMicrophone, mClient);
    device.Deliver(1000);
    const int64_t later = device.mPosition + 480'000;
    in = {.mHostTime = device.HostNanosOf(later) + StampLatencyNanos(), .mFlags = 2};
    EXPECT_EQ(AudioDeviceTranslateTime(mMicrophone, &in, &out), 0);
    EXPECT_EQ(out.mSampleTime, double(later));
    EXPECT_EQ(out.mHostTime, in.mHostTime);
    in.mHostTime += 6'000;  // 0.29 frames
    AudioDeviceTranslateTime(mMicrophone, &in, &out);
    EXPECT_EQ(out.mSampleTime, double(later));
    in.mHostTime += 9'000;  // 0.72
    AudioDeviceTranslateTime(mMicrophone, &in, &out);
    EXPECT_EQ(out.mSampleTime, double(later) + 1);
    in = {.mSampleTime = double(later), .mFlags = 1};
    EXPECT_EQ(AudioDeviceTranslateTime(mMicrophone, &in, &out), 0);
    EXPECT_NEAR(double(int64_t(out.mHostTime - device.HostNanosOf(later) - StampLatencyNanos())), 0, 2000);
    in.mFlags = kAudioTimeStampRateScalarValid;
    EXPECT_EQ(AudioDeviceTranslateTime(mMicrophone, &in, &out), kAudioHardwareIllegalOperationError);
    EXPECT_EQ(AudioDeviceGetCurrentTime(mMicrophone, &now), 0);
    EXPECT_EQ(now.mRateScalar, mClient.mTimes.back().mRateScalar);
    EXPECT_EQ(AudioDeviceGetCurrentTime(0, &now), kAudioHardwareNotRunningError) << "no device has no clock";
}

TEST_F(DeviceInputTest, ADriverWithoutTimesDeliversFramesThatHaveNone)
{
    DeviceInput input(mMicrophone, mClient);
    CaptureCycle cycle{.mRateHz = 48000, .mFrames = 100, .mClockID = 9};
    mServer.Deliver("microphone", cycle);
    EXPECT_EQ(mClient.mTimes[0].mHostTime, 0u);
    EXPECT_FALSE(ReadDeviceClock(mMicrophone));
    cycle.mSampleTime = 100;
    cycle.mHostNanos = 7 * kSecond;
    mServer.Deliver("microphone", cycle);
    EXPECT_EQ(mClient.mTimes[1].mSampleTime, 100);
    EXPECT_EQ(mClient.mTimes[1].mHostTime, 7 * kSecond + StampLatencyNanos());
}

TEST(PublishedReading, IsNeverTornAndNeverGoesBack)
{
    constexpr uint64_t kReadings = 2'000'000;
    PublishedReading published;
    std::thread reader([&] {
        for (uint64_t newest = 0; newest < kReadings;) {
            const std::optional<ClockReading> reading = published.Read();
            if (!reading) continue;
            ASSERT_GE(reading->mHostNanos, newest);
            newest = reading->mHostNanos;
            for (const double part : {reading->mSampleTime, reading->mFramesANano, reading->mRateScalar})
                ASSERT_EQ(part, double(newest));
        }
    });
    for (uint64_t i = 1; i <= kReadings; ++i) published.Publish({double(i), i, double(i), double(i)});
    reader.join();
    published.Withdraw();
    EXPECT_FALSE(published.Read());
}

}  // namespace platform::audio
