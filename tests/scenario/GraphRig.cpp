#include "scenario/GraphRig.h"

#include "capture/buffers/AI.h"
#include "capture/buffers/CAAudioBufferList.h"
#include "platform/audio/StampLatency.h"
#include "platform/foundation/CFObjects.h"
#include "platform/kernel/IOKit.h"
#include "tap/Service.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace graph {

namespace {

constexpr double kTurn = 2 * std::numbers::pi;

Content ContentOf(std::span<const float> cosines, std::span<const float> sines)
{
    size_t sound = 0, silence = 0;
    for (size_t i = 0; i < cosines.size(); ++i) {
        const float power = cosines[i] * cosines[i] + sines[i] * sines[i];
        sound += std::abs(power - kAmplitude * kAmplitude) < 1e-3;
        silence += power == 0;
    }
    return sound == cosines.size() ? Content::Sound : silence == cosines.size() ? Content::Nothing : Content::Both;
}

/// The moment that a frame of the tone tells, but for whole periods.
double SecondsTold(float cosine, float sine)
{
    return std::atan2(sine, cosine) / (kTurn * kToneHz);
}

AudioDeviceID DeviceNumber(const std::string& uid)
{
    AudioDeviceID device = 0;
    const auto string =
        cf::Ref<cf::String>::Adopt(CFStringCreateWithCString(kCFAllocatorDefault, uid.c_str(), kCFStringEncodingUTF8));
    AI_GetDeviceWithUID(string.Get(), &device);
    return device;
}

/// Since the scenario's start, of a host time that is `latency` late.
double SecondsOf(uint64_t hostNanos, uint64_t latency)
{
    return static_cast<double>(static_cast<int64_t>(hostNanos - latency - kStartNanos)) * 1e-9;
}

}  // namespace

// ---- Witness

Witness::Witness(const std::string& uid) : mInput(DeviceNumber(uid), *this) {}

void Witness::TakeBuffer(const AudioTimeStamp& time, UInt32, std::span<const float* const> channels) noexcept
{
    if (time.mHostTime == 0) return;
    const double said = SecondsOf(time.mHostTime, platform::audio::StampLatencyNanos());
    const double off = std::remainder(said - SecondsTold(*channels[0], *channels[1]), 1 / kToneHz);
    const size_t buffers = mBuffers.load(std::memory_order_relaxed);
    Heard& heard = mHeard[buffers % mHeard.size()];
    heard.mHostNanos.store(time.mHostTime, std::memory_order_relaxed);
    heard.mOff.store(off, std::memory_order_relaxed);
    mBuffers.store(buffers + 1, std::memory_order_release);
}

double Witness::StampOff(uint64_t hostNanos) const
{
    const size_t buffers = mBuffers.load(std::memory_order_acquire), held = std::min(buffers, mHeard.size());
    for (size_t back = 1; back <= held; ++back) {
        const Heard& heard = mHeard[(buffers - back) % mHeard.size()];
        if (heard.mHostNanos.load(std::memory_order_relaxed) <= hostNanos || back == held)
            return heard.mOff.load(std::memory_order_relaxed);
    }
    return 0;
}

// ---- Track

void Track::Hear(std::span<const float> cosines, std::span<const float> sines, double seconds, double stampOff,
                 double frameSeconds)
{
    mLast = ContentOf(cosines, sines);
    mSilent += mBegun && mLast == Content::Nothing;
    mBroken += mBegun && mLast == Content::Both;
    if (!IsSounding()) return;
    const double step = kAmplitude * kAmplitude * std::sin(kTurn * kToneHz * frameSeconds);
    for (size_t i = mBegun ? 0 : 1; i < cosines.size(); ++i) {
        const double cosine = i ? cosines[i - 1] : mCosine, sine = i ? sines[i - 1] : mSine;
        const double frames = (cosine * sines[i] - sine * cosines[i]) / step;
        mSteps += std::abs(frames - 1) > 0.25;
        mWorstStep = std::max(mWorstStep, std::abs(frames - 1));
    }
    mCosine = cosines.back();
    mSine = sines.back();
    mOff = std::remainder(seconds - SecondsTold(cosines[0], sines[0]), 1 / kToneHz) / frameSeconds;
    if (!std::exchange(mBegun, true)) {
        mFirstOff = mOff;
        mFirstByStamps = mOff - stampOff / frameSeconds;
    }
    mMostMoved = std::max(mMostMoved, std::abs(mOff - mFirstOff));
}

// ---- Rig

Rig::Rig(Scenario& scenario, uint32_t rateHz, unsigned frames) : mScenario(scenario), mRateHz(rateHz), mFrames(frames)
{
    platform::kernel::PublishService(std::make_shared<tap::Service>());
}

Rig::~Rig()
{
    CAAudioBufferList::Deallocate(mOutput);
    platform::kernel::WithdrawServices();
}

