#include "capture/OSLAudio_SupportCapture.h"

#include "capture/InterleavedFloats.h"
#include "capture/Status.h"
#include "capture/buffers/AI.h"
#include "capture/buffers/DeviceProperties.h"
#include "platform/audio/StampLatency.h"
#include "platform/foundation/CFDictionary.h"
#include "platform/kernel/HostTime.h"
#include "utility/CAHostTimeBase.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr UInt32 kTapChannels = 2;
constexpr double kStandardRateHz = 44100.0;
using platform::kernel::kNanosPerSecond;

/// The devices of an array of UIDs that are there, in its order. The array may be null.
template <class Take>
void ForEachDevice(CFArrayRef uids, Take&& take)
{
    for (CFIndex index = 0; uids && index < CFArrayGetCount(uids); ++index) {
        AudioDeviceID device = 0;
        const auto* const uid = cf::As<cf::String>(CFArrayGetValueAtIndex(uids, index));
        if (uid && AI_GetDeviceWithUID(uid, &device) == 0 && device != 0) take(device);
    }
}

/// The rate of a device's output side; 0 where it cannot be read.
double ReadOutputRate(AudioDeviceID device)
{
    Float64 rate = 0;
    const bool read = capture::GetDeviceProperty(device, false, kAudioDevicePropertyNominalSampleRate, &rate) == 0;
    return read ? rate : 0;
}

}  // namespace

int OSLAudio_SupportCapture_Callback(void* capture, const void* samples, uint32_t byteCount, uint32_t frames,
                                     uint64_t timeUS, AudioStreamBasicDescription desc)
{
    return static_cast<OSLAudio_SupportCapture*>(capture)->AVCaptureRender(samples, byteCount, frames, timeUS, desc);
}

OSLAudio_SupportCapture::~OSLAudio_SupportCapture() = default;

UInt32 OSLAudio_SupportCapture::GetSourceType()
{
    return kTapSource;
}

OSStatus OSLAudio_SupportCapture::Create(CFArrayRef applications, CFArrayRef devices, AudioStreamBasicDescription* desc)
{
    mAudioDesc = capture::InterleavedFloats(GetMaximimumSampleRateForDeviceUIDs(devices), kTapChannels);
    AVCapture* session = nullptr;
    const OSStatus error = AVCapture::CreateAudio(&session, OSLAudio_SupportCapture_Callback, this, mAudioDesc, devices,
                                                  applications, kAVCaptureLowLatencyAudio);
    mTapSession.reset(session);
    if (error) return error;
    mTapSession->UpdatePlayThru(!mSoftwareMuted);  // a service that cannot mute still captures
    if (desc) *desc = mAudioDesc;
    return capture::StatusOf([&] {
        SetDevices(devices);
        UpdateLatency();  // without it the rate of no device is asked for, which the graph can do without
        return 0;
    });
}

double OSLAudio_SupportCapture::GetMaximimumSampleRateForDeviceUIDs(CFArrayRef deviceUIDs)
{
    double greatest = 0.0;
    ForEachDevice(deviceUIDs, [&](AudioDeviceID device) { greatest = std::max(greatest, ReadOutputRate(device)); });
    if (greatest != 0) return greatest;
    AudioDeviceID standard = 0;
    const double rate = AI_GetDefaultOutputDevice(&standard) == 0 ? ReadOutputRate(standard) : 0;
    return rate != 0 ? rate : kStandardRateHz;
}

OSStatus OSLAudio_SupportCapture::GetDefaultOutputDevice(AudioDeviceID* device)
{
    return AI_GetDefaultOutputDevice(device);
}

void OSLAudio_SupportCapture::SetDevices(CFArrayRef deviceUIDs)
{
    mDevices.clear();
    ForEachDevice(deviceUIDs, [&](AudioDeviceID device) { mDevices.push_back(device); });
}

OSStatus OSLAudio_SupportCapture::UpdateLatency()
{
    mLatencyFrames = 0;
    UInt32 greatest = 0;
    for (const AudioDeviceID device : mDevices) {
        UInt32 latency = 0;
        if (const OSStatus error = GetDeviceLatency(device, false, &latency)) return error;
        if (latency <= greatest) continue;
        greatest = latency;
        mDeviceID = device;
    }
    mLatencyFrames = 0;  // the walk is for the device: stamps are those of arrival
    return 0;
}

OSStatus OSLAudio_SupportCapture::Initialize()
{
    mTapBufferList = {1, {{kTapChannels, 0, nullptr}}};
    mInitialized = true;
    return 0;
}

OSStatus OSLAudio_SupportCapture::Uninitialize()
{
    if (!mInitialized) return capture::kNotInitialized;
    Stop();
    mTapSession.reset();
    mInitialized = false;
    return 0;
}

OSStatus OSLAudio_SupportCapture::SetRenderCallback(AURenderCallback callback, void* refCon)
{
    mRenderCallback = callback;
    mRenderRefCon = refCon;
    return 0;
}

