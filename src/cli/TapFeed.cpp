#include "cli/TapFeed.h"

#include "cli/Lists.h"
#include "utility/CAStreamBasicDescription.h"

#include <cmath>

namespace cli {

namespace {

constexpr UInt32 kChannels = 2;
constexpr UInt32 kFrameBytes = kChannels * sizeof(float);

}  // namespace

TapFeed::TapFeed(const FeedWish& wish, FeedSink& sink) : mWish(wish), mSink(sink) {}

int TapFeed::Open()
{
    // In small pieces, so that what was played just before the end is in the file, and the meter is live.
    const CAStreamBasicDescription format(mWish.mRateHz, kAudioFormatLinearPCM, kFrameBytes, 1, kFrameBytes, kChannels,
                                          8 * sizeof(float), kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked);
    AVCapture* session = nullptr;
    const int status =
        AVCapture::CreateAudio(&session, Callback, this, format, ArrayOf(mWish.mDeviceUIDs).Get(),
                               ArrayOf(mWish.mTracks.front().mProcesses).Get(), kAVCaptureLowLatencyAudio);
    mSession.reset(session);
    return status;
}

int TapFeed::Start()
{
    return mSession->Resume();
}

void TapFeed::Stop()
{
    if (!mSession) return;
    mLosses = mSession->GetLosses();
    mSession.reset();
}

FeedState TapFeed::State()
{
    if (mSession) mLosses = mSession->GetLosses();
    return {mFramesLost.load(std::memory_order_relaxed) + mLosses.droppedFrames,
            uint64_t(mLosses.missedFrames) + mLosses.starvedFrames,
            0,
            {}};
}

int TapFeed::Callback(void* feed, const void* samples, uint32_t, uint32_t frames, uint64_t timeUS,
                      AudioStreamBasicDescription)
{
    static_cast<TapFeed*>(feed)->Take(static_cast<const float*>(samples), frames, timeUS);
    return 0;
}

// Stream time is exact to a microsecond and each block's rounding; half a block is well above both.
uint64_t TapFeed::FramesMissingBefore(uint64_t timeUS) const noexcept
{
    constexpr double kHalfABlockFrames = 64;
    if (!mStarted || timeUS <= mNextTimeUS) return 0;
    const double frames = double(timeUS - mNextTimeUS) * mWish.mRateHz / 1e6;
    return frames < kHalfABlockFrames ? 0 : uint64_t(std::llround(frames));
}

void TapFeed::Take(const float* samples, uint32_t frames, uint64_t timeUS) CORVANE_REALTIME
{
    const platform::kernel::RealtimeScope cycle;
    if (const uint64_t missing = FramesMissingBefore(timeUS)) {
        mSink.Take(nullptr, uint32_t(missing));
        mFramesLost.fetch_add(missing, std::memory_order_relaxed);
    }
    mStarted = true;
    mNextTimeUS = timeUS + uint64_t(std::llround(frames * 1e6 / mWish.mRateHz));
    mSink.Take(samples, frames);
}

}  // namespace cli
