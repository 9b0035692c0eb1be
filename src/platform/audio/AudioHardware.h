// AudioHardware: the audio system as its clients see it. Object 1 is the system; native devices have
// numbers of their own; both answer properties by selector.
// Why: the core asks for devices, names and rates through these published calls, whichever machine is below.
// Start at AudioHardwareGetProperty. Selectors that are not listed here do not exist yet.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

using AudioObjectID = UInt32;
using AudioDeviceID = AudioObjectID;
using AudioObjectPropertySelector = UInt32;

constexpr AudioObjectID kAudioObjectSystemObject = 1;

constexpr OSStatus kAudioHardwareNoError = 0;
constexpr OSStatus kAudioHardwareUnknownPropertyError = OSStatus(FourCC("who?"));
constexpr OSStatus kAudioHardwareBadPropertySizeError = OSStatus(FourCC("!siz"));
constexpr OSStatus kAudioHardwareIllegalOperationError = OSStatus(FourCC("nope"));
constexpr OSStatus kAudioHardwareBadDeviceError = OSStatus(FourCC("!dev"));

// Of the system:
constexpr uint32_t kAudioHardwarePropertyDevices = FourCC("dev#");                    // AudioDeviceID each
constexpr uint32_t kAudioHardwarePropertyDefaultOutputDevice = FourCC("dOut");        // AudioDeviceID, 0: none
constexpr uint32_t kAudioHardwarePropertyDefaultSystemOutputDevice = FourCC("sOut");  // AudioDeviceID, 0: none
constexpr uint32_t kAudioHardwarePropertyDeviceForUID =
    FourCC("duid");  // AudioValueTranslation, CFStringRef to AudioDeviceID

// Of a device:
constexpr uint32_t kAudioDevicePropertyDeviceUID = FourCC("uid ");                   // CFStringRef, the caller releases
constexpr uint32_t kAudioDevicePropertyDeviceNameCFString = FourCC("lnam");          // CFStringRef, the caller releases
constexpr uint32_t kAudioDevicePropertyNominalSampleRate = FourCC("nsrt");           // Float64, hertz
constexpr uint32_t kAudioDevicePropertyPreferredChannelsForStereo = FourCC("dch2");  // two UInt32, counted from 1
constexpr uint32_t kAudioDevicePropertyStreamConfiguration = FourCC("slay");         // AudioBufferList, null data

/// Reads a property of the system.
///
/// @param size  bytes of room at `data` on entry, bytes used on return
/// @return      0, "who?" for an unknown property, "!siz" where the room is too small or of the wrong size
/// @thread      any that may block
OSStatus AudioHardwareGetPropertyInfo(AudioObjectPropertySelector selector, UInt32* size, Boolean* writable);
OSStatus AudioHardwareGetProperty(AudioObjectPropertySelector selector, UInt32* size, void* data);

/// Reads a property of a device; the same results, and "!dev" where there is no such device.
/// A native output device has streams on its output side alone.
OSStatus AudioDeviceGetPropertyInfo(AudioDeviceID device, UInt32 channel, Boolean isInput,
                                    AudioObjectPropertySelector selector, UInt32* size, Boolean* writable);
OSStatus AudioDeviceGetProperty(AudioDeviceID device, UInt32 channel, Boolean isInput,
                                AudioObjectPropertySelector selector, UInt32* size, void* data);
