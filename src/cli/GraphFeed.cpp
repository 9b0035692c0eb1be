#include "cli/GraphFeed.h"

#include "avcapture/AVCapture.h"
#include "capture/buffers/CAAudioBufferList.h"
#include "cli/Lists.h"
#include "platform/kernel/HostTime.h"
#include "platform/kernel/Threads.h"
#include "platform/machine/Clock.h"
#include "platform/machine/Machine.h"

namespace cli {

namespace kernel = platform::kernel;

GraphFeed::GraphFeed(const FeedWish& wish, FeedSink& sink)
    : mWish(wish), mSink(sink), mInterleaved(size_t(kCycleFrames) * wish.mChannels)
{
}

int GraphFeed::Open()
{
    AudioStreamBasicDescription format;
    mCapture.GetCaptureDesc(&format);
    format.mSampleRate = mWish.mRateHz;
    format.mChannelsPerFrame = mWish.mChannels;
    mCapture.SetCaptureDesc(&format);
    mCapture.SetOutputChannelCount(mWish.mKeepsChannels ? 0 : 2);
    mOpen = true;
    mBuffers = CAAudioBufferList::Create(&format, kCycleFrames);
    if (!mBuffers || !mBuffers->mBuffers[0].mData) return -108;
    if (const int status = AddTracks()) return status;
    return mCapture.Initialize();
}

int GraphFeed::AddTracks()
{
    for (const Track& track : mWish.mTracks)
        if (const int status = AddTrack(track)) return status;
    return 0;
}

int GraphFeed::AddTrack(const Track& track)
{
    if (!track.mIsInput)
        return mCapture.AddAudioSupportCapture(ArrayOf(track.mProcesses).Get(), ArrayOf(mWish.mDeviceUIDs).Get());
    const auto uid = cf::Ref<cf::String>::Adopt(
        CFStringCreateWithCString(kCFAllocatorDefault, track.mInputUID.c_str(), kCFStringEncodingUTF8));
    return mCapture.AddInputDeviceCapture(uid.Get(), 0);
}

int GraphFeed::Start()
{
    if (const int status = mCapture.Resume()) return status;
    mStartNanos = mach_absolute_time();
    mRuns = kernel::pthread_create(&mThread, nullptr, Entry, this, "graph pull") == 0;
    return mRuns ? 0 : -108;
}

void GraphFeed::Stop()
{
    mStop.store(true, std::memory_order_relaxed);
    if (std::exchange(mRuns, false)) kernel::pthread_join(mThread, nullptr);
    if (!mOpen) return;
    State();
    mOpen = false;
    mCapture.Pause();
    mCapture.Uninitialize();
    CAAudioBufferList::Deallocate(std::exchange(mBuffers, nullptr));
}

FeedState GraphFeed::State()
{
    if (!mOpen) return mLast;
    const CVNRenderCounts counts = mCapture.GetRenderCounts();
    mLast = {};
    mLast.mFramesSilent = uint64_t(counts.mWaitingCycles + counts.mSilentCycles) * kCycleFrames;
    for (size_t i = 0; i < mCapture.GetInputCount(); ++i) {
        const CVNInputStatus input = mCapture.GetInputStatus(i);
        mLast.mFramesLost += input.mLostFrames;
        mLast.mFramesMissed += input.mMissedFrames;
        if (input.mSilentFrames > mWish.mRateHz / 2) mLast.mWaitingFor.push_back(mWish.mTracks[i].mWords);
    }
    return mLast;
}

void* GraphFeed::Entry(void* feed)
{
    AVCapture::PriorityUpgradeRT();
    static_cast<GraphFeed*>(feed)->RenderWhenDue();
    return nullptr;
}

void GraphFeed::RenderWhenDue()
{
    platform::machine::Clock& clock = platform::machine::Machine::Current().GetClock();
    for (uint64_t cycle = 1; !mStop.load(std::memory_order_relaxed); ++cycle) {
        clock.SleepUntil(DueNanos(cycle));
        RenderCycle();
    }
}

// From the count of cycles, so that no rounding adds up.
uint64_t GraphFeed::DueNanos(uint64_t cycle) const noexcept
{
    constexpr uint64_t kSecondNanos = 1'000'000'000;
    const uint64_t frames = cycle * kCycleFrames;
    const uint64_t seconds = frames / mWish.mRateHz, rest = frames % mWish.mRateHz;
    return mStartNanos + seconds * kSecondNanos + rest * kSecondNanos / mWish.mRateHz;
}

void GraphFeed::RenderCycle() CORVANE_REALTIME
{
    const kernel::RealtimeScope scope;
    AudioTimeStamp time{};
    time.mSampleTime = mSampleTime;
    time.mHostTime = mach_absolute_time();
    time.mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid;
    mSampleTime += kCycleFrames;
    UInt32 flags = 0;
    if (mCapture.Render(&flags, &time, 0, kCycleFrames, mBuffers) != 0) CAAudioBufferList::Clear(*mBuffers);
    AudioBufferList whole{1, {{mWish.mChannels, UInt32(mInterleaved.size() * sizeof(float)), mInterleaved.data()}}};
    CAAudioBufferList::Interleave(mBuffers, &whole);
    mSink.Take(mInterleaved.data(), kCycleFrames);
}

}  // namespace cli
