#include "cli/Recorder.h"

#include "platform/kernel/HostTime.h"
#include "platform/kernel/Threads.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace cli {

namespace kernel = platform::kernel;

namespace {

constexpr unsigned kQueueSeconds = 10;
constexpr size_t kPieceFrames = 4096;
constexpr uint64_t kWriterWakesNanos = 50'000'000;
constexpr uint64_t kHeaderEveryNanos = 1'000'000'000;

}  // namespace

Recorder::Recorder(RecordingWish wish)
    : mWish(std::move(wish)),
      mFile({.mPath = mWish.mPath,
             .mType = mWish.mType,
             .mFormat = mWish.mFormat,
             .mChannels = mWish.mChannels,
             .mRateHz = mWish.mRateHz,
             .mReplace = mWish.mReplace,
             .mTracksAreApart = mWish.mKeepsChannels && mWish.mTracks.size() > 1}),
      mFeed(MakeFeed(mWish, *this)),
      mPiece(kPieceFrames * mWish.mChannels),
      mPeaks(mWish.mChannels)
{
}

Recorder::~Recorder()
{
    Finish();
}

int Recorder::OpenFile()
{
    return mFile.Open();
}

int Recorder::Start()
{
    if (const int status = mFeed->Open()) return status;
    // Megabytes that take milliseconds to make: while the server puts the capture in place, not before.
    mQueue.emplace(mWish.mChannels, size_t(mWish.mRateHz) * kQueueSeconds);
    mWriterRuns = kernel::pthread_create(&mWriter, nullptr, WriterEntry, this, "wav writer") == 0;
    return mWriterRuns ? mFeed->Start() : -108;
}

int Recorder::Finish()
{
    mFeed->Stop();
    if (std::exchange(mWriterRuns, false)) {
        mGuard.Lock();
        mStopRequested = true;
        mGuard.NotifyAll();
        mGuard.Unlock();
        kernel::pthread_join(mWriter, nullptr);
    }
    return mFile.Close();
}

RecordingState Recorder::TakeState()
{
    RecordingState state;
    state.mFeed = mFeed->State();
    state.mFrames = mFramesWritten.load(std::memory_order_relaxed);
    state.mFramesDropped = mFramesDropped.load(std::memory_order_relaxed);
    state.mClippedSamples = mClipped.load(std::memory_order_relaxed);
    state.mWriteError = mWriteError.load(std::memory_order_relaxed);
    for (auto& peak : mPeaks) state.mPeaks.push_back(peak.exchange(0, std::memory_order_relaxed));
    const bool locked = mGuard.Lock();
    state.mFinished = mFinished;
    if (locked) mGuard.Unlock();
    return state;
}

void Recorder::WaitFor(uint64_t nanos)
{
    mGuard.Lock();
    if (!mFinished) mGuard.WaitFor(nanos);
    mGuard.Unlock();
}

void Recorder::Take(const float* samples, uint32_t frames) CORVANE_REALTIME
{
    if (!samples) {
        mOwedFrames += frames;
        return;
    }
    if (PayOwedSilence() && mQueue->Write(samples, frames)) return;
    mOwedFrames += frames;
    mFramesDropped.fetch_add(frames, std::memory_order_relaxed);
}

bool Recorder::PayOwedSilence() noexcept
{
    while (mOwedFrames > 0) {
        const size_t piece = size_t(std::min<uint64_t>(mOwedFrames, kPieceFrames));
        if (!mQueue->Write(nullptr, piece)) return false;
        mOwedFrames -= piece;
    }
    return true;
}

void* Recorder::WriterEntry(void* recorder)
{
    static_cast<Recorder*>(recorder)->WriteUntilStopped();
    return nullptr;
}

void Recorder::WriteUntilStopped()
{
    uint64_t headerDue = mach_absolute_time() + kHeaderEveryNanos;
    bool stop = false;
    while (!stop) {
        mGuard.Lock();
        if (!mStopRequested) mGuard.WaitFor(kWriterWakesNanos);
        stop = mStopRequested;
        mGuard.Unlock();

        bool more = WriteWhatIsThere();
        if (more && mach_absolute_time() >= headerDue) {
            headerDue = mach_absolute_time() + kHeaderEveryNanos;
            mFile.UpdateHeader();  // an error shows again at the next write, or at the end
        }
        if (more) continue;
        mGuard.Lock();
        mFinished = stop = true;
        mGuard.NotifyAll();
        mGuard.Unlock();
    }
}

// False when there is nothing more to write: all frames asked for are there, or the disk refused them.
bool Recorder::WriteWhatIsThere()
{
    for (;;) {
        size_t frames = kPieceFrames;
        if (mWish.mFrames) frames = size_t(std::min<uint64_t>(frames, *mWish.mFrames - mFile.Frames()));
        if (frames == 0) return false;
        frames = mQueue->Read(mPiece.data(), frames);
        if (frames == 0) return true;
        MeasurePeaks(mPiece.data(), frames);
        const int error = mFile.Write(mPiece.data(), frames);
        mFramesWritten.store(mFile.Frames(), std::memory_order_relaxed);
        mClipped.store(mFile.ClippedSamples(), std::memory_order_relaxed);
        if (error == 0) continue;
        mWriteError.store(error, std::memory_order_relaxed);
        return false;
    }
}

void Recorder::MeasurePeaks(const float* samples, size_t frames)
{
    for (size_t c = 0; c < mPeaks.size(); ++c) {
        float peak = mPeaks[c].load(std::memory_order_relaxed);
        for (size_t f = 0; f < frames; ++f) peak = std::max(peak, std::fabs(samples[f * mPeaks.size() + c]));
        mPeaks[c].store(peak, std::memory_order_relaxed);
    }
}

}  // namespace cli
