// The consumer: follows the writer of the ring in whole blocks.
//
// Nothing locks the writer out. A block counts when the tail has not passed it after it was copied; one that
// the writer overtook meanwhile is forgotten, and the next look moves the reader to the tail, with stream
// time ahead by the gap. Status fields and samples are loaded with acquire order (see StatusRegion.h and
// SampleConversion.cpp), so that the look after the copy cannot run ahead of the copy.

#include "avcapture/AVCapture.h"
#include "avcapture/AVCaptureCorvane.h"
#include "avcapture/SampleConversion.h"
#include "platform/kernel/HostTime.h"
#include "platform/kernel/Realtime.h"

#include <algorithm>
#include <cstdio>

namespace kernel = platform::kernel;

namespace {

constexpr uint64_t kComputeBoundNanos = 1'000'000'000;

// The pass before the first one is the largest number, so that only the distance tells the order.
bool IsEarlier(uint32_t loopA, uint32_t loopB)
{
    return int32_t(loopA - loopB) < 0;
}

}  // namespace

/// Head and tail as read one after the other.
struct AVCaptureCorvane::Snapshot {
    uint32_t mLoop;
    uint32_t mHeadFrame;
    uint32_t mTailFrame;
    bool mValid;  // both lie in the ring, the head on a block

    // The tail's pass is derived from head and tail, never stored.
    uint32_t TailLoop() const { return mTailFrame < mHeadFrame ? mLoop : mLoop - 1; }
};

void* AVCaptureCorvane::ConsumerThread(AVCaptureCorvane* tap)
{
    AVCapture::PriorityUpgrade();
    tap->mBoosted = true;
    const uint64_t thresholdNS = tap->WaitThresholdNS();
    tap->mCallbackError = 0;
    kernel::pthread_mutex_lock(&tap->mMutex);
    tap->mLastWake = mach_absolute_time();
    while (!tap->mStopRequested && !tap->mCallbackError) tap->ConsumeOrWait(thresholdNS);
    kernel::pthread_mutex_unlock(&tap->mMutex);
    return nullptr;
}

uint64_t AVCaptureCorvane::WaitThresholdNS() const
{
    const uint64_t quarterBlocks = mRing.mLoopFrames / mRing.mBlockFrames >> 2;
    return (mFlags & kAVCaptureLowLatencyAudio ? 2 : quarterBlocks) * mRing.mNSPerBlock;
}

void AVCaptureCorvane::ConsumeOrWait(uint64_t thresholdNS)
{
    const uint64_t newNS = NewNS();
    if (newNS >= thresholdNS) return Consume();
    const auto waitNS = std::max(int64_t(thresholdNS - newNS), int64_t(mRing.mNSPerBlock / 2));
    const timespec wait{.tv_sec = 0, .tv_nsec = waitNS};  // all of it in nanoseconds, also beyond a second
    // A signal, a timeout and a spurious wake are all the same: the positions are looked at again.
    kernel::pthread_cond_timedwait_relative_np(&mCondition, &mMutex, &wait);
    mLastWake = mach_absolute_time();
}

/// What the writer has written since the reader's position. A head or tail that makes no sense, or a head behind
/// the reader, is nothing new: the consumer has to get to its wait, where alone it gives up the mutex.
uint64_t AVCaptureCorvane::NewNS() const
{
    const auto [loop, head] = mStatus.LoadWritePosition();
    if (!mRing.IsBlockStart(head) || mStatus.TailFrame() >= mRing.mLoopFrames) return 0;
    if (IsEarlier(loop, mReadLoop) || (loop == mReadLoop && head < mReadFrame)) return 0;
    return ComputeDeltaNS(mReadLoop, mReadFrame, loop, head);
}

uint64_t AVCaptureCorvane::ComputeDeltaNS(unsigned int loopA, unsigned int frameA, unsigned int loopB,
                                          unsigned int frameB) const
{
    if (loopA == loopB) return uint64_t(std::max(frameA, frameB) - std::min(frameA, frameB)) * mRing.mNSPerFrame;
    if (loopA > loopB) {
        std::swap(loopA, loopB);
        std::swap(frameA, frameB);
    }
    // mBlockFrames here and in CatchUp, not mLoopFrames, is wanted. Modulo 2^64 the sum comes out right.
    return (uint64_t(mRing.mBlockFrames) - frameA) * mRing.mNSPerFrame + uint64_t(loopB - loopA) * mRing.mNSPerLoop +
           frameB * mRing.mNSPerFrame;
}

