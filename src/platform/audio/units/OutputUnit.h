// OutputUnit: plays its input on an output device: on the one that was chosen, or on whichever is the default.
// Why through a converter, also where nothing is to be converted: the delay is then that of AudioUnit.h on every
// device, and a default that changes to another rate moves nothing. Channels go to the device's of the same number. One
// alone is heard on both of a pair, and a device of one channel plays the mean of all. Start at Render, which the
// device's cycles call.
#pragma once

#include "platform/audio/units/Buffers.h"
#include "platform/audio/units/Converter.h"
#include "platform/machine/AudioServer.h"
#include "platform/vector/VectorKernels.h"

#include <memory>
#include <optional>

namespace platform::audio::units {

class OutputUnit final : public Unit, private machine::PlaybackClient {
public:
    OutputUnit() : Unit(1, 0) {}

    OSStatus Start() override;
    OSStatus Stop() override;

private:
    std::span<const PropertyRow> Properties() const noexcept override;
    void Read(const PropertyAddress& address, void* data) const override;
    OSStatus Write(const PropertyAddress& address, const void* data, UInt32 bytes) override;
    bool Takes(const PropertyAddress&, const AudioStreamBasicDescription&) const override { return true; }
    OSStatus Prepare() override;
    void Forget() CORVANE_REALTIME override;
    Float64 LatencySeconds() const override { return kConverterDelaySeconds; }
    OSStatus Produce(const Pull& pull, UInt32 bus, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME override;

    void SetPlaybackFormat(uint32_t rateHz, std::span<const machine::ChannelPosition> channels) noexcept override;
    void Render(const machine::PlaybackCycle& cycle) CORVANE_REALTIME override;

    const AudioStreamBasicDescription& InputFormat() const noexcept { return mInputs[0].mFormat; }
    OSStatus SetDevice(AudioDeviceID device);
    OSStatus PrepareFor(double deviceHz);
    void RenderPiece(const machine::PlaybackCycle& cycle, UInt32 first, UInt32 frames) CORVANE_REALTIME;
    AudioTimeStamp StampOf(const machine::PlaybackCycle& cycle, UInt32 frame) noexcept;
    static OSStatus CountPulled(void* me, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32 bus,
                                UInt32 frames, AudioBufferList* data) CORVANE_REALTIME;

    AudioDeviceID mDevice = 0;  // 0: whichever is the default

    // While the device runs the data thread's, or SetPlaybackFormat's.
    std::unique_ptr<Converter> mConverter;  // to the device's rate; null: memory was short, which is heard as silence
    double mDeviceHz = 0;
    UInt32 mPieceFrames = 0;  // device frames for which no more than a slice is pulled
    Buffers mPlayed;          // at the device's rate, the client's channels apart
    std::vector<vector::Crosspoint> mRoutes;
    std::vector<float*> mDeviceData;         // of the piece in hand
    std::vector<float> mUnheard;             // in place of a device channel that is not wanted
    int64_t mClientTime = 0;                 // sample time of the next frame to pull, at the client's rate,
    std::optional<int64_t> mNextDeviceTime;  // which goes on from here; empty after a refusal

    std::unique_ptr<machine::OutputNode> mNode;  // last: no cycle comes once it is gone
};

}  // namespace platform::audio::units
