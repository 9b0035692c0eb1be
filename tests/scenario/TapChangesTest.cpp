// The tap as a whole: applications play on the simulated server, the service publishes, a session collects.
#include "avcapture/AVCapture.h"
#include "platform/kernel/HostTime.h"
#include "platform/kernel/IOKit.h"
#include "platform/kernel/Realtime.h"
#include "platform/machine/simulated/Scenario.h"
#include "support/Forked.h"
#include "tap/Service.h"
#include "tap/TapLatency.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>

namespace {

using namespace std::chrono_literals;
using namespace platform::machine::simulated;
using support::ExpectForked;

constexpr size_t kSecond = 48'000;

/// A session that collects the left channel, at 48 kHz, of what the listed processes play on the listed devices.
class Session {
public:
    Session(const std::vector<std::string>& devices, const std::vector<int32_t>& processes)
    {
        platform::kernel::PublishService(std::make_shared<tap::Service>());
        AudioStreamBasicDescription format{};
        format.mSampleRate = 48'000;
        format.mFormatID = kAudioFormatLinearPCM;
        format.mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
        format.mBytesPerPacket = format.mBytesPerFrame = 8;
        format.mFramesPerPacket = 1;
        format.mChannelsPerFrame = 2;
        format.mBitsPerChannel = 32;

        AVCapture* session = nullptr;
        EXPECT_EQ(
            AVCapture::CreateAudio(&session, Take, this, format, UIDs(devices).Get(), Numbers(processes).Get(), 0), 0);
        mSession.reset(session);
        EXPECT_EQ(mSession->Resume(), 0);
    }

    AVCapture& operator*() const { return *mSession; }
    int UpdateTargets(const std::vector<std::string>& devices, const std::vector<int32_t>& processes)
    {
        return mSession->UpdateTargets(UIDs(devices).Get(), Numbers(processes).Get());
    }

    /// All that came, once the session has ended.
    const std::vector<float>& End()
    {
        mSession.reset();
        return mLeft;
    }

private:
    static cf::Ref<cf::Array> UIDs(const std::vector<std::string>& devices)
    {
        auto uids = cf::Ref<cf::Array>::Adopt(CFArrayCreateMutable(kCFAllocatorDefault, 0));
        for (const std::string& device : devices)
            Append(uids, CFStringCreateWithCString(kCFAllocatorDefault, device.c_str(), kCFStringEncodingUTF8));
        return uids;
    }
    static cf::Ref<cf::Array> Numbers(const std::vector<int32_t>& processes)
    {
        auto pids = cf::Ref<cf::Array>::Adopt(CFArrayCreateMutable(kCFAllocatorDefault, 0));
        for (const int32_t& process : processes)
            Append(pids, CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &process));
        return pids;
    }
    static void Append(const cf::Ref<cf::Array>& array, CFTypeRef value)
    {
        CFArrayAppendValue(const_cast<CFMutableArrayRef>(array.Get()), value);
        CFRelease(value);
    }
    static int Take(void* self, const void* samples, uint32_t, uint32_t frames, uint64_t, AudioStreamBasicDescription)
    {
        const platform::kernel::RealtimeExemption exemption("a test keeps what it hears");
        const auto* interleaved = static_cast<const float*>(samples);
        auto& left = static_cast<Session*>(self)->mLeft;
        for (uint32_t i = 0; i < frames; ++i) left.push_back(interleaved[2 * i]);
        return 0;
    }

    std::unique_ptr<AVCapture> mSession;
    std::vector<float> mLeft;
};

