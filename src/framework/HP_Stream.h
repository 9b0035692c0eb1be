// HP_Stream: a run of consecutive channels of a device, in one direction, with its own format.
// Why: an application asks a stream for formats; a device is asked for the same by its elements, which count the
// device's channels from 1. Addresses are turned from the one into the other here.
// Start at Initialize and TellHardwareToSetPhysicalFormat.
#pragma once

#include "framework/HP_FormatList.h"
#include "framework/HP_Object.h"
#include "platform/foundation/CFBase.h"

#include <memory>

class HP_Device;

class HP_Stream : public HP_Object {
public:
    /// @param device                 not owned; lives longer
    /// @param startingChannel        the device's channel of the stream's first, counted from 1
    /// @param startingChannelOffset  what that channel lies further along than the stream's elements say
    HP_Stream(AudioObjectID objectID, HP_HardwarePlugIn* plugIn, HP_Device* device, bool isInput,
              UInt32 startingChannel, UInt32 startingChannelOffset = 0);
    ~HP_Stream() override;

    /// Makes the format list, which is empty: a concrete stream fills it and sets a current format.
    void Initialize() override;
    /// Under the device's state mutex, which it takes where the caller does not hold it.
    void Teardown() override;
    /// The device's.
    std::shared_ptr<CAMutex> GetObjectStateMutex() const override;

    bool HasProperty(const AudioObjectPropertyAddress& address) override;
    bool IsPropertySettable(const AudioObjectPropertyAddress& address) override;
    UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& address, UInt32 qualifierSize,
                               const void* qualifier) override;
    void GetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                         UInt32& size, void* data) override;
    void SetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                         UInt32 size, const void* data, const AudioTimeStamp* when) override;

    // Retained, the caller releases them; null: there is no such name. The base has no name of its own, and gives the
    // device's for the rest.
    virtual CFStringRef CopyStreamName() const { return nullptr; }
    virtual CFStringRef CopyStreamManufacturerName() const;
    virtual CFStringRef CopyElementFullName(const AudioObjectPropertyAddress& address) const;
    virtual CFStringRef CopyElementCategoryName(const AudioObjectPropertyAddress& address) const;
    virtual CFStringRef CopyElementNumberName(const AudioObjectPropertyAddress& address) const;

    virtual UInt32 GetTerminalType() const { return 0; }
    /// In frames.
    virtual UInt32 GetLatency() const { return 0; }
    /// Has the hardware take a format. @return whether the format list is to store it at once
    virtual bool TellHardwareToSetPhysicalFormat(const AudioStreamBasicDescription&) { return true; }

    // An element of 0 is the whole stream, or the whole device, and stays 0.
    void ChangeStreamPropertyAddressIntoDevicePropertyAddress(AudioObjectPropertyAddress& address) const;
    void ChangeDevicePropertyAddressIntoStreamPropertyAddress(AudioObjectPropertyAddress& address) const;

    HP_Device& GetOwningDevice() const { return *mOwningDevice; }
    bool IsInput() const { return mIsInput; }
    UInt32 GetStartingChannel() const { return mStartingChannel; }
    /// The device's channel of the first one, offset included, counted from 1.
    UInt32 GetFirstDeviceChannel() const { return mStartingChannel + mStartingChannelOffset; }
    UInt32 GetNumberChannels() const;
    /// Between Initialize and Teardown.
    HP_FormatList& GetFormatList() const { return *mFormatList; }

private:
    HP_Device* const mOwningDevice;
    const bool mIsInput;
    const UInt32 mStartingChannel;
    const UInt32 mStartingChannelOffset;
    std::unique_ptr<HP_FormatList> mFormatList;
};
