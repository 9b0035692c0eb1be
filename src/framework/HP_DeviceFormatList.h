// HP_DeviceFormatList: the format properties of a device. It keeps nothing: an element names the stream that answers,
// and the nominal rate is what all streams can run at together. Start at GetPropertyData. Runs under the device's state
// mutex.
#pragma once

#include "framework/HP_Property.h"

class HP_Device;

class HP_DeviceFormatList final : public HP_Property {
public:
    /// @param device  not owned; lives longer
    explicit HP_DeviceFormatList(HP_Device* device) : mDevice(device) {}

    bool IsActive(const AudioObjectPropertyAddress& address) const override;
    bool IsPropertySettable(const AudioObjectPropertyAddress& address) const override;
    UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& address, UInt32 qualifierSize,
                               const void* qualifier) const override;
    void GetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                         UInt32& size, void* data) const override;
    void SetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                         UInt32 size, const void* data, const AudioTimeStamp* when) override;
    UInt32 GetNumberAddressesImplemented() const override;
    void GetImplementedAddressByIndex(UInt32 index, AudioObjectPropertyAddress& address) const override;

private:
    HP_Device* const mDevice;
};