/// The regions themselves, without a client: a tap of all that one device plays, at 48 kHz.
class RawTap {
public:
    explicit RawTap(const char* device, int32_t publishFrames = 0)
    {
        platform::kernel::PublishService(std::make_shared<tap::Service>());
        io_iterator_t services = 0;
        IOServiceGetMatchingServices(kIOMasterPortDefault, IOServiceMatching("com_Ostrel_AudioSupport"), &services);
        const io_service_t service = IOIteratorNext(services);
        EXPECT_EQ(IOServiceOpen(service, mach_task_self(), 0, &mConnect), kIOReturnSuccess);

        const auto rate = List({Number(48'000), Number(0)});
        const auto channels = Number(2), publish = Number(publishFrames);
        const auto devices =
            List({Value::Adopt(CFStringCreateWithCString(kCFAllocatorDefault, device, kCFStringEncodingUTF8))});
        const CFStringRef keys[] = {CFSTR("IOAudioSampleRate"), CFSTR("IOAudioNumChannels"), CFSTR("IOAudioDevices"),
                                    CFSTR("IOAudioPublishFrames")};
        const CFTypeRef values[] = {rate.Get(), channels.Get(), devices.Get(), publish.Get()};
        const auto properties =
            Value::Adopt(CFDictionaryCreate(kCFAllocatorDefault, keys, values, publishFrames > 0 ? 4 : 3));
        EXPECT_EQ(IOConnectSetCFProperties(mConnect, properties.Get()), 0);

        uint64_t sizes[2];
        uint32_t count = 2;
        EXPECT_EQ(IOConnectCallScalarMethod(mConnect, 0, nullptr, 0, sizes, &count), 0);
        mAudio.resize(sizes[0] / 8);
        mStatus.resize(sizes[1] / 8);
        const auto audio = uint64_t(mAudio.data()), status = uint64_t(mStatus.data());
        const uint64_t regions[] = {sizes[0], audio >> 32, uint32_t(audio), sizes[1], status >> 32, uint32_t(status)};
        count = 0;
        EXPECT_EQ(IOConnectCallScalarMethod(mConnect, 5, regions, 6, nullptr, &count), 0);
    }
    ~RawTap() { IOServiceClose(mConnect); }

    uint32_t Field(size_t offset) const
    {
        auto* field = reinterpret_cast<uint32_t*>(reinterpret_cast<uintptr_t>(mStatus.data()) + offset);
        return std::atomic_ref(*field).load(std::memory_order_acquire);
    }
    uint64_t Published() const { return uint64_t(Field(72) - 1) * Field(20) + Field(76); }

private:
    using Value = cf::Ref<cf::Object>;
    static Value Number(int32_t value)
    {
        return Value::Adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value));
    }
    static Value List(const std::vector<Value>& values)
    {
        std::vector<CFTypeRef> objects;
        for (const Value& value : values) objects.push_back(value.Get());
        return Value::Adopt(CFArrayCreate(kCFAllocatorDefault, objects.data(), CFIndex(objects.size())));
    }

    io_connect_t mConnect = 0;
    std::vector<uint64_t> mAudio, mStatus;
};

Signal Constant(float value)
{
    return [value](const Stretch&, unsigned, std::span<float> samples) { std::ranges::fill(samples, value); };
}

size_t FirstSound(const std::vector<float>& frames, size_t from = 0)
{
    return size_t(std::find_if(frames.begin() + long(from), frames.end(), [](float x) { return x != 0; }) -
                  frames.begin());
}

/// Frames from `from` on whose whole part does not follow on the one before.
size_t Breaks(const std::vector<float>& frames, size_t from)
{
    size_t breaks = 0;
    for (size_t i = from + 1; i < frames.size(); ++i) breaks += std::floor(frames[i]) != std::floor(frames[i - 1]) + 1;
    return breaks;
}

}  // namespace

TEST(Tap, OneApplicationComesThroughBitExactAndNoOtherIsHeard)
{
    for (const uint32_t quantum : {1024u, 256u})
        ExpectForked([quantum] {
            Scenario s;
            auto& speakers = s.output("speakers").quantum(quantum);
            s.application("game", 200).plays(Counter(), speakers);
            s.application("other", 201).plays(Constant(0.25f), speakers);
            Session session({"speakers"}, {200});
            s.runFor(65s);
            const auto& frames = session.End();
            const size_t start = FirstSound(frames);
            EXPECT_LT(start, kSecond / 5);
            EXPECT_GT(frames.size(), 60 * kSecond);
            EXPECT_EQ(Breaks(frames, start), 0u);
            EXPECT_EQ(frames.back(), std::floor(frames.back())) << "the other one adds a quarter";
        });
}

// Asked at odd moments: what is published by then is what the clock says, to the block, for an hour.
#if defined(CORVANE_SANITIZED)
constexpr auto kRound = 10s;
constexpr int kRounds = 3;  // the sanitizers' hour, at their speed
#else
constexpr auto kRound = 100s;
constexpr int kRounds = 36;
#endif

