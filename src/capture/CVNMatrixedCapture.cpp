// The cycle: is every input aligned and readable? Then the mixer pulls them. What makes the graph is in
// CVNMatrixedCaptureBuild.cpp.
#include "capture/CVNMatrixedCapture.h"

#include "capture/OSLAudio_SupportCapture.h"
#include "capture/buffers/CAAudioBufferList.h"

#include <span>

namespace kernel = platform::kernel;

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;
// Behind cycles that are borne: the next one starts the alignment anew, however long ago the others were.
constexpr uint32_t kBehindLimit = 2;

void Count(std::atomic<uint32_t>& count) noexcept
{
    count.store(count.load(kRelaxed) + 1, kRelaxed);  // one thread counts
}

CAMutex::Scope LockInCycle(CAMutex& mutex)
{
    const kernel::RealtimeExemption exemption("control holds it for the flip of one flag, and no cycle else wants it");
    return CAMutex::Scope(mutex);
}

}  // namespace

OSStatus CVNMatrixedCapture_InputCallback(void* capture, UInt32*, const AudioTimeStamp*, UInt32, UInt32,
                                          AudioBufferList*)
{
    static_cast<CVNMatrixedCapture*>(capture)->InputRendered();
    return 0;
}

OSStatus CVNMatrixedCapture::Render(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                                    AudioBufferList* data) CORVANE_REALTIME
{
    const kernel::RealtimeScope cycle;
    const CAMutex::Scope lock = LockInCycle(mMutex);
    if (!mRenderEnabled) {
        CAAudioBufferList::Clear(*data);
        return 0;
    }
    if (frames > kMaxRenderFrames) return kAudioUnitErr_TooManyFramesToProcess;
    for (const auto& input : mInputs) input->PreRender(time, frames);
    if (mAllowRenderingPending) {
        mAllowRenderingPending = false;
        AllowRendering();
    }
    if (mAlignAnewPending.exchange(false, std::memory_order_acquire)) StartAnew();
    SizeMixBuffer(frames);
    switch (LookAtInputs(frames)) {
        case Readiness::Waiting:
            CAAudioBufferList::Clear(*data);
            return 0;
        case Readiness::Silent:
            CAAudioBufferList::Clear(*mMixBuffer);
            break;
        case Readiness::Ready:
            if (const OSStatus error = RenderMix(flags, time, bus, frames)) return error;
            break;
    }
    CountClipped(CAAudioBufferList::Clip(-1.0F, 1.0F, *mMixBuffer, *data));
    return 0;
}

void CVNMatrixedCapture::CountClipped(uint64_t samples) noexcept
{
    if (samples != 0) mClippedSamples.store(mClippedSamples.load(kRelaxed) + samples, kRelaxed);  // one thread counts
}

CVNMatrixedCapture::Readiness CVNMatrixedCapture::LookAtInputs(UInt32 frames) noexcept
{
    const Readiness readiness = mNeedsSynchronize.load(kRelaxed) ? Align(frames) : CheckInputs(frames);
    if (readiness == Readiness::Waiting) Count(mWaitingCycles);
    if (readiness == Readiness::Silent) NoteSilence(frames);
    return readiness;
}

CVNMatrixedCapture::Readiness CVNMatrixedCapture::Align(UInt32 frames) noexcept
{
    AudioTimeStamp latest;
    OSLAudio_ConvertedInputCapture* const reference = GetLatestTimeStamp(&latest, true);
    if (!reference) {
        for (const auto& input : mInputs) input->NoteCycle(input->HasData(), frames);
        return Readiness::Waiting;
    }
    const OSStatus status = SynchronizeInputs(&latest, reference, frames);
    // What is ahead is there in one of the next cycles, which take the same stamps. What a ring has given up never
    // comes back, and only new stamps lead to sound again.
    if (status < 0) StartAnew();
    if (status != 0) return Readiness::Silent;
    mNeedsSynchronize.store(false, kRelaxed);
    mAlignedHostTime.store(latest.mHostTime, kRelaxed);
    for (const auto& input : mInputs) input->ForgetSilence();
    return Readiness::Ready;
}

CVNMatrixedCapture::Readiness CVNMatrixedCapture::CheckInputs(UInt32 frames) noexcept
{
    Readiness readiness = Readiness::Ready;
    for (const auto& input : mInputs) {
        const OSStatus status = input->CheckFetch(frames);
        input->NoteCycle(status == RingOK, frames);
        if (status == RingOK) continue;
        // One that is ahead only waits for what will come. One that is behind has lost sound: good cycles in between
        // do not make up for it.
        if (status < 0) Count(mRenderBehindCount);
        readiness = Readiness::Silent;
        if (mRenderBehindCount.load(kRelaxed) > kBehindLimit) {
            mRenderBehindCount.store(0, kRelaxed);
            StartAnew();
            break;
        }
    }
    return readiness;
}

