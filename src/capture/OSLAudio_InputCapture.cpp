// A hardware input's life and its callback. Which device, which format: OSLAudio_InputCaptureDevice.cpp.
#include "capture/OSLAudio_InputCapture.h"

#include "capture/buffers/CAAudioBufferList.h"
#include "capture/buffers/UnitCalls.h"
#include "platform/kernel/HostTime.h"
#include "utility/CAHostTimeBase.h"

#include <span>

using capture::GetUnitProperty;
using capture::SetUnitProperty;

namespace {

constexpr UInt32 kSliceMarginFrames = 32;  // a device may give a few frames more than it promised
using platform::kernel::kNanosPerSecond;

}  // namespace

OSStatus OSLAudio_InputCapture_HALCallback(void* capture, UInt32* flags, const AudioTimeStamp* time, UInt32 bus,
                                           UInt32 frames, AudioBufferList* data)
{
    const platform::kernel::RealtimeScope cycle;
    return static_cast<OSLAudio_InputCapture*>(capture)->RenderCallback(flags, time, bus, frames, data);
}

OSLAudio_InputCapture::~OSLAudio_InputCapture()
{
    if (mOutputUnit) OSLAudio_InputCapture::Uninitialize();  // nobody is left to be told of a failure
    DestroyBufferList(mBufferList);
}

UInt32 OSLAudio_InputCapture::GetSourceType()
{
    return FourCC("Ccap");
}

OSStatus OSLAudio_InputCapture::SetRenderCallback(AURenderCallback callback, void* refCon)
{
    mRenderCallback = callback;
    mRenderRefCon = refCon;
    return 0;
}

OSStatus OSLAudio_InputCapture::OpenInputAU()
{
    if (const OSStatus error = capture::OpenUnit(FourCC("auou"), FourCC("ahal"), &mOutputUnit)) return error;
    constexpr UInt32 kOn = 1, kOff = 0;
    if (const OSStatus error =
            SetUnitProperty(mOutputUnit, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, kInputElement, kOn))
        return error;
    if (const OSStatus error =
            SetUnitProperty(mOutputUnit, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Output, 0, kOff))
        return error;
    // Stamps keep the device's own sample time, which is what its clock translates to.
    if (const OSStatus error = SetUnitProperty(mOutputUnit, kAudioOutputUnitProperty_StartTimestampsAtZero,
                                               kAudioUnitScope_Global, 0, kOff))
        return error;
    const AURenderCallbackStruct callback = {OSLAudio_InputCapture_HALCallback, this};
    return SetUnitProperty(mOutputUnit, kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, 0, callback);
}

OSStatus OSLAudio_InputCapture::CloseInputAU()
{
    if (!mOutputUnit) return 0;
    if (const OSStatus error = AudioUnitUninitialize(mOutputUnit)) return error;
    const OSStatus error = CloseComponent(mOutputUnit);
    mOutputUnit = nullptr;
    return error;
}

OSStatus OSLAudio_InputCapture::Create(CFStringRef deviceUID, UInt32 dataSource, AudioStreamBasicDescription* desc)
{
    mRenderCallback = nullptr;
    mRenderRefCon = nullptr;
    AudioDeviceID device = 0;
    if (deviceUID) {
        if (const OSStatus error = GetAudioDeviceWithUID(deviceUID, &device)) return error;
        // The system translates what it does not know to no device, which must not become the default one here.
        if (device == 0) return kAudioHardwareBadDeviceError;
    }
    return Create(device, dataSource, desc);
}

OSStatus OSLAudio_InputCapture::Create(AudioDeviceID device, UInt32 dataSource, AudioStreamBasicDescription* desc)
{
    if (const OSStatus error = OpenInputAU()) return error;
    if (const OSStatus error = SetAudioDevice(device, dataSource)) return error;
    AudioStreamBasicDescription standard{};
    if (const OSStatus error = GetDefaultDesc(&standard)) return error;
    if (desc) desc->mSampleRate = standard.mSampleRate;
    if (const OSStatus error = SetAudioDesc(desc ? desc : &standard)) return error;
    return Initialize();
}

OSStatus OSLAudio_InputCapture::Initialize()
{
    OSStatus error = AudioUnitInitialize(mOutputUnit);
    if (!error) error = GetAudioDesc(&mAudioDesc);
    if (!error) error = MakeBufferList();
    mLastTimeStamp = {};
    mLastTimeStamp.mRateScalar = 1.0;
    mRateScalar.store(1.0, std::memory_order_relaxed);
    if (!error) error = UpdateLatency();
    mInitialized = error == 0;
    return error;
}

