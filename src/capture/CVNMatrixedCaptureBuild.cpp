// The graph's making and ending, its start and stop.
#include "capture/CVNMatrixedCapture.h"
#include "capture/InterleavedFloats.h"
#include "capture/OSLAudio_SupportCapture.h"
#include "capture/Status.h"
#include "capture/buffers/CAAudioBufferList.h"
#include "platform/audio/ConverterLimits.h"
#include "platform/audio/StampLatency.h"
#include "platform/foundation/CFDictionary.h"
#include "platform/kernel/HostTime.h"
#include "utility/CAStreamBasicDescription.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <span>

namespace {

constexpr AudioStreamBasicDescription kStandardDesc = {
    44100.0,
    kAudioFormatLinearPCM,
    kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked | kAudioFormatFlagIsNonInterleaved,
    sizeof(float),
    1,
    sizeof(float),
    2,
    32,
    0};
using platform::kernel::kNanosPerSecond;

bool IsDefaultInput(CFStringRef uid)
{
    return uid && cf::ToStdString(uid) == CVNMatrixedCapture::kDefaultInputDeviceUID;
}

}  // namespace

CVNMatrixedCapture::CVNMatrixedCapture() : mCaptureDesc(kStandardDesc) {}

CVNMatrixedCapture::~CVNMatrixedCapture()
{
    mMixer.reset();  // it pulls the inputs
    mInputs.clear();
    CAAudioBufferList::Deallocate(mMixBuffer);
}

OSStatus CVNMatrixedCapture::GetCaptureDesc(AudioStreamBasicDescription* desc)
{
    *desc = mCaptureDesc;
    return 0;
}

OSStatus CVNMatrixedCapture::SetCaptureDesc(AudioStreamBasicDescription* desc)
{
    mCaptureDesc = *desc;
    return 0;
}

OSStatus CVNMatrixedCapture::GetRenderDesc(AudioStreamBasicDescription* desc)
{
    return GetCaptureDesc(desc);
}

OSStatus CVNMatrixedCapture::SetMaxRenderSlice(UInt32)
{
    return 0;
}

OSStatus CVNMatrixedCapture::GetMaxRenderSlice(UInt32* frames)
{
    *frames = UINT32_MAX;
    return 0;
}

OSStatus CVNMatrixedCapture::AddAudioSupportCapture(CFArrayRef applications, CFArrayRef devices)
{
    return capture::StatusOf([&] {
        auto source = std::make_unique<OSLAudio_SupportCapture>();
        AudioStreamBasicDescription desc{};
        if (const OSStatus error = source->Create(applications, devices, &desc)) return error;
        if (const OSStatus error = source->SetMuted(mSoftwareSourcesMuted)) return error;
        return AddInput(std::move(source), desc.mChannelsPerFrame);
    });
}

OSStatus CVNMatrixedCapture::AddInputDeviceCapture(CFStringRef deviceUID, UInt32 dataSource)
{
    return capture::StatusOf([&] {
        const CFStringRef uid = IsDefaultInput(deviceUID) ? nullptr : deviceUID;
        auto source = std::make_unique<OSLAudio_InputCapture>();
        const bool own = mOutputChannelCount != 1 && mOutputChannelCount != 2;
        AudioStreamBasicDescription request = capture::InterleavedFloats(0, own ? 0 : mOutputChannelCount);
        if (const OSStatus error = source->Create(uid, dataSource, own ? nullptr : &request)) return error;
        if (own) {
            if (const OSStatus error = source->GetAudioDesc(&request)) return error;
        }
        return AddInput(std::move(source), request.mChannelsPerFrame);
    });
}

