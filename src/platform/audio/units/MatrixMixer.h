// MatrixMixer: a gain an input channel, an output channel and a crosspoint, and one for all.
// Why: sources that refuse now and then must not move against each other. What a bus gave is kept until every bus has
// given as much, and only then mixed.
// Channels are numbered across the input buses. Element of parameter 0: input channel << 16 | output channel, 0xFFFF in
// place of either standing for all.
#pragma once

#include "platform/audio/units/Buffers.h"
#include "platform/audio/units/Unit.h"
#include "platform/vector/GainMatrix.h"

namespace platform::audio::units {

class MatrixMixer final : public Unit {
public:
    MatrixMixer() : Unit(1, 1) {}

    /// Volumes exist while the unit is initialized, and start anew with it.
    OSStatus SetParameter(UInt32 parameter, UInt32 scope, UInt32 element, Float32 value) CORVANE_REALTIME override;
    OSStatus GetParameter(UInt32 parameter, UInt32 scope, UInt32 element, Float32& value) CORVANE_REALTIME override;

private:
    /// One input: frames that its source gave and that are not mixed yet, oldest first.
    struct Bus {
        Buffers mFrames;
        UInt32 mKept = 0;
    };

    std::span<const PropertyRow> Properties() const noexcept override;
    OSStatus Write(const PropertyAddress& address, const void* data, UInt32 bytes) override;
    OSStatus Prepare() override;
    void Forget() CORVANE_REALTIME override;
    OSStatus Produce(const Pull& pull, UInt32 bus, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME override;

    OSStatus SetElementCount(UInt32 scope, UInt32 count);
    OSStatus Gather(const Pull& pull, UInt32 frames) CORVANE_REALTIME;
    void DropMixed(UInt32 frames) CORVANE_REALTIME;

    std::vector<Bus> mBuses;
    std::vector<const float*> mInputData;  // of all buses' channels
    std::vector<float*> mOutputData;       // of the render in hand
    vector::GainMatrix mGains;
};

}  // namespace platform::audio::units