TEST(Tap, FramesPublishedFollowTheHostClockWhateverTheCrystal)
{
    for (const double ppm : {-300.0, 300.0})
        ExpectForked([ppm] {
            Scenario s;
            auto& speakers = s.output("speakers").crystal(ppm).jitter(1ms);
            s.application("game", 200).plays(Constant(0.5f), speakers);
            const RawTap tap("speakers");
            const uint64_t start = mach_absolute_time();
            for (int i = 0; i < kRounds; ++i) {
                s.runFor(kRound + 123'457ns);
                const double due = double(mach_absolute_time() - start) * 1e-9 * kSecond;
                ASSERT_LE(double(tap.Published()), due + 0.01);
                ASSERT_GT(double(tap.Published()), due - 128.01);
            }
            EXPECT_EQ(tap.Field(80), 0u) << "dropped";
            EXPECT_EQ(tap.Field(84), 0u) << "starved";
        });
}

TEST(Tap, AClientThatCanWaitIsWokenForMoreThanABlock)
{
    for (const auto& [frames, blocks] : {std::pair(0, 1u), {127, 1u}, {6000, 46u}, {1 << 30, 128u}})
        ExpectForked([frames, blocks] {
            Scenario s;
            s.output("speakers");
            const RawTap tap("speakers", frames);
            uint64_t last = tap.Published();
            unsigned steps = 0;
            for (int i = 0; i < 4000; ++i) {
                s.runFor(1ms);
                steps += std::exchange(last, tap.Published()) != tap.Published();
            }
            EXPECT_NEAR(steps, 4.0 * kSecond / (blocks * 128), 1) << frames;
            EXPECT_EQ(tap.Field(96), frames > 0 ? tap.Field(20) / 4 : 2048) << "frames that it gathers at the most";
        });
}

TEST(Tap, TargetsChangeWhileItRunsAndWhatStaysHasNoGap)
{
    ExpectForked([] {
        Scenario s;
        auto& speakers = s.output("speakers");
        s.output("headset");
        s.application("game", 200).plays(Counter(), speakers);
        Session session({"speakers"}, {200});
        s.runFor(2s);
        EXPECT_EQ(session.UpdateTargets({"headset", "speakers"}, {200}), 0);
        s.runFor(2s);
        for (int i = 0; i < 100; ++i)  // more often than there can be devices
            EXPECT_EQ(session.UpdateTargets({i % 2 ? "speakers" : "headset"}, {200}), 0);
        EXPECT_EQ(session.UpdateTargets({"headset"}, {200}), 0);
        s.runFor(2s);
        std::vector<std::string> tooMany(65, "another ");
        for (std::string& device : tooMany) device += std::to_string(&device - tooMany.data());
        EXPECT_NE(session.UpdateTargets(tooMany, {200}), 0);
        EXPECT_EQ(session.UpdateTargets({"speakers"}, {200}), 0);
        s.runFor(2s);
        const auto& frames = session.End();
        const size_t start = FirstSound(frames), end = size_t(3.8 * kSecond), back = size_t(6.5 * kSecond);
        EXPECT_EQ(Breaks({frames.begin(), frames.begin() + long(end)}, start), 0u);
        EXPECT_EQ(frames[5 * kSecond], 0);
        EXPECT_EQ(Breaks(frames, back), 0u);
        EXPECT_EQ(frames[back] - frames[start], float(back - start)) << "at its moment again";
    });
}

TEST(Tap, ApplicationsJoinAndLeaveWithoutAGapForTheOthers)
{
    ExpectForked([] {
        Scenario s;
        auto& speakers = s.output("speakers");
        s.application("game", 200).plays(Counter(), speakers);
        auto& music = s.application("player", 300);
        auto& song = s.application("helper", 301, 300).plays(Constant(0.25f), speakers).stopped();
        s.at(2s).start(song);
        s.at(4s).end(music);
        Session session({"speakers"}, {200, 300});
        s.runFor(8s);
        const auto& frames = session.End();
        const size_t start = FirstSound(frames);
        EXPECT_EQ(Breaks(frames, start), 0u);
        const auto hasSong = [&](size_t second) {
            return frames[second * kSecond] != std::floor(frames[second * kSecond]);
        };
        EXPECT_FALSE(hasSong(1));
        EXPECT_TRUE(hasSong(3));
    });
}

TEST(Tap, WhatIsSilencedIsStillCapturedAndComesBackWithTheTapsEnd)
{
    ExpectForked([] {
        Scenario s;
        auto& speakers = s.output("speakers");
        auto& game = s.application("game", 200).plays(Counter(), speakers);
        auto& other = s.application("other", 201).plays(Counter(), speakers);
        Session session({"speakers"}, {200});
        s.runFor(1s);
        EXPECT_EQ((*session).UpdatePlayThru(false), 0);
        s.runFor(1s);
        const uint64_t heard = game.HeardFrames(), others = other.HeardFrames();
        s.runFor(3s);
        EXPECT_EQ(game.HeardFrames(), heard);
        EXPECT_NEAR(double(other.HeardFrames() - others), 3.0 * kSecond, 1024);

        const auto frames = session.End();
        s.runFor(1s);
        EXPECT_GT(game.HeardFrames(), heard) << "audible again";
        EXPECT_EQ(std::count(frames.begin() + long(FirstSound(frames)) + 1, frames.end(), 0.0f), 0);
        // The hole's clock is another one: its phase is paid back by resampling, and no frame is lost to it.
        EXPECT_NEAR(frames.back() - frames[kSecond], double(frames.size() - 1 - kSecond), 1024);
    });
}

TEST(Tap, ADeviceOrServerThatGoesIsSilenceUntilItIsBack)
{
    for (const bool server : {false, true})
        ExpectForked([server] {
            Scenario s;
            auto& speakers = s.output("speakers");
            s.application("game", 200).plays(Constant(0.5f), speakers);
            if (server) {
                s.at(2s).serverDown();
                s.at(3s).serverUp();
            } else {
                s.at(2s).unplug(speakers);
                s.at(3s).plug(speakers);
            }
            Session session({"speakers"}, {});
            s.runFor(5s);
            const auto& frames = session.End();
            // Sound ends and begins again where its moments lie, each with the same latency.
            const auto latency = 1e-9 * double(tap::TapLatencyNanos(s.machine().GetAudioServer().LongestCycleNanos(),
                                                                    tap::FixedRate(kSecond) << tap::kRateFractionBits));
            const size_t end = size_t(std::find(frames.begin() + kSecond, frames.end(), 0.0f) - frames.begin());
            const size_t back = FirstSound(frames, end + kSecond / 2);
            EXPECT_NEAR(double(end) / kSecond, 2 + latency, 0.03) << server;
            EXPECT_NEAR(double(back) / kSecond, 3 + latency, 0.03) << server;
            EXPECT_EQ(std::count(frames.begin() + long(end) + 64, frames.begin() + long(back) - 64, 0.0f),
                      long(back - end) - 128);
            EXPECT_GT(frames.size(), size_t(4.5 * kSecond)) << "the tap goes on meanwhile";
        });
}

TEST(Tap, AStreamIsFollowedToAnotherDeviceThatWasAskedForAndOnlyThere)
{
    ExpectForked([] {
        Scenario s;
        s.output("speakers");
        auto& headset = s.output("headset").crystal(200);
        auto& other = s.output("other");
        auto& song = s.application("player", 300).plays(Constant(0.5f));
        s.at(1s).makeDefault(headset);
        s.at(2s).move(song, other);
        s.at(3s).move(song, headset);
        Session session({"speakers", "headset"}, {300});
        s.runFor(5s);
        const auto& frames = session.End();
        const auto sounds = [&](double second) { return frames[size_t(second * kSecond)] != 0; };
        EXPECT_TRUE(sounds(0.9));
        EXPECT_TRUE(sounds(1.8));
        EXPECT_FALSE(sounds(2.5));
        EXPECT_TRUE(sounds(3.8));
    });
}

TEST(Tap, AStalledPacerOrASteppedClockLeavesTheTimeRight)
{
    for (const auto length : {200ms, 900ms, 2000ms})
        ExpectForked([length] {
            Scenario s;
            auto& speakers = s.output("speakers");
            s.application("game", 200).plays(Counter(), speakers);
            s.at(2s).stall("tap pacer", length);
            s.lateWakeups(4ms, 1);
            Session session({"speakers"}, {});
            s.runFor(9s);
            const auto& frames = session.End();
            EXPECT_EQ(Breaks(frames, FirstSound(frames)), 0u) << "a stall that the queues can hold costs no frame";
            EXPECT_GT(frames.size(), 8 * kSecond);
        });
    ExpectForked([] {
        Scenario s;
        auto& speakers = s.output("speakers");
        s.application("game", 200).plays(Constant(0.5f), speakers);
        Session session({"speakers"}, {});
        s.at(2s).stepClock(1h);
        s.runFor(2s + 1h + 3s);
        const auto& frames = session.End();
        EXPECT_LT(frames.size(), 8 * kSecond) << "nobody gets an hour that nobody played";
        EXPECT_EQ(frames.back(), 0.5f);
    });
}
