// Devices and streams by the older calls: native ones answer here, those of plug-ins through their function table.
#include "platform/audio/AudioHardware.h"
#include "platform/audio/AudioSystem.h"
#include "platform/audio/NativeProperties.h"

using namespace platform::audio;

OSStatus AudioDeviceGetPropertyInfo(AudioDeviceID device, UInt32 channel, Boolean isInput,
                                    AudioObjectPropertySelector selector, UInt32* size, Boolean* writable)
{
    if (const auto plugIn = AudioSystem::Get().PlugInOf(device))
        return plugIn->Calls().DeviceGetPropertyInfo(plugIn->Reference(), device, channel, isInput, selector, size,
                                                     writable);
    const auto native = FindNativeDevice(device);
    if (!native) return kAudioHardwareBadDeviceError;
    return NativeDeviceInfo(*native, channel, isInput, selector, size, writable);
}

OSStatus AudioDeviceGetProperty(AudioDeviceID device, UInt32 channel, Boolean isInput,
                                AudioObjectPropertySelector selector, UInt32* size, void* data)
{
    if (const auto plugIn = AudioSystem::Get().PlugInOf(device))
        return plugIn->Calls().DeviceGetProperty(plugIn->Reference(), device, channel, isInput, selector, size, data);
    const auto native = FindNativeDevice(device);
    if (!native) return kAudioHardwareBadDeviceError;
    return NativeDeviceData(*native, channel, isInput, selector, size, data);
}

OSStatus AudioDeviceSetProperty(AudioDeviceID device, const AudioTimeStamp* when, UInt32 channel, Boolean isInput,
                                AudioObjectPropertySelector selector, UInt32 size, const void* data)
{
    if (const auto plugIn = AudioSystem::Get().PlugInOf(device))
        return plugIn->Calls().DeviceSetProperty(plugIn->Reference(), device, when, channel, isInput, selector, size,
                                                 data);
    const OSStatus error = AudioDeviceGetPropertyInfo(device, channel, isInput, selector, nullptr, nullptr);
    return error ? error : kAudioHardwareIllegalOperationError;
}

OSStatus AudioStreamGetPropertyInfo(AudioStreamID stream, UInt32 channel, AudioObjectPropertySelector selector,
                                    UInt32* size, Boolean* writable)
{
    if (const auto plugIn = AudioSystem::Get().PlugInOf(stream))
        return plugIn->Calls().StreamGetPropertyInfo(plugIn->Reference(), stream, channel, selector, size, writable);
    const auto native = FindNativeStream(stream);
    if (!native) return kAudioHardwareBadStreamError;
    return NativeStreamInfo(*native, channel, selector, size, writable);
}

OSStatus AudioStreamGetProperty(AudioStreamID stream, UInt32 channel, AudioObjectPropertySelector selector,
                                UInt32* size, void* data)
{
    if (const auto plugIn = AudioSystem::Get().PlugInOf(stream))
        return plugIn->Calls().StreamGetProperty(plugIn->Reference(), stream, channel, selector, size, data);
    const auto native = FindNativeStream(stream);
    if (!native) return kAudioHardwareBadStreamError;
    return NativeStreamData(*native, channel, selector, size, data);
}