OSStatus CVNMatrixedCapture::AddInput(std::unique_ptr<OSLAudio_InputCapture> source, UInt32 channels)
{
    return capture::StatusOf([&]() -> OSStatus {
        auto input = std::make_unique<OSLAudio_ConvertedInputCapture>();
        input->Create(source.release());
        // The source was ready: it is the ring that was not to be had.
        if (!input->IsInitialized()) return kAudio_MemFullError;
        AudioStreamBasicDescription desc = DescribeInput(channels);
        if (const OSStatus error = input->SetOutputDesc(&desc)) return error;
        if (const OSStatus error = input->SetMaxRenderSlice(kMaxRenderFrames)) return error;
        mInputs.reserve(mInputs.size() + 1);
        if (!mInputCallbackInstalled) {
            input->SetRenderCallback(CVNMatrixedCapture_InputCallback, this);
            mInputCallbackInstalled = true;
        }
        mInputs.push_back(std::move(input));
        return 0;
    });
}

AudioStreamBasicDescription CVNMatrixedCapture::DescribeInput(UInt32 channels) const
{
    AudioStreamBasicDescription desc = kStandardDesc;
    desc.mSampleRate = mCaptureDesc.mSampleRate;
    desc.mChannelsPerFrame = channels;
    return desc;
}

OSStatus CVNMatrixedCapture::Initialize()
{
    if (const OSStatus error = MakeMixer()) return error;
    mNeedsSynchronize.store(true, std::memory_order_relaxed);
    mAllowRenderingPending = true;
    mAlignAnewPending.store(false, std::memory_order_relaxed);
    mAlignedHostTime.store(0, std::memory_order_relaxed);
    mWaitingCycles.store(0, std::memory_order_relaxed);
    mSilentCycles.store(0, std::memory_order_relaxed);
    mClippedSamples.store(0, std::memory_order_relaxed);
    if (const OSStatus error = MakeMixBuffer()) return error;
    SetRenderEnabled(true);
    return 0;
}

OSStatus CVNMatrixedCapture::MakeMixer()
{
    mMixer.reset(new (std::nothrow) OSLAudio_MatrixMixer);
    if (!mMixer) return capture::kNoMixer;
    if (const OSStatus error = mMixer->Create(UInt32(mInputs.size()), 1)) return error;
    for (size_t bus = 0; bus < mInputs.size(); ++bus) {
        if (const OSStatus error = mMixer->SetInputAudioSource(UInt32(bus), mInputs[bus].get())) return error;
    }
    if (const OSStatus error = mMixer->SetStreamDesc(kAudioUnitScope_Output, 0, &mCaptureDesc)) return error;
    if (const OSStatus error = mMixer->SetMaxRenderSlice(kMaxRenderFrames)) return error;
    return mMixer->Initialize();
}

OSStatus CVNMatrixedCapture::MakeMixBuffer()
{
    CAAudioBufferList::Deallocate(mMixBuffer);
    mMixBuffer = CAAudioBufferList::Create(&mCaptureDesc, kMaxRenderFrames);
    if (!mMixBuffer) return capture::kNoMixBuffer;
    CAAudioBufferList::Clear(*mMixBuffer);
    mMixBufferByteSize = mCaptureDesc.mBytesPerFrame * kMaxRenderFrames;
    const std::span buffers(mMixBuffer->mBuffers, mMixBuffer->mNumberBuffers);
    for (AudioBuffer& buffer : buffers) buffer.mDataByteSize = mMixBufferByteSize;
    for (const AudioBuffer& buffer : buffers) {
        if (!buffer.mData) return capture::kNoMixBufferData;
    }
    return 0;
}

void CVNMatrixedCapture::SetRenderEnabled(bool enabled)
{
    const CAMutex::Scope lock(mMutex);
    mRenderEnabled = enabled;
}

OSStatus CVNMatrixedCapture::Uninitialize()
{
    SetRenderEnabled(false);
    mInputCallbackInstalled = false;
    CAAudioBufferList::Deallocate(mMixBuffer);
    mMixBuffer = nullptr;
    while (!mInputs.empty()) {
        if (const OSStatus error = mInputs.front()->Uninitialize()) return error;
        mInputs.erase(mInputs.begin());
    }
    if (mMixer) mMixer->Uninitialize();
    mMixer.reset();
    return 0;
}

