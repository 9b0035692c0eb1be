#include "platform/audio/units/OutputUnit.h"

#include "platform/audio/NativeDevices.h"
#include "platform/machine/Machine.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace platform::audio::units {

namespace {

constexpr const char* kNodeName = "Corvane output";

AudioStreamBasicDescription Apart(AudioStreamBasicDescription format, double rateHz)
{
    format.mSampleRate = rateHz;
    format.mFormatFlags |= kAudioFormatFlagIsNonInterleaved;
    format.mBytesPerFrame = format.mBytesPerPacket = sizeof(float);
    return format;
}

std::vector<vector::Crosspoint> Routes(unsigned clientChannels, unsigned deviceChannels)
{
    const float gain = deviceChannels == 1 ? 1.0f / float(clientChannels) : 1.0f;
    std::vector<vector::Crosspoint> routes;
    for (unsigned to = 0; to < deviceChannels; ++to) {
        for (unsigned from = 0; from < clientChannels; ++from)
            if (from == to || deviceChannels == 1 || (clientChannels == 1 && to < 2))
                routes.push_back({from, to, gain, gain});
    }
    return routes;
}

}  // namespace

std::span<const PropertyRow> OutputUnit::Properties() const noexcept
{
    static constexpr PropertyRow kRows[] = {
        FormatRow(kAudioUnitScope_Input),
        kCallbackRow,
        kSliceRow,
        kLatencyRow,
        {kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, sizeof(AudioDeviceID),
         PropertyRow::kRead | PropertyRow::kWrite | PropertyRow::kFixed},
        {kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global, sizeof(UInt32), PropertyRow::kRead},
    };
    return kRows;
}

void OutputUnit::Read(const PropertyAddress& address, void* data) const
{
    switch (address.mProperty) {
        case kAudioOutputUnitProperty_CurrentDevice:
            return Give(mDevice ? mDevice : CopyNativeDevices().mDefaultOutput, data);
        case kAudioOutputUnitProperty_IsRunning:
            return Give(UInt32(mNode != nullptr), data);
        default:
            return Unit::Read(address, data);
    }
}

OSStatus OutputUnit::Write(const PropertyAddress& address, const void* data, UInt32 bytes)
{
    if (address.mProperty == kAudioOutputUnitProperty_CurrentDevice) return SetDevice(Taken<AudioDeviceID>(data));
    return Unit::Write(address, data, bytes);
}

OSStatus OutputUnit::SetDevice(AudioDeviceID device)
{
    const std::optional<NativeDevice> native = LastSeenDevice(device);
    if (!native || native->mIsInput) return kAudioHardwareBadDeviceError;
    mDevice = device;
    return 0;
}

/// Ready for a device of the client's own rate: what cannot be had at all is told here, where somebody asks.
OSStatus OutputUnit::Prepare()
{
    mUnheard.resize(SliceFrames());
    return PrepareFor(InputFormat().mSampleRate);
}

OSStatus OutputUnit::PrepareFor(double deviceHz)
{
    mConverter.reset();
    auto converter = std::make_unique<Converter>();
    const AudioStreamBasicDescription device = Apart(InputFormat(), deviceHz);
    const double ratio = InputFormat().mSampleRate / deviceHz;
    mPieceFrames = ratio <= 1 ? SliceFrames() : UInt32(std::max(1.0, (SliceFrames() - 1) / ratio));
    const AURenderCallbackStruct source{CountPulled, this};
    const auto set = [&](UInt32 property, UInt32 scope, const auto& value) {
        return converter->SetProperty({property, scope, 0}, &value, sizeof value);
    };
    if (const OSStatus error = set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, InputFormat())) return error;
    if (const OSStatus error = set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, device)) return error;
    if (const OSStatus error = set(kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, source)) return error;
    if (const OSStatus error = set(kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, mPieceFrames))
        return error;
    if (const OSStatus error = converter->Initialize()) return error;
    mPlayed = Buffers(device, mPieceFrames);
    mDeviceHz = deviceHz;
    mNextDeviceTime.reset();
    mConverter = std::move(converter);
    return 0;
}

