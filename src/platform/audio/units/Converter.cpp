#include "platform/audio/units/Converter.h"

#include <cmath>

namespace platform::audio::units {

std::span<const PropertyRow> Converter::Properties() const noexcept
{
    static constexpr PropertyRow kRows[] = {FormatRow(kAudioUnitScope_Input), FormatRow(kAudioUnitScope_Output),
                                            kCallbackRow, kSliceRow, kLatencyRow};
    return kRows;
}

bool Converter::Takes(const PropertyAddress& address, const AudioStreamBasicDescription& format) const
{
    return address.mScope == kAudioUnitScope_Input || !IsInterleaved(format);
}

OSStatus Converter::Prepare()
{
    // Rates are converted once, for good; its cost is paid only where they differ.
    constexpr auto kStage = vector::ResamplerStage::High;
    const double from = InputFormat().mSampleRate, to = OutputFormat().mSampleRate;
    if (InputFormat().mChannelsPerFrame != OutputFormat().mChannelsPerFrame) return kAudioUnitErr_FormatNotSupported;

    // A fraction of a frame would take exactness from equal rates, where the rest is a plain delay.
    const double delayFrames = from == to ? std::round(kConverterDelaySeconds * from) : kConverterDelaySeconds * from;
    if (vector::Resampler::LeastDelayFrames(from / to, kStage) > delayFrames) return kAudioUnitErr_FormatNotSupported;
    return PrepareResampler(kStage, delayFrames);
}

OSStatus Converter::Produce(const Pull& pull, UInt32, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME
{
    return Resample(pull, frames, InputFormat().mSampleRate / OutputFormat().mSampleRate, data);
}

}  // namespace platform::audio::units