void AVCaptureCorvane::MoveToWriter()
{
    GetWriteInfo(&mReadLoop, &mReadFrame);
    if (!mRing.IsBlockStart(mReadFrame)) mReadFrame = 0;
}

// One load reads both halves, so there is nothing to read again.
void AVCaptureCorvane::GetWriteInfo(unsigned int* loop, unsigned int* frame) const
{
    const auto [writeLoop, headFrame] = mStatus.LoadWritePosition();
    *loop = writeLoop;
    *frame = headFrame;
}

void AVCaptureCorvane::GrabStateSnapshot(unsigned int* loop, unsigned int* head, unsigned int* tailLoop,
                                         unsigned int* tail) const
{
    for (;;) {
        const Snapshot snapshot = TakeSnapshot();
        if (mStatus.LoadWritePosition() != avcapture::WritePosition{snapshot.mLoop, snapshot.mHeadFrame}) continue;
        if (mStatus.TailFrame() != snapshot.mTailFrame) continue;
        *loop = snapshot.mLoop;
        *head = snapshot.mHeadFrame;
        *tailLoop = snapshot.TailLoop();
        *tail = snapshot.mTailFrame;
        return;
    }
}

AVCaptureCorvane::Snapshot AVCaptureCorvane::TakeSnapshot() const
{
    for (;;) {
        const auto [loop, head] = mStatus.LoadWritePosition();
        const uint32_t tail = mStatus.TailFrame();
        if (tail != head) return {loop, head, tail, mRing.IsBlockStart(head) && tail < mRing.mLoopFrames};
        // No service stays in this state. While one does, this goes on, and Pause waits for it.
        const kernel::RealtimeExemption exemption("a service that has lost its way must not cost a processor");
        kernel::usleep(1);
    }
}

void AVCaptureCorvane::Consume()
{
    const kernel::RealtimeScope cycle;
    Chunk chunk;
    while (ConsumeBlock(chunk)) {
    }
}

/// Adds the next block to the chunk. @return false once the chunk is done with
bool AVCaptureCorvane::ConsumeBlock(Chunk& chunk)
{
    DemoteWhenComputeBound();
    const Snapshot snapshot = TakeSnapshot();
    // A chunk never spans a gap, nor does it wait for a writer that has lost its way.
    if (!snapshot.mValid || (CatchUp(snapshot) && chunk.mBytes > 0)) return HandOn(chunk), false;
    if (IsEarlier(snapshot.mLoop, mReadLoop) || (mReadLoop == snapshot.mLoop && mReadFrame > snapshot.mHeadFrame))
        return false;
    if (mReadLoop == snapshot.mLoop && mReadFrame == snapshot.mHeadFrame) return HandOn(chunk), false;

    ConvertBlock(chunk);
    if (IsOverwritten(TakeSnapshot())) return true;
    AcceptBlock(chunk);
    const uint64_t blockBytes = mRing.BlockSamples() * GetOutputSampleSize();
    if (chunk.mBytes + blockBytes > mOutputCapacity) return HandOn(chunk), false;
    return true;
}

void AVCaptureCorvane::DemoteWhenComputeBound()
{
    if (!mBoosted) return;
    const uint64_t busyNS = (mach_absolute_time() - mLastWake) * mTimeBase.numer / mTimeBase.denom;
    if (busyNS <= kComputeBoundNanos) return;
    const kernel::RealtimeExemption exemption("this late the cycle is not real-time any more");
    std::fputs("AudioConsumer has been compute bound for >1s, breaking the cycle...\n", stderr);
    AVCapture::PriorityDowngrade();
    mBoosted = false;
}