/// Drops what the inputs hold and what is on its way, so that nothing of the old alignment is left in the new one.
void CVNMatrixedCapture::StartAnew() noexcept
{
    mNeedsSynchronize.store(true, kRelaxed);
    for (const auto& input : mInputs) {
        input->ResetBuffering();
        input->ResetGraph();
    }
    mMixer->Reset();  // a unit that does not reset keeps less than a slice, and there is no second way to ask
}

/// In silent cycles, too: what is cleared is what its byte sizes say, and the cycle before may have been a shorter one.
void CVNMatrixedCapture::SizeMixBuffer(UInt32 frames) noexcept
{
    for (AudioBuffer& buffer : std::span(mMixBuffer->mBuffers, mMixBuffer->mNumberBuffers))
        buffer.mDataByteSize = frames * mCaptureDesc.mBytesPerFrame;
}

OSStatus CVNMatrixedCapture::RenderMix(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames) noexcept
{
    const OSStatus error = mMixer->Render(flags, time, bus, frames, mMixBuffer);
    CountRefusals(frames);
    return error;
}

/// An input at another rate may be asked for more than was looked for; the mixer is then silent without an error.
void CVNMatrixedCapture::CountRefusals(UInt32 frames) noexcept
{
    bool refused = false;
    for (const auto& input : mInputs) {
        if (!input->TakeRefusal()) continue;
        input->NoteCycle(false, frames);
        refused = true;
    }
    if (refused) NoteSilence(frames);
}

void CVNMatrixedCapture::NoteSilence(UInt32 frames) noexcept
{
    Count(mSilentCycles);
    for (const auto& input : mInputs) input->NoteSilence(frames);
}

OSLAudio_ConvertedInputCapture* CVNMatrixedCapture::GetLatestTimeStamp(AudioTimeStamp* latest, bool) noexcept
{
    *latest = {};
    OSLAudio_ConvertedInputCapture* reference = nullptr;
    bool allKnown = true;
    for (const auto& input : mInputs) {
        if (!input->HasData()) return nullptr;
        const AudioTimeStamp first = input->GetFirstInputTime();
        allKnown = allKnown && first.mHostTime != 0;
        if (first.mHostTime <= latest->mHostTime) continue;
        *latest = first;
        reference = input.get();
    }
    return allKnown ? reference : nullptr;
}

OSStatus CVNMatrixedCapture::SynchronizeInputs(AudioTimeStamp* time, OSLAudio_ConvertedInputCapture* reference,
                                               UInt32 frames) noexcept
{
    for (const auto& input : mInputs) {
        if (input.get() == reference)
            input->ResetFetchTime(time);
        else
            input->Synchronize(time);
    }
    OSStatus result = 0;
    for (const auto& input : mInputs) {
        const OSStatus status = input->CheckFetch(frames);
        input->NoteCycle(status == RingOK, frames);
        if (result == 0 || (result > 0 && status < 0)) result = status;
    }
    return result;
}

void CVNMatrixedCapture::AllowRendering() noexcept
{
    for (const auto& input : mInputs) input->AllowRendering();
}

OSStatus CVNMatrixedCapture::SkipFrames(double frames) noexcept
{
    for (const auto& input : mInputs) input->SkipFrames(frames);
    return 0;
}

void CVNMatrixedCapture::AdjustReadTime(double frames) noexcept
{
    const auto whole = double(int64_t(frames));
    // The buffered kind of skipping, which does not know of rates.
    for (const auto& input : mInputs) input->OSLAudio_BufferedInputCapture::SkipFrames(whole);
}

CVNRenderCounts CVNMatrixedCapture::GetRenderCounts() const noexcept
{
    return {mWaitingCycles.load(kRelaxed), mSilentCycles.load(kRelaxed), mRenderBehindCount.load(kRelaxed),
            mClippedSamples.load(kRelaxed)};
}

CVNInputStatus CVNMatrixedCapture::GetInputStatus(size_t index) const noexcept
{
    const OSLAudio_ConvertedInputCapture& input = *mInputs[index];
    CVNInputStatus status{input.HasData(), input.GetSilentFrames(), input.GetLastInputHostTime(),
                          input.GetMissedFrames()};
    if (input.GetSource()->GetSourceType() != kTapSource) return status;
    const AVCaptureLosses losses = static_cast<OSLAudio_SupportCapture*>(input.GetSource())->GetLosses();
    status.mMissedFrames += uint64_t(losses.missedFrames) + losses.starvedFrames;
    status.mLostFrames += losses.droppedFrames;
    return status;
}

bool CVNMatrixedCapture::TakeInputGap(size_t index, double* ahead, double* seconds) noexcept
{
    OSLAudio_ConvertedInputCapture& input = *mInputs[index];
    AudioStreamBasicDescription source{};
    double delaySeconds = 0, frames = 0;
    if (input.GetSource()->GetAudioDesc(&source) != 0 || source.mSampleRate <= 0) return false;
    if (!input.TakeGap(ahead, &frames)) return false;
    input.GetGraphLatency(&delaySeconds);  // one that is not known yet is left out
    *ahead = *ahead / source.mSampleRate + delaySeconds;
    *seconds = frames / source.mSampleRate;
    return true;
}
