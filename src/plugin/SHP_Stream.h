// SHP_Stream: a stream of a virtual device: the formats that it offers, kept in memory alone, since there is no
// hardware to tell. Start at Initialize. Runs under the device's state mutex.
#pragma once

#include "framework/HP_Stream.h"

class SHP_Device;
class SHP_PlugIn;

class SHP_Stream final : public HP_Stream {
public:
    SHP_Stream(AudioObjectID objectID, SHP_PlugIn* plugIn, SHP_Device* device, bool isInput, UInt32 startingChannel,
               UInt32 channelCount);

    using HP_Stream::Initialize;
    /// The current format is of two channels at this rate, whatever the stream is wide and the list says: the rate of a
    /// device is its preferences'.
    ///
    /// @param sampleRate  hertz
    void Initialize(double sampleRate);
    void Teardown() override;

    /// Gives back a format that can be mixed, where a client left another.
    void Finalize();

    void SetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                         UInt32 size, const void* data, const AudioTimeStamp* when) override;

private:
    void AddAvailablePhysicalFormats();
    void SetFormat(const AudioStreamBasicDescription& format, bool isPhysical);

    const UInt32 mChannelCount;
    bool mNonMixable = false;  // a client set a format that cannot be mixed
};
