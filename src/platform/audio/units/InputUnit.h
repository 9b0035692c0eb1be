// InputUnit: the client side of an input device: calls back when a buffer has arrived, and gives it when rendered.
// Element 1 is the device's sound: input scope as the device has it, output scope as the client wants it. The client
// may choose channels and their order by a map, not the rate.
#pragma once

#include "platform/audio/DeviceInput.h"
#include "platform/audio/units/Unit.h"

#include <memory>

namespace platform::audio::units {

class InputUnit final : public Unit, private DeviceInputClient {
public:
    InputUnit() : Unit(2, 2) {}

    OSStatus Start() override;
    OSStatus Stop() override;

private:
    static constexpr UInt32 kDeviceElement = 1;

    std::span<const PropertyRow> Properties() const noexcept override;
    UInt32 PropertyBytes(const PropertyAddress& address) const override;
    void Read(const PropertyAddress& address, void* data) const override;
    OSStatus Write(const PropertyAddress& address, const void* data, UInt32 bytes) override;
    bool Takes(const PropertyAddress& address, const AudioStreamBasicDescription& format) const override;
    OSStatus Prepare() override;
    OSStatus Produce(const Pull& pull, UInt32 bus, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME override;

    void TakeBuffer(const AudioTimeStamp& time, UInt32 frames,
                    std::span<const float* const> channels) CORVANE_REALTIME override;

    OSStatus SetDevice(AudioDeviceID device);
    OSStatus SetMap(const void* data, UInt32 bytes);
    OSStatus SetCallback(const AURenderCallbackStruct& callback);
    SInt32 DeviceChannel(UInt32 clientChannel) const noexcept;
    const float* InHand(UInt32 clientChannel) const noexcept;
    void Announce(const AudioTimeStamp& time, UInt32 first, UInt32 frames) CORVANE_REALTIME;

    AudioDeviceID mDevice = 0;
    std::vector<SInt32> mMap;  // empty: each client channel is the device's of the same number
    AURenderCallbackStruct mCallback{};

    std::vector<float> mSilence;
    std::vector<const float*> mClientData;  // of the render in hand

    // The buffer in hand: there while the callback runs, on the server's data thread.
    std::span<const float* const> mChannels;
    UInt32 mFirstFrame = 0;
    UInt32 mFrames = 0;

    std::unique_ptr<DeviceInput> mInput;  // last: no buffer comes once it is gone
};

}  // namespace platform::audio::units
