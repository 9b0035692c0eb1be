#include "record/Recorder.h"

#include "platform/kernel/HostTime.h"
#include "platform/kernel/Threads.h"
#include "record/InputSource.h"
#include "record/TapSource.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace record {

namespace kernel = platform::kernel;

namespace {

constexpr unsigned kQueueSeconds = 10;
constexpr uint64_t kRelaxedWakeNanos = 340'000'000;  // as often as a tap brings frames
constexpr uint64_t kLiveWakeNanos = 10'000'000;
// A source that plays has its first frame in the file by then, or is silent at first.
constexpr uint64_t kHeadNanos = 250'000'000;
// For so long all wait for a source that brings nothing.
constexpr uint64_t kPatienceNanos = 1'000'000'000;
constexpr uint64_t kStallNanos = 100'000'000;
// A change is noticed after it happened, and an application's first sound comes after the application.
constexpr uint64_t kNoticedNanos = 250'000'000;
constexpr uint64_t kLongestStallNanos = 10'000'000'000;  // sources do not catch up with more
constexpr uint64_t kNotYet = 0;

unsigned SumOfChannels(const std::vector<TrackSettings>& tracks)
{
    return std::accumulate(tracks.begin(), tracks.end(), 0U,
                           [](unsigned sum, const TrackSettings& track) { return sum + track.mChannels; });
}

unsigned FirstChannel(const std::vector<TrackSettings>& tracks, size_t track)
{
    return SumOfChannels({tracks.begin(), tracks.begin() + ptrdiff_t(track)});
}

}  // namespace

Recorder::Recorder(RecordingSettings settings)
    : mSettings(WithChannels(std::move(settings))),
      mGrid(mSettings.mFile.mRateHz),
      mFile(mSettings.mFile),
      mPiece(kPieceFrames * mSettings.mFile.mChannels),
      mPeaks(mSettings.mFile.mChannels),
      mAccount(mSettings.mSources.size())
{
}

RecordingSettings Recorder::WithChannels(RecordingSettings settings)
{
    settings.mFile.mChannels = SumOfChannels(settings.mTracks);
    return settings;
}

Recorder::~Recorder()
{
    Finish();
}

// ---- The owner's

int Recorder::Start()
{
    mStartNanos = mach_absolute_time();
    for (const SourceSettings& source : mSettings.mSources)
        if (const int status = OpenSource(source)) return Refuse(mInputs.size() - 1, status);
    for (size_t i = 0; i < mInputs.size(); ++i) {
        Source& source = *mInputs[i].mSource;
        if (const int status = source.Start()) return Refuse(i, status);
        mDelayNanos = std::max(mDelayNanos, source.DelayNanos());
    }
    return 0;
}

int Recorder::Refuse(size_t source, int status)
{
    const std::string why = mInputs[source].mSource->Explain();
    if (!why.empty()) mWhyNotStarted = "'" + mSettings.mSources[source].mName + "' cannot be recorded. " + why;
    return status;
}

int Recorder::OpenSource(const SourceSettings& settings)
{
    const size_t queueFrames = size_t(mGrid.RateHz()) * kQueueSeconds;
    const unsigned channels = settings.mIsInput ? settings.mChannels : 2;
    const TrackSettings& track = mSettings.mTracks[settings.mTrack];
    Input input{
        .mMix{channels, track.mChannels, FirstChannel(mSettings.mTracks, settings.mTrack), mSettings.mFile.mChannels},
        .mSamples = std::vector<float>(kPieceFrames * channels)};
    if (settings.mIsInput) {
        input.mSource =
            std::make_unique<InputSource>(mGrid, settings.mInputUID, channels, mSettings.mLive, queueFrames);
    } else {
        auto tap = std::make_unique<TapSource>(mGrid, settings.mTargets, mSettings.mLive, queueFrames);
        input.mTap = tap.get();
        input.mSource = std::move(tap);
    }
    mInputs.push_back(std::move(input));
    return mInputs.back().mSource->Open();
}

int Recorder::OpenFile()
{
    if (const int error = mFile.Open()) return error;
    mWriterRuns = kernel::pthread_create(&mWriter, nullptr, WriterEntry, this, "recording") == 0;
    return mWriterRuns ? 0 : EAGAIN;
}

void Recorder::Stop(uint64_t nanos)
{
    const uint64_t frame = mGrid.FrameAt(nanos), end = mEnd.load(std::memory_order_acquire);
    if (end == kNotYet || frame < end) EndAt(frame);
}

