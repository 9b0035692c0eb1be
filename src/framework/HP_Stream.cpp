#include "framework/HP_Stream.h"

#include "framework/HP_Device.h"
#include "framework/HP_PropertyTable.h"
#include "platform/audio/AudioObjectProperties.h"

namespace {

using Row = HP_PropertyRow<HP_Stream>;

constexpr HP_PropertyTable kProperties(std::to_array<Row>({
    Row::Object<&HP_Stream::CopyStreamName>(kAudioObjectPropertyName),
    Row::Object<&HP_Stream::CopyStreamManufacturerName>(kAudioObjectPropertyManufacturer),
    Row::Object<&HP_Stream::CopyElementFullName>(kAudioObjectPropertyElementName),
    Row::Object<&HP_Stream::CopyElementCategoryName>(kAudioObjectPropertyElementCategoryName),
    Row::Object<&HP_Stream::CopyElementNumberName>(kAudioObjectPropertyElementNumberName),
    Row::Value<&HP_Stream::GetLatency>(kAudioDevicePropertyLatency),
    Row::Value<&HP_Stream::GetFirstDeviceChannel>(kAudioStreamPropertyStartingChannel),
    Row::Value<&HP_Stream::IsInput>(kAudioStreamPropertyDirection),
    Row::Value<&HP_Stream::GetTerminalType>(kAudioStreamPropertyTerminalType),
}));

AudioObjectPropertyAddress OfDevice(const HP_Stream& stream, AudioObjectPropertyAddress address)
{
    stream.ChangeStreamPropertyAddressIntoDevicePropertyAddress(address);
    return address;
}

}  // namespace

HP_Stream::HP_Stream(AudioObjectID objectID, HP_HardwarePlugIn* plugIn, HP_Device* device, bool isInput,
                     UInt32 startingChannel, UInt32 startingChannelOffset)
    : HP_Object(objectID, kAudioStreamClassID, plugIn),
      mOwningDevice(device),
      mIsInput(isInput),
      mStartingChannel(startingChannel),
      mStartingChannelOffset(startingChannelOffset)
{
}

HP_Stream::~HP_Stream() = default;

void HP_Stream::Initialize()
{
    HP_Object::Initialize();
    mFormatList = std::make_unique<HP_FormatList>(this);
    mFormatList->Initialize();
    AddProperty(mFormatList.get());
}

void HP_Stream::Teardown()
{
    const StateScope locked(*this);
    RemoveProperty(mFormatList.get());
    mFormatList->Teardown();
    mFormatList.reset();
    HP_Object::Teardown();
}

std::shared_ptr<CAMutex> HP_Stream::GetObjectStateMutex() const
{
    return mOwningDevice->GetObjectStateMutex();
}

bool HP_Stream::HasProperty(const AudioObjectPropertyAddress& address)
{
    const StateScope locked(*this);
    const Row* const row = kProperties.Find(address);
    return row ? row->IsThere(*this, address) : HP_Object::HasProperty(address);
}

bool HP_Stream::IsPropertySettable(const AudioObjectPropertyAddress& address)
{
    const StateScope locked(*this);
    const Row* const row = kProperties.Find(address);
    return row ? row->IsSettable(*this, address) : HP_Object::IsPropertySettable(address);
}

UInt32 HP_Stream::GetPropertyDataSize(const AudioObjectPropertyAddress& address, UInt32 qualifierSize,
                                      const void* qualifier)
{
    const StateScope locked(*this);
    const Row* const row = kProperties.Find(address);
    return row ? row->GetSize(*this, address) : HP_Object::GetPropertyDataSize(address, qualifierSize, qualifier);
}

void HP_Stream::GetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                                UInt32& size, void* data)
{
    const StateScope locked(*this);
    if (const Row* const row = kProperties.Find(address))
        row->GetData(*this, address, size, data);
    else
        HP_Object::GetPropertyData(address, qualifierSize, qualifier, size, data);
}

void HP_Stream::SetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                                UInt32 size, const void* data, const AudioTimeStamp* when)
{
    const StateScope locked(*this);
    if (const Row* const row = kProperties.Find(address))
        row->SetData(*this, address, size, data);
    else
        HP_Object::SetPropertyData(address, qualifierSize, qualifier, size, data, when);
}

CFStringRef HP_Stream::CopyStreamManufacturerName() const
{
    return mOwningDevice->CopyDeviceManufacturerName();
}

CFStringRef HP_Stream::CopyElementFullName(const AudioObjectPropertyAddress& address) const
{
    return mOwningDevice->CopyElementFullName(OfDevice(*this, address));
}

CFStringRef HP_Stream::CopyElementCategoryName(const AudioObjectPropertyAddress& address) const
{
    return mOwningDevice->CopyElementCategoryName(OfDevice(*this, address));
}

CFStringRef HP_Stream::CopyElementNumberName(const AudioObjectPropertyAddress& address) const
{
    return mOwningDevice->CopyElementNumberName(OfDevice(*this, address));
}

void HP_Stream::ChangeStreamPropertyAddressIntoDevicePropertyAddress(AudioObjectPropertyAddress& address) const
{
    address.mScope = mIsInput ? kAudioObjectPropertyScopeInput : kAudioObjectPropertyScopeOutput;
    if (address.mElement != 0) address.mElement = address.mElement + mStartingChannel - 1;
}

void HP_Stream::ChangeDevicePropertyAddressIntoStreamPropertyAddress(AudioObjectPropertyAddress& address) const
{
    address.mScope = kAudioObjectPropertyScopeGlobal;
    if (address.mElement != 0) address.mElement = address.mElement - mStartingChannel + 1;
}

UInt32 HP_Stream::GetNumberChannels() const
{
    AudioStreamBasicDescription format;
    mFormatList->GetCurrentPhysicalFormat(format);
    return format.mChannelsPerFrame;
}
