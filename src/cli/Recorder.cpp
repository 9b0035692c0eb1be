#include "cli/Recorder.h"

#include "platform/foundation/CFDictionary.h"
#include "platform/kernel/HostTime.h"
#include "platform/kernel/Threads.h"

#include <algorithm>
#include <cmath>

namespace cli {

namespace kernel = platform::kernel;

namespace {

constexpr unsigned kQueueSeconds = 10;
constexpr size_t kPieceFrames = 4096;
constexpr uint64_t kWriterWakesNanos = 50'000'000;
constexpr uint64_t kHeaderEveryNanos = 1'000'000'000;

AudioStreamBasicDescription StereoFloat(double rateHz)
{
    AudioStreamBasicDescription format{};
    format.mSampleRate = rateHz;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
    format.mBytesPerPacket = format.mBytesPerFrame = Recorder::kChannels * sizeof(float);
    format.mFramesPerPacket = 1;
    format.mChannelsPerFrame = Recorder::kChannels;
    format.mBitsPerChannel = 32;
    return format;
}

cf::Ref<cf::Array> ArrayOf(const std::vector<pid_t>& processes)
{
    CFMutableArrayRef array = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    for (const pid_t pid : processes) {
        const int32_t value = pid;
        const auto number =
            cf::Ref<cf::Number>::Adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value));
        CFArrayAppendValue(array, number.Get());
    }
    return cf::Ref<cf::Array>::Adopt(array);
}

cf::Ref<cf::Array> ArrayOf(const std::vector<std::string>& texts)
{
    CFMutableArrayRef array = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    for (const std::string& text : texts) {
        const auto string = cf::Ref<cf::String>::Adopt(
            CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
        if (string) CFArrayAppendValue(array, string.Get());
    }
    return cf::Ref<cf::Array>::Adopt(array);
}

}  // namespace

Recorder::Recorder(RecordingWish wish)
    : mWish(std::move(wish)), mFile(mWish.mFormat, kChannels, mWish.mRateHz), mPiece(kPieceFrames * kChannels)
{
}

Recorder::~Recorder()
{
    Finish();
}

int Recorder::OpenFile()
{
    return mFile.Open(mWish.mPath, mWish.mReplace);
}

int Recorder::Start()
{
    AudioStreamBasicDescription format = StereoFloat(mWish.mRateHz);
    const auto devices = mWish.mDeviceUIDs.empty() ? cf::Ref<cf::Array>() : ArrayOf(mWish.mDeviceUIDs);
    const auto processes = mWish.mProcesses.empty() ? cf::Ref<cf::Array>() : ArrayOf(mWish.mProcesses);
    // In small pieces, so that what was played just before the end is in the file, and the meter is live.
    const int status = AVCapture::CreateAudio(&mSession, Callback, this, format, devices.Get(), processes.Get(),
                                              kAVCaptureLowLatencyAudio);
    if (status != 0) return status;
    // Megabytes that take milliseconds to make: while the server puts the capture in place, not before.
    mQueue.emplace(kChannels, size_t(mWish.mRateHz) * kQueueSeconds);
    mWriterRuns = kernel::pthread_create(&mWriter, nullptr, WriterEntry, this, "wav writer") == 0;
    if (!mWriterRuns) return -108;
    mSession->Resume();
    return 0;
}

int Recorder::Finish()
{
    if (mSession) {
        TakeLosses();
        mSession->Stop();
        delete std::exchange(mSession, nullptr);
    }
    if (std::exchange(mWriterRuns, false)) {
        mGuard.Lock();
        mStopRequested = true;
        mGuard.NotifyAll();
        mGuard.Unlock();
        kernel::pthread_join(mWriter, nullptr);
    }
    return mFile.Close();
}

void Recorder::TakeLosses()
{
    if (mSession) mLosses = mSession->GetLosses();
}

RecordingState Recorder::TakeState()
{
    TakeLosses();
    RecordingState state;
    state.mFrames = mFramesWritten.load(std::memory_order_relaxed);
    state.mFramesLost = mFramesLost.load(std::memory_order_relaxed) + mLosses.droppedFrames;
    state.mFramesDropped = mFramesDropped.load(std::memory_order_relaxed);
    state.mFramesMissed = uint64_t(mLosses.missedFrames) + mLosses.starvedFrames;
    state.mClippedSamples = mClipped.load(std::memory_order_relaxed);
    state.mWriteError = mWriteError.load(std::memory_order_relaxed);
    for (unsigned c = 0; c < kChannels; ++c) state.mPeak[c] = mPeak[c].exchange(0, std::memory_order_relaxed);
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

int Recorder::Callback(void* recorder, const void* samples, uint32_t, uint32_t frames, uint64_t timeUS,
                       AudioStreamBasicDescription)
{
    static_cast<Recorder*>(recorder)->Take(static_cast<const float*>(samples), frames, timeUS);
    return 0;
}

// Stream time is exact to a microsecond and each block's rounding; half a block is well above both.
uint64_t Recorder::FramesMissingBefore(uint64_t timeUS) const noexcept
{
    constexpr double kHalfABlockFrames = 64;
    if (!mStarted || timeUS <= mNextTimeUS) return 0;
    const double frames = double(timeUS - mNextTimeUS) * mWish.mRateHz / 1e6;
    return frames < kHalfABlockFrames ? 0 : uint64_t(std::llround(frames));
}

void Recorder::Take(const float* samples, uint32_t frames, uint64_t timeUS) CORVANE_REALTIME
{
    const kernel::RealtimeScope cycle;
    if (const uint64_t missing = FramesMissingBefore(timeUS)) {
        mOwedFrames += missing;
        mFramesLost.fetch_add(missing, std::memory_order_relaxed);
    }
    mStarted = true;
    mNextTimeUS = timeUS + uint64_t(std::llround(frames * 1e6 / mWish.mRateHz));
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
    for (unsigned c = 0; c < kChannels; ++c) {
        float peak = mPeak[c].load(std::memory_order_relaxed);
        for (size_t f = 0; f < frames; ++f) peak = std::max(peak, std::fabs(samples[f * kChannels + c]));
        mPeak[c].store(peak, std::memory_order_relaxed);
    }
}

}  // namespace cli
