#include "capture/OSLAudio_BufferedInputCapture.h"

#include "capture/Status.h"

#include <cmath>

OSStatus OSLAudio_BufferedInputCapture_HALCallback(void* input, UInt32* flags, const AudioTimeStamp* time, UInt32 bus,
                                                   UInt32 frames, AudioBufferList* data)
{
    const platform::kernel::RealtimeScope cycle;
    return static_cast<OSLAudio_BufferedInputCapture*>(input)->RenderCallback(flags, time, bus, frames, data);
}

OSLAudio_BufferedInputCapture::~OSLAudio_BufferedInputCapture()
{
    mSource.reset();  // first: its thread stores into the ring
}

OSStatus OSLAudio_BufferedInputCapture::Create(OSLAudio_InputCapture* source)
{
    mSource.reset(source);
    Initialize();
    return 0;
}

OSStatus OSLAudio_BufferedInputCapture::Initialize()
{
    ClearTimes();
    OSStatus error = mSource->IsInitialized() ? 0 : mSource->Initialize();
    if (!error) error = mSource->SetRenderCallback(OSLAudio_BufferedInputCapture_HALCallback, this);
    if (!error) error = mSource->GetAudioDesc(&mSourceDesc);
    if (!error) {
        error = capture::StatusOf([&] {
            mRingBuffer = std::make_unique<CARingBuffer>();
            // One channel for each buffer of a list: an interleaved source has one, as wide as its frames.
            const bool split = mSourceDesc.mFormatFlags & kAudioFormatFlagIsNonInterleaved;
            mRingBuffer->Allocate(split ? int(mSourceDesc.mChannelsPerFrame) : 1, mSourceDesc.mBytesPerFrame,
                                  uint32_t(mBufferSeconds * mSourceDesc.mSampleRate));
            return 0;
        });
    }
    mInitialized = error == 0;
    return 0;
}

OSStatus OSLAudio_BufferedInputCapture::Uninitialize()
{
    if (mSource) mSource->Uninitialize();  // one that was never initialized says so, and there is nothing to end
    mRingBuffer.reset();
    mInitialized = false;
    return 0;
}

bool OSLAudio_BufferedInputCapture::IsInitialized()
{
    return mInitialized;
}

OSStatus OSLAudio_BufferedInputCapture::SetRenderCallback(AURenderCallback callback, void* refCon)
{
    mInputCallback = callback;
    mInputCallbackRefCon = refCon;
    return 0;
}

OSStatus OSLAudio_BufferedInputCapture::GetRenderDesc(AudioStreamBasicDescription* desc)
{
    *desc = mSourceDesc;
    return 0;
}

OSStatus OSLAudio_BufferedInputCapture::SetMaxRenderSlice(UInt32)
{
    return 0;
}

OSStatus OSLAudio_BufferedInputCapture::GetMaxRenderSlice(UInt32* frames)
{
    *frames = UINT32_MAX;
    return 0;
}

OSStatus OSLAudio_BufferedInputCapture::RenderCallback(UInt32* flags, const AudioTimeStamp* time, UInt32 bus,
                                                       UInt32 frames, AudioBufferList* data) CORVANE_REALTIME
{
    if (!mRenderingAllowed.load(std::memory_order_acquire)) return 0;
    if (time->mHostTime != 0) mFirstInputTime.PublishOnce(*time);
    mLastInputHostTime.store(time->mHostTime, std::memory_order_relaxed);
    if (const OSStatus error = mRingBuffer->Store(data, frames, int64_t(time->mSampleTime))) return error;
    mRateChanges.Note(time->mSampleTime + frames, mSource->GetRateScalar());
    CountMissed(*time, frames);
    mHasData.store(true, std::memory_order_release);
    if (mInputCallback) mInputCallback(mInputCallbackRefCon, flags, time, bus, frames, data);
    return 0;
}

void OSLAudio_BufferedInputCapture::CountMissed(const AudioTimeStamp& time, UInt32 frames) noexcept
{
    const double passedOver = time.mSampleTime - mNextSampleTime;
    if (mNextSampleTime != 0 && passedOver >= 1) {
        mMissedFrames.store(GetMissedFrames() + uint64_t(passedOver), std::memory_order_relaxed);
        mGaps.Push({mNextSampleTime, passedOver});
    }
    mNextSampleTime = time.mSampleTime + frames;
}

bool OSLAudio_BufferedInputCapture::TakeGap(double* ahead, double* frames) noexcept
{
    capture::Gap gap;
    while (mGaps.Pop(gap)) {
        if (mFetchTime.mSampleTime == 0) continue;
        *ahead = gap.mStart - mFetchTime.mSampleTime;
        *frames = gap.mFrames;
        return true;
    }
    return false;
}