OSStatus OSLAudio_InputCapture::MakeBufferList()
{
    UInt32 frames = 0;
    if (const OSStatus error =
            GetUnitProperty(mOutputUnit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0, &frames))
        return error;
    frames += kSliceMarginFrames;
    DestroyBufferList(mBufferList);
    const bool split = IsNonInterleaved(mAudioDesc);
    const UInt32 buffers = split ? mAudioDesc.mChannelsPerFrame : 1;
    mBufferList = CreateBufferList(buffers, frames * mAudioDesc.mBytesPerFrame);
    if (!mBufferList) return kAudio_MemFullError;
    for (AudioBuffer& buffer : std::span(mBufferList->mBuffers, buffers)) {
        buffer.mNumberChannels = split ? 1 : mAudioDesc.mChannelsPerFrame;
        if (!buffer.mData) return kAudio_MemFullError;
    }
    return 0;
}

OSStatus OSLAudio_InputCapture::Uninitialize()
{
    if (mOutputUnit) Stop();
    DestroyBufferList(mBufferList);
    mBufferList = nullptr;
    if (mOutputUnit) AudioUnitUninitialize(mOutputUnit);
    CloseInputAU();  // whatever the steps said: nothing can be done about a unit that does not end
    mInitialized = false;
    return 0;
}

OSStatus OSLAudio_InputCapture::Start()
{
    mRendered.store(false, std::memory_order_relaxed);
    mHostLatency = HostTimeInputLatency();
    return AudioOutputUnitStart(mOutputUnit);
}

OSStatus OSLAudio_InputCapture::Pause()
{
    return AudioOutputUnitStop(mOutputUnit);
}

OSStatus OSLAudio_InputCapture::Stop()
{
    return AudioOutputUnitStop(mOutputUnit);
}

OSStatus OSLAudio_InputCapture::RenderCallback(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                                               AudioBufferList*) CORVANE_REALTIME
{
    mRendered.store(true, std::memory_order_relaxed);
    mLastTimeStamp = *time;
    mRateScalar.store(time->mRateScalar, std::memory_order_relaxed);
    for (AudioBuffer& buffer : std::span(mBufferList->mBuffers, mBufferList->mNumberBuffers))
        buffer.mDataByteSize = frames * mAudioDesc.mBytesPerFrame;
    const OSStatus error = AudioUnitRender(mOutputUnit, flags, time, kInputElement, frames, mBufferList);
    if (error || !mRenderCallback) return error;
    AudioTimeStamp stamp = *time;
    stamp.mSampleTime -= mLatencyFrames;
    stamp.mHostTime -= mHostLatency;
    // A buffer that its taker refuses is lost to the taker alone: the device goes on.
    mRenderCallback(mRenderRefCon, flags, &stamp, bus, frames, mBufferList);
    return error;
}

OSStatus OSLAudio_InputCapture::GetAudioUnit(AudioUnit* unit)
{
    *unit = mOutputUnit;
    return 0;
}

AudioBufferList* OSLAudio_InputCapture::GetBufferList()
{
    return mBufferList;
}

SInt32 OSLAudio_InputCapture::GetLatencyFrames()
{
    return mLatencyFrames;
}

uint64_t OSLAudio_InputCapture::HostTimeInputLatency()
{
    AudioStreamBasicDescription desc{};
    if (GetAudioDesc(&desc) != 0 || desc.mSampleRate <= 0) return 0;
    return CAHostTimeBase::ConvertFromNanos(uint64_t(GetLatencyFrames() / desc.mSampleRate * kNanosPerSecond));
}

OSStatus OSLAudio_InputCapture::TranslateTime(const AudioTimeStamp* in, AudioTimeStamp* out) CORVANE_REALTIME
{
    return AudioDeviceTranslateTime(mDeviceID ? mDeviceID : mBoundDevice, in, out);
}

void OSLAudio_InputCapture::FillOutTimeStamp(AudioTimeStamp* time)
{
    AudioTimeStamp filled{};
    filled.mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid;
    TranslateTime(time, &filled);  // a device that cannot say leaves the zeros
    *time = filled;
}

OSStatus OSLAudio_InputCapture::SetMuted(bool)
{
    return -1;
}

bool OSLAudio_InputCapture::IsMuted()
{
    return false;
}

bool OSLAudio_InputCapture::IsMutable()
{
    return false;
}

bool OSLAudio_InputCapture::IsRenderReady(const AudioTimeStamp*, UInt32) CORVANE_REALTIME
{
    return true;
}

OSStatus OSLAudio_InputCapture::PrepareRender(UInt32) CORVANE_REALTIME
{
    return 0;
}

double OSLAudio_InputCapture::GetRateScalar() CORVANE_REALTIME
{
    return mRateScalar.load(std::memory_order_relaxed);
}
