// The generic properties of a device.
#include "framework/HP_Device.h"
#include "framework/HP_FormatList.h"
#include "framework/HP_PropertyTable.h"
#include "framework/HP_Stream.h"
#include "platform/audio/AudioObjectProperties.h"
#include "platform/foundation/CFURL.h"

namespace {

using Address = AudioObjectPropertyAddress;
using Device = HP_Device;
using Row = HP_PropertyRow<HP_Device>;

bool IsInput(const Address& address)
{
    return address.mScope == kAudioObjectPropertyScopeInput;
}

bool IsOutput(const Device&, const Address& address)
{
    return address.mScope == kAudioObjectPropertyScopeOutput;
}

bool IsSide(const Device&, const Address& address)
{
    return IsInput(address) || address.mScope == kAudioObjectPropertyScopeOutput;
}

bool IsSideWithStreams(const Device& device, const Address& address)
{
    return IsSide(device, address) && !device.GetStreams(IsInput(address)).empty();
}

UInt32 Read(const void* data)
{
    UInt32 value;
    std::memcpy(&value, data, sizeof value);
    return value;
}

UInt32 Zero(const Device&)
{
    return 0;
}

UInt32 One(const Device&)
{
    return 1;
}

AudioDeviceID OwnID(const Device& device, UInt32 /*index*/)
{
    return device.GetObjectID();
}

SInt32 Nobody(const Device&)
{
    return -1;
}

UInt32 CanBeDefaultDevice(const Device& device, const Address& address)
{
    return device.CanBeDefaultDevice(IsInput(address), false);
}

UInt32 CanBeDefaultSystemDevice(const Device& device, const Address& address)
{
    return device.CanBeDefaultDevice(IsInput(address), true);
}

UInt32 LatencyOfSide(const Device& device, const Address& address)
{
    return device.GetLatency(IsInput(address));
}

UInt32 SafetyOffsetOfSide(const Device& device, const Address& address)
{
    return device.GetSafetyOffset(IsInput(address));
}

/// The stream whose bytes are spoken of, whatever the scope, if there is any.
const HP_FormatList& FormatsOf(const Device& device, const Address& address)
{
    const HP_Stream* const stream = device.GetStreamByPropertyAddress(address, true);
    if (!stream) throw CAException(kAudioHardwareIllegalOperationError);
    return stream->GetFormatList();
}

UInt32 BufferBytes(const Device& device, const Address& address)
{
    return FormatsOf(device, address).CalculateIOBufferByteSize(device.GetIOBufferFrameSize());
}

AudioValueRange BufferBytesRange(const Device& device, const Address& address)
{
    const HP_FormatList& formats = FormatsOf(device, address);
    return {Float64(formats.CalculateIOBufferByteSize(device.GetMinimumIOBufferFrameSize())),
            Float64(formats.CalculateIOBufferByteSize(device.GetMaximumIOBufferFrameSize()))};
}

AudioValueRange BufferFramesRange(const Device& device)
{
    return {Float64(device.GetMinimumIOBufferFrameSize()), Float64(device.GetMaximumIOBufferFrameSize())};
}

void SetBufferBytes(Device& device, const Address& address, const void* data)
{
    device.Do_SetIOBufferFrameSize(FormatsOf(device, address).CalculateIOBufferFrameSize(Read(data)));
}

void SetBufferFrames(Device& device, const Address&, const void* data)
{
    device.Do_SetIOBufferFrameSize(Read(data));
}

/// The engine runs for itself, without a procedure.
void SetRunning(Device& device, const Address&, const void* data)
{
    if (Read(data) != 0)
        device.Do_StartIOProc(nullptr);
    else
        device.Do_StopIOProc(nullptr);
}

UInt32 CountStreams(const Device& device, const Address& address)
{
    return static_cast<UInt32>(device.GetStreams(IsInput(address)).size());
}

AudioStreamID StreamID(const Device& device, const Address& address, UInt32 index)
{
    return device.GetStreams(IsInput(address))[index]->GetObjectID();
}

UInt32 ConfigurationBytes(const Device& device, const Address& address)
{
    return static_cast<UInt32>(offsetof(AudioBufferList, mBuffers)) +
           CountStreams(device, address) * UInt32(sizeof(AudioBuffer));
}

/// A buffer a stream, without data. All of it or nothing: half a list would lie about its length.
bool GetConfiguration(const Device& device, const Address& address, UInt32& size, void* data)
{
    if (!IsSide(device, address)) return false;
    const UInt32 bytes = ConfigurationBytes(device, address);
    if (size < bytes) throw CAException(kAudioHardwareBadPropertySizeError);
    size = bytes;
    char* const list = static_cast<char*>(data);  // the caller's room need not be aligned
    const UInt32 count = CountStreams(device, address);
    std::memset(list, 0, bytes);
    std::memcpy(list, &count, sizeof count);
    for (UInt32 index = 0; index < count; ++index) {
        const HP_Stream& stream = *device.GetStreams(IsInput(address))[index];
        const AudioBuffer buffer{stream.GetNumberChannels(),
                                 stream.GetFormatList().CalculateIOBufferByteSize(device.GetIOBufferFrameSize()),
                                 nullptr};
        std::memcpy(list + offsetof(AudioBufferList, mBuffers) + index * sizeof buffer, &buffer, sizeof buffer);
    }
    return true;
}

constexpr Row Configuration()
{
    return {kAudioDevicePropertyStreamConfiguration, 0, IsSide, ConfigurationBytes, GetConfiguration};
}

constexpr HP_PropertyTable kProperties(std::to_array<Row>({
    // Names
    Row::Object<&Device::CopyDeviceName>(kAudioObjectPropertyName),
    Row::Text<&Device::CopyDeviceName>(kAudioDevicePropertyDeviceName),
    Row::Object<&Device::CopyDeviceManufacturerName>(kAudioObjectPropertyManufacturer),
    Row::Text<&Device::CopyDeviceManufacturerName>(kAudioDevicePropertyDeviceManufacturer),
    Row::Object<&Device::CopyElementFullName>(kAudioObjectPropertyElementName),
    Row::Text<&Device::CopyElementFullName>(kAudioDevicePropertyChannelName),
    Row::Object<&Device::CopyElementCategoryName>(kAudioObjectPropertyElementCategoryName),
    Row::Text<&Device::CopyElementCategoryName>(kAudioDevicePropertyChannelCategoryName),
    Row::Object<&Device::CopyElementNumberName>(kAudioObjectPropertyElementNumberName),
    Row::Text<&Device::CopyElementNumberName>(kAudioDevicePropertyChannelNumberName),
    Row::Object<&Device::CopyConfigurationApplicationBundleID>(kAudioDevicePropertyConfigurationApplication),
    Row::Object<&Device::CopyDeviceUID>(kAudioDevicePropertyDeviceUID),
    Row::Object<&Device::CopyModelUID>(kAudioDevicePropertyModelUID),
    Row::Object<&Device::CopyDeviceIcon>(kAudioDevicePropertyIcon),

    // What it is
    Row::Array<One, OwnID>(kAudioDevicePropertyRelatedDevices),
    Row::Value<&Device::GetTransportType>(kAudioDevicePropertyTransportType),
    Row::Value<Zero>(kAudioDevicePropertyClockDomain),
    Row::Value<&Device::IsAlive>(kAudioDevicePropertyDeviceIsAlive),
    Row::Value<Zero>(kAudioDevicePropertyDeviceHasChanged),
    Row::Value<&Device::IsHidden>(kAudioDevicePropertyIsHidden),
    Row::Value<CanBeDefaultDevice, IsSide>(kAudioDevicePropertyDeviceCanBeDefaultDevice),
    Row::Value<CanBeDefaultSystemDevice, IsOutput>(kAudioDevicePropertyDeviceCanBeDefaultSystemDevice),
    Row::Value<Nobody>(kAudioDevicePropertyHogMode),

    // Its streams
    Row::Array<CountStreams, StreamID, IsSide>(kAudioDevicePropertyStreams),
    Configuration(),
    Row::Value<LatencyOfSide, IsSideWithStreams>(kAudioDevicePropertyLatency),
    Row::Value<SafetyOffsetOfSide, IsSideWithStreams>(kAudioDevicePropertySafetyOffset),

    // Its engine and buffers
    Row::Value<&Device::IsIOEngineRunningSomewhere>(kAudioDevicePropertyDeviceIsRunning, SetRunning),
    Row::Value<&Device::IsIOEngineRunningSomewhere>(kAudioDevicePropertyDeviceIsRunningSomewhere),
    Row::Value<Zero>(kAudioDeviceProcessorOverload),
    Row::Value<&Device::GetCurrentActualSampleRate>(kAudioDevicePropertyActualSampleRate),
    Row::Value<&Device::GetIOBufferFrameSize>(kAudioDevicePropertyBufferFrameSize, SetBufferFrames),
    Row::Value<BufferFramesRange>(kAudioDevicePropertyBufferFrameSizeRange),
    Row::Value<BufferBytes>(kAudioDevicePropertyBufferSize, SetBufferBytes),
    Row::Value<BufferBytesRange>(kAudioDevicePropertyBufferSizeRange),
}));

}  // namespace

