// GenericOutput: hands out what its input gives: the end of a chain that has no device of its own.
#pragma once

#include "platform/audio/units/Unit.h"

namespace platform::audio::units {

class GenericOutput final : public Unit {
public:
    GenericOutput() : Unit(1, 1) {}

private:
    std::span<const PropertyRow> Properties() const noexcept override;
    OSStatus Prepare() override;
    OSStatus Produce(const Pull& pull, UInt32 bus, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME override;
};

}  // namespace platform::audio::units