void Recorder::EndAt(uint64_t frame)
{
    mEnd.store(std::max<uint64_t>(frame, 1), std::memory_order_release);
}

bool Recorder::WaitFor(uint64_t nanos)
{
    const CAMutex::Scope lock(mGuard);
    if (!mFinished && !mWoken) mGuard.WaitFor(nanos);
    mWoken = false;
    return mFinished;
}

void Recorder::Wake()
{
    const CAMutex::Scope lock(mGuard);
    mWoken = true;
    mGuard.NotifyAll();
}

int Recorder::Finish()
{
    if (std::exchange(mWriterRuns, false)) {
        {
            const CAMutex::Scope lock(mGuard);
            mQuit = true;
            mGuard.NotifyAll();
        }
        kernel::pthread_join(mWriter, nullptr);
    }
    for (Input& input : mInputs)
        if (input.mSource) input.mSource->Stop();
    const int error = mFile.Close();
    mFramesWritten.store(mFile.Frames(), std::memory_order_relaxed);  // fewer where an older file stands
    return error;
}

int Recorder::SetTargets(size_t source, const TapTargets& targets)
{
    TapSource* tap = mInputs.at(source).mTap;
    return tap ? tap->SetTargets(targets) : 0;
}

void Recorder::NoteServer(bool isThere)
{
    const CAMutex::Scope lock(mAccountMutex);
    mAccount.NoteServer(isThere, isThere ? FrameNow() : FrameNow() - mGrid.FrameAt(kNoticedNanos));
}

void Recorder::NotePresence(size_t source, bool plays)
{
    const uint64_t noticed = mGrid.FrameAt(kNoticedNanos);
    const CAMutex::Scope lock(mAccountMutex);
    mAccount.NotePresence(source, plays, plays ? FrameNow() + noticed : FrameNow() - noticed);
}

RecordingEvent Recorder::NoteEvent(std::string kind, std::string source, std::string text)
{
    const uint64_t start = mStart.load(std::memory_order_acquire), now = FrameNow();
    const uint64_t frame = start != kNotYet && now > start ? now - start : 0;
    RecordingEvent event{frame, std::move(kind), std::move(source), std::move(text)};
    const CAMutex::Scope lock(mAccountMutex);
    if (mEvents.size() < kMostSilences) mEvents.push_back(event);
    return event;
}

std::vector<RecordingEvent> Recorder::TakeEvents()
{
    const CAMutex::Scope lock(mAccountMutex);
    return std::exchange(mNewEvents, {});
}

RecordingState Recorder::TakeState()
{
    RecordingState state;
    state.mFrames = mFramesWritten.load(std::memory_order_relaxed);
    state.mClippedSamples = mClipped.load(std::memory_order_relaxed);
    for (const Input& input : mInputs) state.mClippedSamples += input.mSource->ClippedSamples();
    state.mWriteError = mWriteError.load(std::memory_order_relaxed);
    if (mShownPeaks.empty() || state.mFrames != mShownFrames) {
        mShownPeaks.clear();
        for (auto& peak : mPeaks) mShownPeaks.push_back(peak.exchange(0, std::memory_order_relaxed));
        mShownFrames = state.mFrames;
    }
    state.mPeaks = mShownPeaks;
    unsigned first = 0;
    for (const TrackSettings& track : mSettings.mTracks) {
        state.mTracks.push_back({track.mName, first, track.mChannels});
        first += track.mChannels;
    }
    {
        const CAMutex::Scope lock(mGuard);
        state.mFinished = mFinished;
    }
    const CAMutex::Scope lock(mAccountMutex);
    const uint64_t end = mStart.load(std::memory_order_acquire) + state.mFrames;
    for (size_t i = 0; i < mSettings.mSources.size(); ++i) {
        SourceState& source = state.mSources.emplace_back(SourceState{.mName = mSettings.mSources[i].mName});
        for (const SilenceCause cause : kSilenceCauses)
            source.mSilentFrames[size_t(cause)] = mAccount.FramesOf(i, cause, end);
        source.mDelivers = i >= mInputs.size() || !mInputs[i].mLeftOut;
    }
    if (const uint64_t now = mach_absolute_time(); now >= mLostNanos + kernel::kNanosPerSecond) {
        mLostNanos = now;
        mShownLost = LostFrames(state.mFrames);
    }
    state.mFramesLost = mShownLost;
    return state;
}