/// Moves a reader that the tail has passed to the first block from the tail on. @return whether it had to
bool AVCaptureCorvane::CatchUp(const Snapshot& snapshot)
{
    const uint32_t tailLoop = snapshot.TailLoop();
    const uint64_t tailFrame = snapshot.mTailFrame;
    if (IsEarlier(mReadLoop, tailLoop)) {
        mStreamTimeNS += (uint64_t(mRing.mBlockFrames) - mReadFrame + tailFrame) * mRing.mNSPerFrame +
                         uint64_t(tailLoop - mReadLoop) * mRing.mNSPerLoop;
    } else if (mReadLoop == tailLoop && tailFrame > mReadFrame) {
        mStreamTimeNS += (tailFrame - mReadFrame) * mRing.mNSPerFrame;
    } else {
        return false;
    }
    const uint32_t offBlock = snapshot.mTailFrame % mRing.mBlockFrames;
    const uint32_t toBlock = offBlock == 0 ? 0 : mRing.mBlockFrames - offBlock;
    mStreamTimeNS += toBlock * mRing.mNSPerFrame;
    mReadLoop = tailLoop;
    mReadFrame = snapshot.mTailFrame + toBlock;
    if (mReadFrame < mRing.mLoopFrames) return true;
    mReadFrame = 0;
    ++mReadLoop;
    return true;
}

bool AVCaptureCorvane::IsOverwritten(const Snapshot& snapshot) const
{
    const uint32_t tailLoop = snapshot.TailLoop();
    return !snapshot.mValid || IsEarlier(mReadLoop, tailLoop) ||
           (mReadLoop == tailLoop && snapshot.mTailFrame > mReadFrame);
}

void AVCaptureCorvane::ConvertBlock(const Chunk& chunk)
{
    const vm_address_t block =
        mAudioRegion.Address() + size_t(mReadFrame) * mRing.mChannelCount * avcapture::kSampleBytes;
    avcapture::ConvertSamples(mOutputType, reinterpret_cast<const void*>(block), mTranslated,
                              reinterpret_cast<void*>(mOutputBuffer.Address() + chunk.mBytes), mRing.BlockSamples());
}

void AVCaptureCorvane::AcceptBlock(Chunk& chunk)
{
    if (chunk.mBytes == 0) {
        chunk.mTimeNS = mStreamTimeNS;
        chunk.mFrame = uint64_t(mReadLoop - 1) * mRing.mLoopFrames + mReadFrame;  // the first pass is number 1
    }
    mStreamTimeNS += mRing.mNSPerBlock;
    chunk.mBytes += uint32_t(mRing.BlockSamples() * GetOutputSampleSize());
    mReadFrame += mRing.mBlockFrames;
    if (mReadFrame < mRing.mLoopFrames) return;
    mReadFrame = 0;
    ++mReadLoop;
}

void AVCaptureCorvane::HandOn(const Chunk& chunk)
{
    if (chunk.mBytes == 0) return;
    mChunkFrame = chunk.mFrame;
    Process(reinterpret_cast<const void*>(mOutputBuffer.Address()), chunk.mBytes,
            chunk.mTimeNS / platform::kernel::kNanosPerMicrosecond);
}

void AVCaptureCorvane::Process(const void* buffer, uint32_t bytes, uint64_t timeUS)
{
    // Never with a sample size of 0: no bytes are gathered then.
    const uint32_t frames = bytes / (GetOutputSampleSize() * mRing.mChannelCount);
    mDetails.audioFrames.fetch_add(frames, std::memory_order_relaxed);
    mDetails.audioBytes.fetch_add(bytes, std::memory_order_relaxed);
    if (const int error = mCallback(mUserData, buffer, bytes, frames, timeUS, mDetails.audioFormat))
        mCallbackError = error;
}

size_t AVCaptureCorvane::ReadLog(uint64_t& next, std::span<tap::wire::LogEntry> entries) const
{
    if (!mStatus.HasTimeline()) return 0;
    const auto oldest = [](uint64_t count) { return count - std::min<uint64_t>(count, tap::wire::kLogEntries - 1); };
    const uint64_t count = mStatus.LogCount();
    const uint64_t first = std::max(next, oldest(count));
    if (first >= count) return 0;
    const size_t read = size_t(std::min<uint64_t>(count - first, entries.size()));
    for (size_t i = 0; i < read; ++i) entries[i] = mStatus.LoadLogEntry(first + i);
    next = first + read;
    // What the service wrote over meanwhile may be torn.
    const uint64_t overwritten = oldest(mStatus.LogCount());
    const size_t torn = size_t(std::clamp<uint64_t>(overwritten, first, next) - first);
    std::move(entries.begin() + ptrdiff_t(torn), entries.begin() + ptrdiff_t(read), entries.begin());
    return read - torn;
}
