#include "record/TapSource.h"

#include "platform/audio/StampLatency.h"
#include "platform/kernel/HostTime.h"
#include "record/Lists.h"
#include "utility/CAStreamBasicDescription.h"

#include <algorithm>

namespace record {

using tap::wire::LogEntry;
using tap::wire::LogKind;

namespace {

constexpr UInt32 kChannels = 2;
constexpr UInt32 kFrameBytes = kChannels * sizeof(float);
// A consumer that is not in a hurry waits for a quarter of a ring, and the service publishes eight times a second.
constexpr uint64_t kGatheringNanos = 500'000'000;
constexpr size_t kMostLanes = 64;

}  // namespace

TapSource::TapSource(const FrameGrid& grid, TapTargets targets, bool live, size_t queueFrames)
    : mGrid(grid), mTargets(std::move(targets)), mLive(live), mStrand(kChannels, queueFrames)
{
}

int TapSource::Open()
{
    const CAStreamBasicDescription format(mGrid.RateHz(), kAudioFormatLinearPCM, kFrameBytes, 1, kFrameBytes, kChannels,
                                          8 * sizeof(float), kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked);
    AVCapture* session = nullptr;
    const int status =
        AVCapture::CreateAudio(&session, Callback, this, format, ArrayOf(mTargets.mDeviceUIDs).Get(),
                               ArrayOf(mTargets.mProcesses).Get(), mLive ? unsigned(kAVCaptureLowLatencyAudio) : 0);
    mSession.reset(session);
    return status;
}

int TapSource::Start()
{
    // A service that does not say which moments its frames stand for is taken at its word from now on.
    const uint64_t moment = mSession->MomentOfFrame0();
    mFrame0 = mGrid.FrameAt(moment != 0 ? moment : mach_absolute_time());
    return mSession->Resume();
}

void TapSource::Stop()
{
    if (mSession) mSession->Pause();  // its consumer asks the session for each chunk's place until then
    mSession.reset();
}

uint64_t TapSource::DelayNanos() const
{
    return platform::audio::StampLatencyNanos() + (mLive ? 0 : kGatheringNanos);
}

int TapSource::SetTargets(const TapTargets& targets)
{
    if (!mSession || targets == mTargets) return 0;
    const int status = mSession->UpdateTargets(ArrayOf(targets.mDeviceUIDs).Get(), ArrayOf(targets.mProcesses).Get());
    if (status == 0) mTargets = targets;
    return status;
}

int TapSource::Callback(void* source, const void* samples, uint32_t, uint32_t frames, uint64_t,
                        AudioStreamBasicDescription)
{
    static_cast<TapSource*>(source)->Take(static_cast<const float*>(samples), frames);
    return 0;
}

void TapSource::Take(const float* samples, uint32_t frames) CORVANE_REALTIME
{
    const platform::kernel::RealtimeScope cycle;
    mStrand.Put(mFrame0 + mSession->ChunkFrame(), samples, frames);
}

// ---- The log

void TapSource::CollectSilences(SilenceAccount& account, size_t source)
{
    if (!mSession) return;
    std::array<LogEntry, tap::wire::kLogEntries> entries;
    const size_t count = mSession->ReadLog(mNextLogEntry, entries);
    const std::span there = std::span(entries).first(count);
    // First what outranks the rest: silences before it are judged by it, too.
    for (const LogEntry& entry : there)
        if (entry.mKind == LogKind::Stalled && entry.mFrames < (uint64_t(1) << 48))
            account.AddStall({mFrame0 + entry.mFrame, entry.mFrames});
    for (const LogEntry& entry : there) Note(entry, account, source);
}

void TapSource::Note(const LogEntry& entry, SilenceAccount& account, size_t source)
{
    if (entry.mLane >= kMostLanes) return;
    if (mLanes.size() <= entry.mLane) mLanes.resize(entry.mLane + 1);
    Lane& lane = mLanes[entry.mLane];
    const uint64_t frame = mFrame0 + entry.mFrame;
    switch (entry.mKind) {
        case LogKind::FallsSilent:
            FallSilent(lane, frame);
            break;
        case LogKind::SoundsAfterRest:
        case LogKind::SoundsAfterMissing:
        case LogKind::SoundsAfterLateness:
            Sound(lane, frame, entry.mKind, account, source);
            break;
        default:
            break;
    }
}

bool TapSource::AnySounds() const
{
    return std::ranges::any_of(mLanes, &Lane::mSounds);
}

void TapSource::FallSilent(Lane& lane, uint64_t frame)
{
    lane.mSounds = false;
    if (!AnySounds()) mSilentFrom = frame;
}

/// The source is silent while none of its devices has sound: another may have taken over what one of them played.
void TapSource::Sound(Lane& lane, uint64_t frame, LogKind kind, SilenceAccount& account, size_t source)
{
    const bool lost = kind != LogKind::SoundsAfterRest;
    if (!AnySounds() && frame > mSilentFrom)
        account.Add(source, lost ? SilenceCause::NotDelivered : SilenceCause::NotPlaying,
                    {mSilentFrom, frame - mSilentFrom});
    if (!mFirstSound) mFirstSound = frame;
    lane.mSounds = true;
}

void TapSource::CollectOpenSilence(SilenceAccount& account, size_t source, uint64_t end)
{
    CollectSilences(account, source);
    if (!AnySounds() && end > mSilentFrom)
        account.Add(source, SilenceCause::NotPlaying, {mSilentFrom, end - mSilentFrom});
}

}  // namespace record