RecordingResult Recorder::Result()
{
    RecordingResult result{.mState = TakeState()};
    result.mState.mFramesLost = LostFrames(result.mState.mFrames);
    result.mSilences =
        mAccount.List(mStart.load(std::memory_order_acquire) + result.mState.mFrames, result.mSilencesCut);
    result.mEvents = mEvents;
    result.mPaths = mFile.Paths();
    return result;
}

std::optional<uint64_t> Recorder::HeadNanos()
{
    const uint64_t start = mStart.load(std::memory_order_acquire);
    if (start == kNotYet) return std::nullopt;
    const uint64_t frames = start - std::min(start, mGrid.FrameAt(mStartNanos));
    return mGrid.NanosAt(frames);
}

uint64_t Recorder::LostFrames(uint64_t frames) const
{
    return mAccount.LostFrames(mStart.load(std::memory_order_acquire) + frames);
}

std::optional<uint64_t> Recorder::EndNanos() const
{
    const uint64_t end = mEnd.load(std::memory_order_acquire);
    if (end == kNotYet) return std::nullopt;
    return mGrid.NanosAt(end);
}

uint64_t Recorder::FrameNow() const
{
    return mGrid.FrameAt(mach_absolute_time());
}

// ---- The writer's

void* Recorder::WriterEntry(void* recorder)
{
    static_cast<Recorder*>(recorder)->WriteUntilDone();
    return nullptr;
}

void Recorder::WriteUntilDone()
{
    while (WaitForWork() && Assemble()) {
        const uint64_t now = mach_absolute_time();
        if (now < mHeaderNanos) continue;
        mHeaderNanos = now + kernel::kNanosPerSecond;
        mFile.UpdateHeader();  // an error shows again at the next write, or at the end
    }
    const CAMutex::Scope lock(mGuard);
    mFinished = true;
    mGuard.NotifyAll();
}

/// @return whether there may be work; false: it is time to end
bool Recorder::WaitForWork()
{
    const uint64_t wake = mach_absolute_time() + (mSettings.mLive ? kLiveWakeNanos : kRelaxedWakeNanos);
    const CAMutex::Scope lock(mGuard);
    while (!mQuit && mach_absolute_time() < wake) mGuard.WaitUntil(wake);
    // A process that stood still has to catch up, and so have its sources.
    const uint64_t now = mach_absolute_time(), late = now - std::min(now, wake);
    if (late > kStallNanos)
        mPatientNanos = std::max(mPatientNanos, now + kPatienceNanos + 3 * std::min(late, kLongestStallNanos));
    return !mQuit;
}

/// Writes what is ready. @return false when all is written, or writing failed
bool Recorder::Assemble()
{
    const uint64_t now = mach_absolute_time();
    {
        const CAMutex::Scope lock(mAccountMutex);
        for (size_t i = 0; i < mInputs.size(); ++i) mInputs[i].mSource->CollectSilences(mAccount, i);
    }
    if (mAt == kNotYet && !FindStart(now)) return true;
    const uint64_t end = mEnd.load(std::memory_order_acquire);
    uint64_t limit = ReadyFrame(now);
    if (end != kNotYet) limit = std::min(limit, end);
    if (!WritePieces(limit)) return false;
    if (end == kNotYet || mAt < end) return true;
    const CAMutex::Scope lock(mAccountMutex);
    for (size_t i = 0; i < mInputs.size(); ++i) mInputs[i].mSource->CollectOpenSilence(mAccount, i, end);
    return false;
}

/// The first frame is the first one that all sources that play have sound for; without any, the moment of the start.
bool Recorder::FindStart(uint64_t now)
{
    const uint64_t start = mGrid.FrameAt(mStartNanos), latest = mGrid.FrameAt(mStartNanos + kHeadNanos);
    bool known = true;
    uint64_t first = start;
    for (const Input& input : mInputs) {
        const auto sound = input.mSource->FirstSound();
        if (sound && *sound <= latest) first = std::max(first, *sound);
        known = known && (sound || input.mSource->GetStrand().End() > latest);
    }
    if (!known && now < mStartNanos + kHeadNanos + mDelayNanos + kPatienceNanos / 2) return false;
    mAt = first;
    mStart.store(first, std::memory_order_release);
    if (mSettings.mFrames) EndAt(first + *mSettings.mFrames);
    const CAMutex::Scope lock(mAccountMutex);
    mAccount.SetStart(first);
    return true;
}

