// Converter: another rate, and interleaved channels apart, for the same delay whatever the rates.
#pragma once

#include "platform/audio/units/ResamplingUnit.h"

namespace platform::audio::units {

class Converter final : public ResamplingUnit {
    std::span<const PropertyRow> Properties() const noexcept override;
    bool Takes(const PropertyAddress& address, const AudioStreamBasicDescription& format) const override;
    OSStatus Prepare() override;
    Float64 LatencySeconds() const override { return kConverterDelaySeconds; }
    OSStatus Produce(const Pull& pull, UInt32 bus, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME override;
};

}  // namespace platform::audio::units
