#include "platform/audio/units/MatrixMixer.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace platform::audio::units {

namespace {

OSStatus CheckVolumeAddress(UInt32 parameter, UInt32 scope) noexcept
{
    if (parameter != 0) return kAudioUnitErr_InvalidParameter;
    return scope == kAudioUnitScope_Global ? 0 : kAudioUnitErr_InvalidScope;
}

UInt32 InputOf(UInt32 element) noexcept
{
    return element >> 16;
}

UInt32 OutputOf(UInt32 element) noexcept
{
    return element & 0xFFFF;
}

}  // namespace

std::span<const PropertyRow> MatrixMixer::Properties() const noexcept
{
    constexpr unsigned kCountAccess = PropertyRow::kRead | PropertyRow::kWrite | PropertyRow::kFixed;
    static constexpr PropertyRow kRows[] = {
        FormatRow(kAudioUnitScope_Input),
        FormatRow(kAudioUnitScope_Output),
        kCallbackRow,
        kSliceRow,
        {kAudioUnitProperty_ElementCount, kAudioUnitScope_Input, sizeof(UInt32), kCountAccess},
        {kAudioUnitProperty_ElementCount, kAudioUnitScope_Output, sizeof(UInt32), kCountAccess},
    };
    return kRows;
}

OSStatus MatrixMixer::Write(const PropertyAddress& address, const void* data, UInt32 bytes)
{
    if (address.mProperty == kAudioUnitProperty_ElementCount)
        return SetElementCount(address.mScope, Taken<UInt32>(data));
    return Unit::Write(address, data, bytes);
}

/// Any number of input buses, none included; one output bus.
OSStatus MatrixMixer::SetElementCount(UInt32 scope, UInt32 count)
{
    if (scope == kAudioUnitScope_Output) return count == 1 ? 0 : kAudio_ParamError;
    if (count >= vector::GainMatrix::kAll) return kAudio_ParamError;
    mInputs.resize(count);
    return 0;
}

OSStatus MatrixMixer::SetParameter(UInt32 parameter, UInt32 scope, UInt32 element, Float32 value) CORVANE_REALTIME
{
    if (const OSStatus error = CheckVolumeAddress(parameter, scope)) return error;
    if (!IsInitialized()) return kAudioUnitErr_Uninitialized;
    if (!std::isfinite(value)) return kAudio_ParamError;
    return mGains.SetGain(InputOf(element), OutputOf(element), value) ? 0 : kAudioUnitErr_InvalidElement;
}

OSStatus MatrixMixer::GetParameter(UInt32 parameter, UInt32 scope, UInt32 element, Float32& value) CORVANE_REALTIME
{
    if (const OSStatus error = CheckVolumeAddress(parameter, scope)) return error;
    if (!IsInitialized()) return kAudioUnitErr_Uninitialized;
    const std::optional<float> gain = mGains.Gain(InputOf(element), OutputOf(element));
    if (!gain) return kAudioUnitErr_InvalidElement;
    value = *gain;
    return 0;
}

/// Rates are not compared: a bus without a source keeps the format that it was made with.
OSStatus MatrixMixer::Prepare()
{
    const size_t inputs = std::accumulate(mInputs.begin(), mInputs.end(), size_t{0}, [](size_t sum, const auto& input) {
        return sum + input.mFormat.mChannelsPerFrame;
    });
    const size_t outputs = mOutputs[0].mChannelsPerFrame;
    if (inputs >= vector::GainMatrix::kAll || outputs >= vector::GainMatrix::kAll)
        return kAudioUnitErr_FormatNotSupported;
    if (!mGains.Configure(unsigned(inputs), unsigned(outputs))) return kAudio_MemFullError;

    mBuses.clear();
    mInputData.clear();
    for (const InputElement& input : mInputs) {
        const Bus& bus = mBuses.emplace_back(Bus{Buffers(input.mFormat, MostFrames())});
        const auto channels = bus.mFrames.Samples();
        mInputData.insert(mInputData.end(), channels, channels + input.mFormat.mChannelsPerFrame);
    }
    mOutputData.resize(outputs);
    return 0;
}

void MatrixMixer::Forget() CORVANE_REALTIME
{
    for (Bus& bus : mBuses) bus.mKept = 0;
}

/// Asks every bus, in order, for what it lacks of `frames`. Stops at the first that refuses: those after it are asked
/// next time, and their sources wait as long as this one's.
OSStatus MatrixMixer::Gather(const Pull& pull, UInt32 frames) CORVANE_REALTIME
{
    for (UInt32 index = 0; index < mBuses.size(); ++index) {
        Bus& bus = mBuses[index];
        if (bus.mKept >= frames) continue;
        const UInt32 missing = frames - bus.mKept;
        if (const OSStatus refusal = PullInput(index, pull, missing, bus.mFrames.List(bus.mKept, missing)))
            return refusal;
        bus.mKept = frames;
    }
    return 0;
}

void MatrixMixer::DropMixed(UInt32 frames) CORVANE_REALTIME
{
    for (UInt32 index = 0; index < mBuses.size(); ++index) {
        Bus& bus = mBuses[index];
        bus.mKept -= frames;
        for (UInt32 channel = 0; channel < mInputs[index].mFormat.mChannelsPerFrame && bus.mKept > 0; ++channel) {
            float* const samples = bus.mFrames.Samples()[channel];
            std::copy_n(samples + frames, bus.mKept, samples);
        }
    }
}

OSStatus MatrixMixer::Produce(const Pull& pull, UInt32, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME
{
    const OSStatus refusal = Gather(pull, frames);
    if (refusal < 0) return refusal;
    PointAt(*data, mOutputData);
    if (refusal > 0) {
        for (float* const channel : mOutputData) std::fill_n(channel, frames, 0.0f);
        return 0;
    }
    mGains.Mix(mInputData.data(), mOutputData.data(), frames);
    DropMixed(frames);
    return 0;
}

}  // namespace platform::audio::units