/// One past the last frame that every source has, but for sources that have brought nothing for too long.
uint64_t Recorder::ReadyFrame(uint64_t now)
{
    const uint64_t overdue = now < mPatientNanos ? 0 : mGrid.FrameAt(now - mDelayNanos - kPatienceNanos);
    uint64_t ready = UINT64_MAX;
    for (Input& input : mInputs) {
        const uint64_t end = input.mSource->GetStrand().End();
        const bool brings = end > std::max(overdue, mAt);
        if (brings == input.mLeftOut && (brings || mAt <= overdue)) LeaveOut(input, !brings, std::max(end, mAt));
        if (!input.mLeftOut) ready = std::min(ready, end);
    }
    return std::max(ready == UINT64_MAX ? overdue : ready, mAt);
}

void Recorder::LeaveOut(Input& input, bool leftOut, uint64_t frame)
{
    const auto& name = mSettings.mSources[size_t(&input - mInputs.data())].mName;
    const CAMutex::Scope lock(mAccountMutex);
    input.mLeftOut = leftOut;
    const uint64_t start = mStart.load(std::memory_order_relaxed);
    RecordingEvent event{
        frame - std::min(frame, start), leftOut ? "silent" : "delivers", name,
        leftOut ? name + " brings no sound; the recording goes on without it" : name + " brings sound again"};
    mNewEvents.push_back(event);
    if (mEvents.size() < kMostSilences) mEvents.push_back(std::move(event));
}

bool Recorder::WritePieces(uint64_t limit)
{
    while (mAt < limit) {
        const FrameSpan span{mAt, std::min<uint64_t>(limit - mAt, kPieceFrames)};
        std::fill_n(mPiece.begin(), span.mFrames * mSettings.mFile.mChannels, 0.0F);
        for (size_t i = 0; i < mInputs.size(); ++i) MixSource(i, span);
        MeasurePeaks(span.mFrames);
        const int error = mFile.Write(mPiece.data(), span.mFrames);
        mFramesWritten.store(mFile.Frames(), std::memory_order_relaxed);
        mClipped.store(mFile.ClippedSamples(), std::memory_order_relaxed);
        if (error != 0) {
            mWriteError.store(error, std::memory_order_relaxed);
            return false;
        }
        mAt = span.End();
    }
    return true;
}

void Recorder::MixSource(size_t source, const FrameSpan& span)
{
    Input& input = mInputs[source];
    mMissing.clear();
    // A source that is the whole file needs no mix.
    const bool isWhole = mInputs.size() == 1 && input.mMix.IsIdentity();
    input.mSource->GetStrand().Take(span, isWhole ? mPiece.data() : input.mSamples.data(), mMissing);
    for (const FrameSpan& missing : mMissing) AccountFor(source, missing);
    if (!isWhole) input.mMix.Add(input.mSamples.data(), span.mFrames, mPiece.data());
}

/// A tap brings silence, too, so that frames which a tap did not bring were not fetched in time.
void Recorder::AccountFor(size_t source, const FrameSpan& missing)
{
    const Input& input = mInputs[source];
    const bool refused = missing.mStart < input.mSource->GetStrand().RefusedEnd();
    const SilenceCause cause = refused || input.mTap ? SilenceCause::TooSlow : SilenceCause::NotDelivered;
    const CAMutex::Scope lock(mAccountMutex);
    mAccount.Add(source, cause, missing);
}

/// As many frames as make whole vectors of floats are compared at once, whatever the number of channels.
void Recorder::MeasurePeaks(size_t frames)
{
    constexpr size_t kFramesAtOnce = 8;
    const size_t channels = mPeaks.size(), row = channels * kFramesAtOnce, samples = frames * channels;
    mRowPeaks.assign(row, 0.0F);
    float* const peaks = mRowPeaks.data();
    const float* sample = mPiece.data();
    size_t done = 0;
    for (; done + row <= samples; done += row, sample += row)
        for (size_t i = 0; i < row; ++i) {
            const float level = std::fabs(sample[i]);
            peaks[i] = level > peaks[i] ? level : peaks[i];
        }
    for (size_t i = 0; done + i < samples; ++i) peaks[i] = std::max(peaks[i], std::fabs(sample[i]));
    for (size_t i = 0; i < row; ++i) {
        auto& peak = mPeaks[i % channels];
        if (peaks[i] > peak.load(std::memory_order_relaxed)) peak.store(peaks[i], std::memory_order_relaxed);
    }
}

}  // namespace record
