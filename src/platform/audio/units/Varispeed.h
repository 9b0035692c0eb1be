// Varispeed: plays its source at parameter 0 times the speed.
#pragma once

#include "platform/audio/units/ResamplingUnit.h"

#include <atomic>

namespace platform::audio::units {

class Varispeed final : public ResamplingUnit {
public:
    OSStatus SetParameter(UInt32 parameter, UInt32 scope, UInt32 element, Float32 value) CORVANE_REALTIME override;
    OSStatus GetParameter(UInt32 parameter, UInt32 scope, UInt32 element, Float32& value) CORVANE_REALTIME override;

private:
    std::span<const PropertyRow> Properties() const noexcept override;
    void Read(const PropertyAddress& address, void* data) const override;
    OSStatus Write(const PropertyAddress& address, const void* data, UInt32 bytes) override;
    OSStatus Prepare() override;
    Float64 LatencySeconds() const override;
    OSStatus Produce(const Pull& pull, UInt32 bus, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME override;

    vector::ResamplerStage Stage() const noexcept;

    UInt32 mQuality = 127;
    std::atomic<Float32> mSpeed{1};  // stored by SetParameter, loaded by Produce; relaxed: it stands for nothing else
};

}  // namespace platform::audio::units