void OutputUnit::Forget() CORVANE_REALTIME
{
    if (mConverter) mConverter->Reset();
}

/// A device of the same rate takes up where the one before it ended, to the frame.
void OutputUnit::SetPlaybackFormat(uint32_t rateHz, std::span<const machine::ChannelPosition> channels) noexcept
{
    try {
        mDeviceData.resize(channels.size());
        mRoutes = Routes(InputFormat().mChannelsPerFrame, unsigned(channels.size()));
        // A rate that cannot be converted to leaves no converter, as short memory does: there is nobody to tell.
        if (!mConverter || mDeviceHz != rateHz) static_cast<void>(PrepareFor(rateHz));
    } catch (const std::bad_alloc&) {
        mConverter.reset();
    }
}

OSStatus OutputUnit::Start()
{
    if (!IsInitialized()) return kAudioUnitErr_Uninitialized;
    if (mNode) return 0;
    try {
        const std::string uid = mDevice ? LastSeenDevice(mDevice)->mDevice.mUID : std::string();
        mNode = machine::Machine::Current().GetAudioServer().OpenOutput(uid, kNodeName, *this);
    } catch (const std::bad_alloc&) {
        return kAudio_MemFullError;
    }
    return 0;
}

OSStatus OutputUnit::Stop()
{
    mNode.reset();
    return 0;
}

void OutputUnit::Render(const machine::PlaybackCycle& cycle) CORVANE_REALTIME
{
    const kernel::RealtimeScope scope;
    if (mConverter) {
        for (UInt32 first = 0; first < cycle.mFrames; first += mPieceFrames)
            RenderPiece(cycle, first, std::min(cycle.mFrames - first, mPieceFrames));
        return;
    }
    for (float* const channel : cycle.mChannels)
        if (channel) std::fill_n(channel, cycle.mFrames, 0.0f);
}

void OutputUnit::RenderPiece(const machine::PlaybackCycle& cycle, UInt32 first, UInt32 frames) CORVANE_REALTIME
{
    const AudioTimeStamp stamp = StampOf(cycle, first);
    AudioUnitRenderActionFlags flags = 0;
    const bool given = mConverter->Render({&flags, &stamp}, 0, frames, mPlayed.List(0, frames)) == 0;
    mNextDeviceTime = given ? std::optional(cycle.mSampleTime + first + frames) : std::nullopt;

    std::ranges::transform(cycle.mChannels, mDeviceData.begin(),
                           [&](float* channel) { return channel ? channel + first : mUnheard.data(); });
    const size_t routes = given ? mRoutes.size() : 0;  // without any, silence
    vector::MixMatrix(mRoutes.data(), routes, mPlayed.Samples(), mDeviceData.data(), unsigned(mDeviceData.size()),
                      frames);
}

/// Of what is pulled for a frame of the cycle: it is heard when the converter has let it through.
AudioTimeStamp OutputUnit::StampOf(const machine::PlaybackCycle& cycle, UInt32 frame) noexcept
{
    const int64_t deviceTime = cycle.mSampleTime + frame;
    if (mNextDeviceTime != deviceTime)
        mClientTime = std::llround(double(deviceTime) * (InputFormat().mSampleRate / mDeviceHz));
    const double laterSeconds = frame / mDeviceHz + mConverter->PullDelaySeconds();
    return {.mSampleTime = double(mClientTime),
            .mHostTime = cycle.mHostNanos + uint64_t(std::llround(laterSeconds * 1e9)),
            .mRateScalar = 1,
            .mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid};
}

OSStatus OutputUnit::CountPulled(void* me, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32,
                                 UInt32 frames, AudioBufferList* data) CORVANE_REALTIME
{
    auto& unit = *static_cast<OutputUnit*>(me);
    const OSStatus status = unit.PullInput(0, {flags, time}, frames, data);
    if (status == 0) unit.mClientTime += frames;
    return status;
}

/// It has no output element that anybody could ask.
OSStatus OutputUnit::Produce(const Pull&, UInt32, UInt32, AudioBufferList*) CORVANE_REALTIME
{
    return kAudioUnitErr_InvalidElement;
}

}  // namespace platform::audio::units