OSStatus OSLAudio_SupportCapture::Start()
{
    if (!mInitialized) return capture::kNotInitialized;
    mMomentOfFrame0 = mTapSession->MomentOfFrame0();
    mStampLatencyNanos = platform::audio::StampLatencyNanos();
    return mTapSession->Resume();
}

OSStatus OSLAudio_SupportCapture::Pause()
{
    if (mTapSession && !mTapSession->Paused()) mTapSession->Pause();
    return 0;
}

OSStatus OSLAudio_SupportCapture::Stop()
{
    return Pause();
}

OSStatus OSLAudio_SupportCapture::GetDeviceID(AudioDeviceID* device)
{
    *device = mDeviceID;
    return 0;
}

OSStatus OSLAudio_SupportCapture::GetAudioDesc(AudioStreamBasicDescription* desc)
{
    if (!mInitialized) return capture::kNotInitialized;
    *desc = mAudioDesc;
    return 0;
}

CFArrayRef OSLAudio_SupportCapture::CopyCapturedSources()
{
    return nullptr;
}

int OSLAudio_SupportCapture::AVCaptureRender(const void* data, UInt32 byteCount, UInt32 frames, uint64_t,
                                             const AudioStreamBasicDescription&) CORVANE_REALTIME
{
    mRendered.store(true, std::memory_order_relaxed);
    mTapBufferList = {1, {{kTapChannels, byteCount, const_cast<void*>(data)}}};  // readers of a list do not write it
    if (mRenderCallback) {
        StampChunk();
        UInt32 flags = 0;
        // A buffer that its taker refuses is lost to the taker alone: the tap goes on.
        mRenderCallback(mRenderRefCon, &flags, &mCurrentTime, 0, frames, &mTapBufferList);
    }
    mCurrentTime.mSampleTime += frames;
    return 0;
}

/// The session's own time is not used: it begins with the tap, and leaves pauses out.
void OSLAudio_SupportCapture::StampChunk() noexcept
{
    AudioTimeStamp now{};
    const OSStatus error = AudioDeviceGetCurrentTime(mDeviceID, &now);
    mCurrentTime.mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid;
    mCurrentTime.mHostTime = CAHostTimeBase::GetCurrentTime();
    if (mMomentOfFrame0 != 0) StampMoment();
    mBaseTime.PublishOnce(mCurrentTime);
    if (error == 0) mCurrentTime.mRateScalar = now.mRateScalar;
}

/// A chunk arrives as late as the consumer's wake-up and as the blocks that it gathered. The session knows which frame
/// of its schedule comes first, and with it both the moment and how many frames were lost before.
void OSLAudio_SupportCapture::StampMoment() noexcept
{
    const uint64_t frame = mTapSession->ChunkFrame();
    if (!mFirstFrame) mFirstFrame = frame;
    const double nanos = double(frame) / mAudioDesc.mSampleRate * kNanosPerSecond;
    mCurrentTime.mHostTime = CAHostTimeBase::ConvertFromNanos(mMomentOfFrame0 + mStampLatencyNanos + uint64_t(nanos));
    mCurrentTime.mSampleTime = double(frame - *mFirstFrame);
}

OSStatus OSLAudio_SupportCapture::TranslateTime(const AudioTimeStamp* in, AudioTimeStamp* out) CORVANE_REALTIME
{
    const AudioTimeStamp base = mBaseTime.Get();
    if (base.mRateScalar == 0.0) return -1;
    out->mHostTime = in->mHostTime;
    const double seconds = double(in->mHostTime - base.mHostTime) / kNanosPerSecond;  // unsigned: only what comes after
    out->mSampleTime = std::round(seconds * mAudioDesc.mSampleRate + base.mSampleTime);
    return 0;
}

void OSLAudio_SupportCapture::FillOutTimeStamp(AudioTimeStamp* time)
{
    const AudioTimeStamp base = mBaseTime.Get();
    // Frames are not turned into seconds by the rate: a host time from here says no more than the order of stamps.
    const double nanos = (time->mSampleTime - base.mSampleTime) / kNanosPerSecond;
    time->mHostTime = base.mHostTime + CAHostTimeBase::ConvertFromNanos(uint64_t(int64_t(nanos)));
    time->mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid;
}

OSStatus OSLAudio_SupportCapture::SetMuted(bool muted)
{
    mSoftwareMuted = muted;
    if (mTapSession) mTapSession->UpdatePlayThru(!muted);  // what is stored stands, also where the service refuses now
    return 0;
}

bool OSLAudio_SupportCapture::IsMuted()
{
    return mSoftwareMuted;
}

bool OSLAudio_SupportCapture::IsMutable()
{
    return true;
}

double OSLAudio_SupportCapture::GetRateScalar() CORVANE_REALTIME
{
    return 1.0;
}