OSStatus OSLAudio_BufferedInputCapture::Render(UInt32*, const AudioTimeStamp*, UInt32, UInt32 frames,
                                               AudioBufferList* data) CORVANE_REALTIME
{
    const OSStatus status = Fetch(&mFetchTime, frames, data);
    if (status == RingOK) mFetchTime.mSampleTime += frames;
    return status;
}

OSStatus OSLAudio_BufferedInputCapture::Fetch(const AudioTimeStamp* time, UInt32 frames,
                                              AudioBufferList* list) CORVANE_REALTIME
{
    return FetchFromRing(time->mSampleTime, frames, list);
}

int OSLAudio_BufferedInputCapture::FetchFromRing(double sampleTime, UInt32 frames, AudioBufferList* list) noexcept
{
    return mRingBuffer->Fetch(list, frames, int64_t(sampleTime), false);
}

OSStatus OSLAudio_BufferedInputCapture::CheckFetch(UInt32 frames) CORVANE_REALTIME
{
    return mRingBuffer->CheckTimeBounds(int64_t(mFetchTime.mSampleTime), int64_t(frames + mFetchTime.mSampleTime));
}

OSStatus OSLAudio_BufferedInputCapture::PreRender(const AudioTimeStamp* time, UInt32 frames) CORVANE_REALTIME
{
    if (!mSource->IsRenderReady(time, frames)) mSource->PrepareRender(frames);  // what it cannot do, Fetch will say
    return 0;
}

OSStatus OSLAudio_BufferedInputCapture::SkipFrames(double frames)
{
    mFetchTime.mSampleTime += frames;
    return 0;
}

OSStatus OSLAudio_BufferedInputCapture::ResetFetchTime(AudioTimeStamp* time)
{
    mFetchTime.mSampleTime = time->mSampleTime;
    return 0;
}

OSStatus OSLAudio_BufferedInputCapture::Synchronize(const AudioTimeStamp* time)
{
    const double skip = SynchronizeSkipSamples(time);
    mFetchTime = mFirstInputTime.Get();
    mFetchTime.mSampleTime += skip;
    return 0;
}

double OSLAudio_BufferedInputCapture::SynchronizeSkipSamples(const AudioTimeStamp* time)
{
    const AudioTimeStamp first = mFirstInputTime.Get();
    // One buffer of one timeline needs no clock, and so none of its rounding. Of two timelines the sample times have
    // nothing to do with each other, though the moment may be the same.
    if (first.mHostTime == time->mHostTime && first.mSampleTime == time->mSampleTime) return 0;
    AudioTimeStamp in = *time;
    in.mSampleTime = 0;
    in.mFlags = kAudioTimeStampHostTimeValid;
    AudioTimeStamp out{};
    out.mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid;
    mSource->TranslateTime(&in, &out);  // a source that cannot say is taken at its time 0
    return std::ceil(out.mSampleTime - first.mSampleTime);
}

OSStatus OSLAudio_BufferedInputCapture::ResetBuffering() noexcept
{
    mRingBuffer->Reset();
    mHasData.store(false, std::memory_order_release);
    ClearTimes();
    return 0;
}

void OSLAudio_BufferedInputCapture::ClearTimes() noexcept
{
    mFirstInputTime.Withdraw();
    mLastInputHostTime.store(0, std::memory_order_relaxed);
    mFetchTime = {};
    mFetchTime.mFlags = kAudioTimeStampSampleTimeValid;
}

double OSLAudio_BufferedInputCapture::GetHeldFrames() const noexcept
{
    if (mFetchTime.mSampleTime == 0) return 0;
    int64_t start = 0, end = 0;
    mRingBuffer->GetTimeBounds(start, end);  // an overload leaves the zeros
    return double(end) - mFetchTime.mSampleTime;
}

double OSLAudio_BufferedInputCapture::RateScalarBefore(double frames) const noexcept
{
    int64_t start = 0, end = 0;
    mRingBuffer->GetTimeBounds(start, end);  // an overload leaves what it read last, which is near enough
    return mRateChanges.At(double(end) - frames, mSource->GetRateScalar());
}

AudioTimeStamp OSLAudio_BufferedInputCapture::BufferStartTimeStamp()
{
    int64_t start = 0, end = 0;
    mRingBuffer->GetTimeBounds(start, end);  // an overload leaves the zeros
    return StampOf(start);
}

AudioTimeStamp OSLAudio_BufferedInputCapture::BufferEndTimeStamp()
{
    int64_t start = 0, end = 0;
    mRingBuffer->GetTimeBounds(start, end);
    return StampOf(end);
}

AudioTimeStamp OSLAudio_BufferedInputCapture::StampOf(int64_t sampleTime)
{
    AudioTimeStamp time{};
    time.mSampleTime = double(sampleTime);
    time.mFlags = kAudioTimeStampSampleTimeValid;
    mSource->FillOutTimeStamp(&time);
    return time;
}

void OSLAudio_BufferedInputCapture::Dump_Diagnostics() {}