int Rig::Start()
{
    AudioStreamBasicDescription desc;
    mCapture.GetCaptureDesc(&desc);
    desc.mSampleRate = mRateHz;
    desc.mChannelsPerFrame = static_cast<UInt32>(2 * std::max<size_t>(1, mPlans.size()));
    mCapture.SetCaptureDesc(&desc);
    mTracks.resize(mPlans.size());
    for (const Plan& plan : mPlans)
        if (const int status = Add(plan)) return status;
    if (const int status = mCapture.Initialize()) return status;
    mScenario.runFor(mPause);
    if (const int status = mCapture.Resume()) return status;
    for (const Plan& plan : mPlans) mWitnesses.push_back(plan.mIsTap ? nullptr : std::make_unique<Witness>(plan.mUID));
    mOutput = CAAudioBufferList::Create(&desc, mFrames);
    mCycles =
        static_cast<uint64_t>(std::ceil(std::chrono::duration<double>(mScenario.now()).count() * mRateHz / mFrames));
    return 0;
}

int Rig::Add(const Plan& plan)
{
    const auto uid = cf::Ref<cf::String>::Adopt(
        CFStringCreateWithCString(kCFAllocatorDefault, plan.mUID.c_str(), kCFStringEncodingUTF8));
    if (!plan.mIsTap) return mCapture.AddInputDeviceCapture(uid.Get(), 0);
    const CFTypeRef value = uid.Get();
    const auto devices = cf::Ref<cf::Array>::Adopt(CFArrayCreate(kCFAllocatorDefault, &value, 1));
    return mCapture.AddAudioSupportCapture(nullptr, devices.Get());
}

int Rig::Stop()
{
    const int status = mCapture.Pause();
    return status ? status : mCapture.Uninitialize();
}

void Rig::RunUntil(nanoseconds sinceStart)
{
    for (;;) {
        const nanoseconds due(mCycles * mFrames * 1'000'000'000ull / mRateHz);
        if (due >= sinceStart) break;
        mScenario.runUntil(due + nanoseconds(mRandom() % (mLatePulls.count() + 1)));
        Pull();
        ++mCycles;
    }
    mScenario.runUntil(sinceStart);
}

void Rig::Pull()
{
    const CVNRenderCounts before = mCapture.GetRenderCounts();
    const uint64_t aligned = mCapture.GetAlignedHostTime();
    const int status = Render();
    if (!mStatus) mStatus = status;
    const CVNRenderCounts now = mCapture.GetRenderCounts();
    if (mCapture.GetAlignedHostTime() != aligned) mGiven = 0;
    Listen();
    if (now.mWaitingCycles == before.mWaitingCycles && now.mSilentCycles == before.mSilentCycles) mGiven += mFrames;
}

int Rig::Render()
{
    AudioTimeStamp time{};
    time.mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid;
    time.mSampleTime = static_cast<double>(mCycles * mFrames);
    time.mHostTime = mScenario.machine().GetClock().NowNanos();
    UInt32 flags = 0;
    for (UInt32 i = 0; i < mOutput->mNumberBuffers; ++i) mOutput->mBuffers[i].mDataByteSize = mFrames * 4;
    return mCapture.Render(&flags, &time, 0, mFrames, mOutput);
}

void Rig::Listen()
{
    uint64_t latency = 0;
    mCapture.GetLatencyNanos(&latency);
    const double given = static_cast<double>(mGiven) * FrameSeconds();
    const double seconds = SecondsOf(mCapture.GetAlignedHostTime(), latency) + given;
    const uint64_t stamped =
        kStartNanos + platform::audio::StampLatencyNanos() + static_cast<uint64_t>(std::max(0.0, seconds) * 1e9);
    for (size_t i = 0; i < mTracks.size(); ++i) {
        const auto channel = [&](size_t c) {
            return std::span(static_cast<const float*>(mOutput->mBuffers[c].mData), mFrames);
        };
        mTracks[i].mHeld = mCapture.GetHeldFrames(i);
        const double stampOff = mWitnesses[i] ? mWitnesses[i]->StampOff(stamped) : 0;
        mTracks[i].Hear(channel(2 * i), channel(2 * i + 1), seconds, stampOff, FrameSeconds());
    }
    mPicture.Add(static_cast<double>(mCycles * mFrames) * FrameSeconds(), mTracks);
}

double Rig::MostOff(double Track::*off, bool taps) const
{
    double most = 0;
    for (size_t i = 0; i < mTracks.size(); ++i)
        if (mPlans[i].mIsTap == taps) most = std::max(most, std::abs(mTracks[i].*off));
    return most;
}

double Rig::Spread(double Track::*off) const
{
    double least = 1e9, most = -1e9;
    for (size_t i = 0; i < mTracks.size(); ++i) {
        if (mPlans[i].mIsTap) continue;
        least = std::min(least, mTracks[i].*off);
        most = std::max(most, mTracks[i].*off);
    }
    return std::max(0.0, most - least);
}

bool Rig::AllSound() const
{
    return std::ranges::all_of(mTracks, &Track::IsSounding);
}

}  // namespace graph
