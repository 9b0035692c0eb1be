#include "platform/audio/units/Varispeed.h"

namespace platform::audio::units {

namespace {

constexpr UInt32 kHighestQuality = 127;
constexpr UInt32 kHighStageQuality = 64;

OSStatus CheckSpeedAddress(UInt32 parameter, UInt32 scope, UInt32 element) noexcept
{
    if (parameter != 0) return kAudioUnitErr_InvalidParameter;
    if (scope != kAudioUnitScope_Global) return kAudioUnitErr_InvalidScope;
    return element == 0 ? 0 : kAudioUnitErr_InvalidElement;
}

}  // namespace

std::span<const PropertyRow> Varispeed::Properties() const noexcept
{
    static constexpr PropertyRow kRows[] = {
        FormatRow(kAudioUnitScope_Input),
        FormatRow(kAudioUnitScope_Output),
        kCallbackRow,
        kSliceRow,
        kLatencyRow,
        {kAudioUnitProperty_RenderQuality, kAudioUnitScope_Global, sizeof(UInt32),
         PropertyRow::kRead | PropertyRow::kWrite | PropertyRow::kFixed},
    };
    return kRows;
}

void Varispeed::Read(const PropertyAddress& address, void* data) const
{
    if (address.mProperty == kAudioUnitProperty_RenderQuality) return Give(mQuality, data);
    Unit::Read(address, data);
}

OSStatus Varispeed::Write(const PropertyAddress& address, const void* data, UInt32 bytes)
{
    if (address.mProperty != kAudioUnitProperty_RenderQuality) return Unit::Write(address, data, bytes);
    const auto quality = Taken<UInt32>(data);
    if (quality > kHighestQuality) return kAudio_ParamError;
    mQuality = quality;
    return 0;
}

OSStatus Varispeed::SetParameter(UInt32 parameter, UInt32 scope, UInt32 element, Float32 value) CORVANE_REALTIME
{
    // Further than any crystal is off, and as far as the resampler and the room for what it pulls go.
    constexpr Float32 kSlowest = 0.95f, kFastest = 1.05f;
    if (const OSStatus error = CheckSpeedAddress(parameter, scope, element)) return error;
    if (!(value >= kSlowest && value <= kFastest)) return kAudioUnitErr_InvalidParameter;
    mSpeed.store(value, std::memory_order_relaxed);
    return 0;
}

OSStatus Varispeed::GetParameter(UInt32 parameter, UInt32 scope, UInt32 element, Float32& value) CORVANE_REALTIME
{
    if (const OSStatus error = CheckSpeedAddress(parameter, scope, element)) return error;
    value = mSpeed.load(std::memory_order_relaxed);
    return 0;
}

vector::ResamplerStage Varispeed::Stage() const noexcept
{
    return mQuality < kHighStageQuality ? vector::ResamplerStage::Low : vector::ResamplerStage::High;
}

Float64 Varispeed::LatencySeconds() const
{
    return vector::Resampler::LeastDelayFrames(1, Stage()) / OutputFormat().mSampleRate;
}

OSStatus Varispeed::Prepare()
{
    if (!IsSameSound(InputFormat(), OutputFormat())) return kAudioUnitErr_FormatNotSupported;
    return PrepareResampler(Stage(), 0);
}

OSStatus Varispeed::Produce(const Pull& pull, UInt32, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME
{
    return Resample(pull, frames, mSpeed.load(std::memory_order_relaxed), data);
}

}  // namespace platform::audio::units