OSStatus CVNMatrixedCapture::Pause()
{
    for (const auto& input : mInputs) {
        if (const OSStatus error = input->GetSource()->Pause()) return error;
    }
    mIsPaused = true;
    mAlignAnewPending.store(true, std::memory_order_release);
    return 0;
}

OSStatus CVNMatrixedCapture::Resume()
{
    if (!mNeedsSynchronize.load(std::memory_order_relaxed)) mRestarting = true;
    for (const auto& input : mInputs) {
        if (const OSStatus error = capture::StatusOf([&] { return input->Start(); })) return error;
        if (const OSStatus error = MuteSource(*input, mSoftwareSourcesMuted)) return error;
    }
    mIsRunning = true;
    return 0;
}

std::string CVNMatrixedCapture::ExplainRefusal(size_t index) const
{
    using namespace platform::audio;
    AudioStreamBasicDescription desc{};
    if (index >= mInputs.size() || mInputs[index]->GetSource()->GetAudioDesc(&desc) != 0) return {};
    const double rate = desc.mSampleRate, mixRate = mCaptureDesc.mSampleRate;
    char text[200] = "";
    if (desc.mChannelsPerFrame > kMostConvertedChannels)
        std::snprintf(text, sizeof text, "It has %u channels, and a mix takes at most %u of one source. Take fewer.",
                      desc.mChannelsPerFrame, kMostConvertedChannels);
    else if (rate != mixRate && std::min(rate, mixRate) < kLeastConvertedHz)
        std::snprintf(text, sizeof text,
                      "It runs at %.0f Hz and the mix at %.0f Hz. Below %.0f Hz no rate is converted: "
                      "choose %.0f Hz for the mix.",
                      rate, mixRate, kLeastConvertedHz, rate);
    else if (rate * kMostRateRatio < mixRate || mixRate * kMostRateRatio < rate)
        std::snprintf(text, sizeof text,
                      "It runs at %.0f Hz, too far from the %.0f Hz of the mix. Choose %.0f to %.0f Hz for the mix.",
                      rate, mixRate, std::max(kLeastConvertedHz, std::ceil(rate / kMostRateRatio)),
                      std::floor(rate * kMostRateRatio));
    return text;
}

void CVNMatrixedCapture::UpdateOutputSampleRate(double rateHz)
{
    mCaptureDesc.mSampleRate = rateHz;
    // One that cannot run at the new rate gives nothing until the next start, like all others.
    for (const auto& input : mInputs) input->SetOutputDesc(&mCaptureDesc);
}

OSStatus CVNMatrixedCapture::GetLatencyNanos(uint64_t* nanos)
{
    double seconds = 0;
    if (!mInputs.empty()) {
        if (const OSStatus error = mInputs.front()->GetGraphLatency(&seconds)) return error;
    }
    *nanos = platform::audio::StampLatencyNanos() + uint64_t(seconds * kNanosPerSecond + 0.5);
    return 0;
}

void CVNMatrixedCapture::Dump_Diagnostics()
{
    char text[256];
    CAStreamBasicDescription(mCaptureDesc).AsString(text, sizeof text);
    std::printf("begin Perform_Diagnostics\n");
    std::printf("mCaptureDesc\n");
    std::printf("%s%s %s\n", "", "AudioStreamBasicDescription:", text);
    std::printf("mRenderCount: %ld\n", long(mRenderCount.load(std::memory_order_relaxed)));
    std::printf("mOutputChannelCount: %ld\n", long(mOutputChannelCount));
    std::printf("mRenderBehindCount: %ld\n", long(mRenderBehindCount.load(std::memory_order_relaxed)));
    std::printf("mRestarting: %d\n", int(mRestarting));
    std::printf("mIsPaused: %d\n", int(mIsPaused));
    std::printf("mIsRunning: %d\n", int(mIsRunning));
    for (const auto& input : mInputs) input->Dump_Diagnostics();
    std::printf("end Perform_Diagnostics\n");
}
