#include "record/InputSource.h"

#include "capture/buffers/CAAudioBufferList.h"
#include "platform/foundation/CFDictionary.h"
#include "platform/kernel/HostTime.h"
#include "platform/machine/Clock.h"
#include "platform/machine/Machine.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace record {

namespace kernel = platform::kernel;

namespace {

// Often enough for the graph's rings, which hold seconds.
constexpr uint64_t kRelaxedRenderNanos = 125'000'000;
constexpr uint64_t kLiveRenderNanos = 10'000'000;

}  // namespace

InputSource::InputSource(const FrameGrid& grid, std::string uid, unsigned channels, bool live, size_t queueFrames)
    : mGrid(grid),
      mUID(std::move(uid)),
      mChannels(channels),
      mWakeNanos(live ? kLiveRenderNanos : kRelaxedRenderNanos),
      mStrand(channels, queueFrames),
      mInterleaved(size_t(kCycleFrames) * channels)
{
}

InputSource::~InputSource()
{
    Stop();
}

int InputSource::Open()
{
    AudioStreamBasicDescription format;
    mCapture.GetCaptureDesc(&format);
    format.mSampleRate = mGrid.RateHz();
    format.mChannelsPerFrame = mChannels;
    mCapture.SetCaptureDesc(&format);
    mCapture.SetOutputChannelCount(0);
    mOpen = true;
    mBuffers = CAAudioBufferList::Create(&format, kCycleFrames);
    if (!mBuffers || !mBuffers->mBuffers[0].mData) return -108;
    const auto uid =
        cf::Ref<cf::String>::Adopt(CFStringCreateWithCString(kCFAllocatorDefault, mUID.c_str(), kCFStringEncodingUTF8));
    if (const int status = mCapture.AddInputDeviceCapture(uid.Get(), 0)) return status;
    if (const int status = mCapture.Initialize()) return status;
    return mCapture.GetLatencyNanos(&mLatencyNanos);
}

int InputSource::Start()
{
    if (const int status = mCapture.Resume()) return status;
    mRuns = kernel::pthread_create(&mThread, nullptr, Entry, this, "input pull") == 0;
    return mRuns ? 0 : -108;
}

void InputSource::Stop()
{
    mStop.store(true, std::memory_order_relaxed);
    if (std::exchange(mRuns, false)) kernel::pthread_join(mThread, nullptr);
    if (!std::exchange(mOpen, false)) return;
    mCapture.Pause();
    mCapture.Uninitialize();
    CAAudioBufferList::Deallocate(std::exchange(mBuffers, nullptr));
}

uint64_t InputSource::DelayNanos() const
{
    return mLatencyNanos + mWakeNanos;
}

std::optional<uint64_t> InputSource::FirstSound()
{
    const uint64_t frame = mFirstSound.load(std::memory_order_relaxed);
    return frame ? std::optional(frame) : std::nullopt;
}

void* InputSource::Entry(void* source)
{
    static_cast<InputSource*>(source)->Run();
    return nullptr;
}

void InputSource::Run()
{
    platform::machine::Clock& clock = platform::machine::Machine::Current().GetClock();
    for (uint64_t due = clock.NowNanos(); !mStop.load(std::memory_order_relaxed); due += mWakeNanos) {
        clock.SleepUntil(due);
        RenderDue();
    }
}

/// Until nothing more is due, or nothing more is there: after an outage the graph catches up in one wake.
void InputSource::RenderDue()
{
    do {
        CollectGaps();
    } while (IsDue() && RenderCycle());
}

/// Gaps that the graph plays as silence; the recorder itself misses longer ones.
void InputSource::CollectGaps()
{
    double ahead = 0, seconds = 0;
    while (mCapture.TakeInputGap(0, &ahead, &seconds)) {
        const double start = double(NextFrame()) + std::round(ahead * mGrid.RateHz());
        if (mAlignedNanos == 0 || start < 0) continue;
        const CAMutex::Scope lock(mGapMutex);
        mGaps.push_back({uint64_t(start), uint64_t(std::round(seconds * mGrid.RateHz()))});
    }
}

void InputSource::CollectSilences(SilenceAccount& account, size_t source)
{
    const CAMutex::Scope lock(mGapMutex);
    for (const FrameSpan& gap : mGaps) account.Add(source, SilenceCause::NotDelivered, gap);
    mGaps.clear();
}

/// A frame is asked for when its stamp's time has come, so that the graph plays each frame when its clock means it to.
bool InputSource::IsDue() const noexcept
{
    if (mAlignedNanos == 0) return true;
    const uint64_t end = mRendered + kCycleFrames;
    const uint64_t nanos = mGrid.NanosAt(end);
    return mach_absolute_time() >= mAlignedNanos + nanos;
}

/// Frames at the beginning of the cycle that hold nothing of the device: its first frame is on its way through the
/// graph for less than the latency.
uint32_t InputSource::EmptyFrames(uint64_t frame) const noexcept
{
    const uint64_t latest = mGrid.FrameAt(mAlignedNanos);
    const auto most = uint32_t(std::min<uint64_t>(std::max(frame, latest) - frame, kCycleFrames));
    const auto end = mInterleaved.begin() + ptrdiff_t(size_t(most) * mChannels);
    const auto sound = std::find_if(mInterleaved.begin(), end, [](float sample) { return sample != 0; });
    return mHasSounded ? 0 : uint32_t(size_t(sound - mInterleaved.begin()) / mChannels);
}

/// @return whether the graph had sound
bool InputSource::RenderCycle() CORVANE_REALTIME
{
    const kernel::RealtimeScope scope;
    const CVNRenderCounts before = mCapture.GetRenderCounts();
    AudioTimeStamp time{};
    time.mHostTime = mach_absolute_time();
    time.mFlags = kAudioTimeStampHostTimeValid;
    UInt32 flags = 0;
    if (mCapture.Render(&flags, &time, 0, kCycleFrames, mBuffers) != 0) return false;
    const CVNRenderCounts after = mCapture.GetRenderCounts();
    if (after.mWaitingCycles != before.mWaitingCycles || after.mSilentCycles != before.mSilentCycles) return false;

    if (const uint64_t aligned = mCapture.GetAlignedHostTime(); aligned != mAlignedNanos) {
        mAlignedNanos = aligned;
        mRendered = 0;
        mHasSounded = false;
    }
    AudioBufferList whole{1, {{mChannels, UInt32(mInterleaved.size() * sizeof(float)), mInterleaved.data()}}};
    CAAudioBufferList::Interleave(mBuffers, &whole);
    const uint64_t frame = NextFrame();
    const uint32_t empty = EmptyFrames(frame);
    mStrand.Put(frame + empty, mInterleaved.data() + size_t(empty) * mChannels, kCycleFrames - empty);
    mHasSounded = mHasSounded || empty < kCycleFrames;
    const bool isFirst = empty < kCycleFrames && mFirstSound.load(std::memory_order_relaxed) == 0;
    if (isFirst) mFirstSound.store(frame + empty, std::memory_order_relaxed);
    mRendered += kCycleFrames;
    return true;
}

}  // namespace record