bool HP_Device::HasProperty(const AudioObjectPropertyAddress& address)
{
    const StateScope locked(*this);
    const Row* const row = kProperties.Find(address);
    return row ? row->IsThere(*this, address) : HP_Object::HasProperty(address);
}

bool HP_Device::IsPropertySettable(const AudioObjectPropertyAddress& address)
{
    const StateScope locked(*this);
    const Row* const row = kProperties.Find(address);
    return row ? row->IsSettable(*this, address) : HP_Object::IsPropertySettable(address);
}

UInt32 HP_Device::GetPropertyDataSize(const AudioObjectPropertyAddress& address, UInt32 qualifierSize,
                                      const void* qualifier)
{
    const StateScope locked(*this);
    const Row* const row = kProperties.Find(address);
    return row ? row->GetSize(*this, address) : HP_Object::GetPropertyDataSize(address, qualifierSize, qualifier);
}

void HP_Device::GetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                                UInt32& size, void* data)
{
    const StateScope locked(*this);
    if (const Row* const row = kProperties.Find(address))
        row->GetData(*this, address, size, data);
    else
        HP_Object::GetPropertyData(address, qualifierSize, qualifier, size, data);
}

void HP_Device::SetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                                UInt32 size, const void* data, const AudioTimeStamp* when)
{
    const StateScope locked(*this);
    if (const Row* const row = kProperties.Find(address))
        row->SetData(*this, address, size, data);
    else
        HP_Object::SetPropertyData(address, qualifierSize, qualifier, size, data, when);
}
