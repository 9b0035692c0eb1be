// One tap, both sides of its wire, on a simulated machine.
#include "avcapture/AVCapture.h"
#include "platform/foundation/CFDictionary.h"
#include "platform/kernel/IOKit.h"
#include "platform/machine/simulated/Scenario.h"
#include "support/Forked.h"
#include "tap/Service.h"
#include "tap/TapLatency.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using namespace std::chrono_literals;
using namespace platform::machine::simulated;
using support::ExpectForked;

constexpr double kRateHz = 44100;

// Under a sanitizer an hour would take minutes.
#if defined(CORVANE_SANITIZED)
constexpr std::chrono::seconds kLength = 3min;
#else
constexpr std::chrono::seconds kLength = 1h;
#endif

AudioStreamBasicDescription FloatFormat()
{
    return {kRateHz, kAudioFormatLinearPCM, kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked, 8, 1, 8, 2, 32, 0};
}

/// A session that captures the speakers, and what its callback was given.
class CountingSession {
public:
    explicit CountingSession(unsigned flags)
    {
        platform::kernel::PublishService(std::make_shared<tap::Service>());
        CFTypeRef uid = CFSTR("speakers");
        const auto devices = cf::Ref<cf::Array>::Adopt(CFArrayCreate(kCFAllocatorDefault, &uid, 1));
        AVCapture* session = nullptr;
        EXPECT_EQ(AVCapture::CreateAudio(&session, Take, this, FloatFormat(), devices.Get(), nullptr, flags), 0);
        mSession.reset(session);
        EXPECT_EQ(mSession->Resume(), 0);
    }

    ~CountingSession() { platform::kernel::WithdrawServices(); }

    void Stop() { EXPECT_EQ(mSession->Stop(), 0); }

    uint64_t mFrames = 0;
    uint64_t mBreaks = 0;        // samples that are not the successor of the one before, silence at the beginning apart
    uint64_t mSilentFrames = 0;  // before the first sound
    float mLast = -1;

private:
    static int Take(void* userData, const void* samples, uint32_t, uint32_t frames, uint64_t,
                    AudioStreamBasicDescription)
    {
        auto& self = *static_cast<CountingSession*>(userData);
        const float* left = static_cast<const float*>(samples);
        for (uint32_t i = 0; i < frames; ++i, left += 2) self.Hear(*left);
        self.mFrames += frames;
        return 0;
    }

    void Hear(float sample)
    {
        mSilentFrames += mLast <= 0 && sample == 0;
        const float next = std::fmod(mLast + 1, static_cast<float>(kCounterPeriodFrames));
        mBreaks += sample != next && !(mLast == 0 && sample == 0);
        mLast = sample;
    }

    std::unique_ptr<AVCapture> mSession;
};

}  // namespace

TEST(TapScenario, OneTapLosesAndDoublesNoFrame)
{
    ExpectForked([] {
        Scenario s;
        auto& speakers = s.output("speakers").rate(44100).quantum(1024);
        s.application("game", 200).plays(Counter(), speakers);
        CountingSession session(kAVCaptureLowLatencyAudio);
        s.runUntil(kLength);
        session.Stop();
        EXPECT_NEAR(static_cast<double>(session.mFrames), static_cast<double>(kLength.count()) * kRateHz, 4096);
        EXPECT_EQ(session.mBreaks, 0u);
        const double latency = static_cast<double>(tap::TapLatencyNanos(
            s.machine().GetAudioServer().LongestCycleNanos(), tap::FixedRate(kRateHz) << tap::kRateFractionBits));
        EXPECT_NEAR(static_cast<double>(session.mSilentFrames), latency * kRateHz / 1e9, 2);
    });
}
