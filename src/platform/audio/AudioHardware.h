// AudioHardware: the audio system as its clients see it. Object 1 is the system; native devices have
// numbers of their own; both answer properties by selector.
// Why: the core asks for devices, names and rates through these published calls, whichever machine is below.
// Start at AudioHardwareGetProperty. Selectors that are not listed here do not exist yet.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

using AudioObjectID = UInt32;
using AudioDeviceID = AudioObjectID;
using AudioStreamID = AudioObjectID;
using AudioObjectPropertySelector = UInt32;

constexpr AudioObjectID kAudioObjectSystemObject = 1;

constexpr OSStatus kAudioHardwareNoError = 0;
constexpr OSStatus kAudioHardwareUnknownPropertyError = OSStatus(FourCC("who?"));
constexpr OSStatus kAudioHardwareBadPropertySizeError = OSStatus(FourCC("!siz"));
constexpr OSStatus kAudioHardwareIllegalOperationError = OSStatus(FourCC("nope"));
constexpr OSStatus kAudioHardwareBadDeviceError = OSStatus(FourCC("!dev"));
constexpr OSStatus kAudioHardwareBadStreamError = OSStatus(FourCC("!str"));
constexpr OSStatus kAudioHardwareNotRunningError = OSStatus(FourCC("stop"));

// Of the system:
constexpr uint32_t kAudioHardwarePropertyDevices = FourCC("dev#");                    // AudioDeviceID each
constexpr uint32_t kAudioHardwarePropertyDefaultInputDevice = FourCC("dIn ");         // AudioDeviceID, 0: none
constexpr uint32_t kAudioHardwarePropertyDefaultOutputDevice = FourCC("dOut");        // AudioDeviceID, 0: none
constexpr uint32_t kAudioHardwarePropertyDefaultSystemOutputDevice = FourCC("sOut");  // AudioDeviceID, 0: none
constexpr uint32_t kAudioHardwarePropertyDeviceForUID =
    FourCC("duid");  // AudioValueTranslation, CFStringRef to AudioDeviceID

// Of a device:
constexpr uint32_t kAudioDevicePropertyDeviceUID = FourCC("uid ");           // CFStringRef, the caller releases
constexpr uint32_t kAudioDevicePropertyDeviceNameCFString = FourCC("lnam");  // CFStringRef, the caller releases
constexpr uint32_t kAudioDevicePropertyNominalSampleRate = FourCC("nsrt");   // Float64, hertz
constexpr uint32_t kAudioDevicePropertyAvailableNominalSampleRates = FourCC("nsr#");  // AudioValueRange each, hertz
constexpr uint32_t kAudioDevicePropertyLatency = FourCC("ltnc");                      // UInt32, frames; of a stream too
constexpr uint32_t kAudioDevicePropertySafetyOffset = FourCC("saft");                 // UInt32, frames
constexpr uint32_t kAudioDevicePropertyStreams = FourCC("stm#");                      // AudioStreamID each
constexpr uint32_t kAudioDevicePropertyStreamFormat = FourCC("sfmt");  // AudioStreamBasicDescription; of a stream too
constexpr uint32_t kAudioDevicePropertyStreamFormatMatch = FourCC("sfmm");  // the same, the closest to the one given
constexpr uint32_t kAudioDevicePropertyDeviceIsAlive = FourCC("livn");      // UInt32, 1: it is there
constexpr uint32_t kAudioDevicePropertyDataSource = FourCC("ssrc");         // UInt32; no native device has any
constexpr uint32_t kAudioDevicePropertyPreferredChannelsForStereo = FourCC("dch2");  // two UInt32, counted from 1
constexpr uint32_t kAudioDevicePropertyStreamConfiguration = FourCC("slay");         // AudioBufferList, null data

// Of a stream:
constexpr uint32_t kAudioStreamPropertyDirection = FourCC("sdir");  // UInt32, 1: input

/// Reads a property of the system.
///
/// @param size  bytes of room at `data` on entry, bytes used on return
/// @return      0, "who?" for an unknown property, "!siz" where the room is too small or of the wrong size
/// "dev#" and a "duid" that names no native device load the plug-ins, whose devices come after the native ones.
///
/// @thread      any that may block
OSStatus AudioHardwareGetPropertyInfo(AudioObjectPropertySelector selector, UInt32* size, Boolean* writable);
OSStatus AudioHardwareGetProperty(AudioObjectPropertySelector selector, UInt32* size, void* data);

/// Reads a property of a device; the same results, and "!dev" where there is no such device.
/// A native device has one stream, on one side; its samples are 32-bit floats, interleaved.
OSStatus AudioDeviceGetPropertyInfo(AudioDeviceID device, UInt32 channel, Boolean isInput,
                                    AudioObjectPropertySelector selector, UInt32* size, Boolean* writable);
OSStatus AudioDeviceGetProperty(AudioDeviceID device, UInt32 channel, Boolean isInput,
                                AudioObjectPropertySelector selector, UInt32* size, void* data);

/// Sets a property of the system. @return 0, "nope" for one that cannot be set, "who?" or "!siz"
OSStatus AudioHardwareSetProperty(AudioObjectPropertySelector selector, UInt32 size, const void* data);

/// Sets a property of a device. Native devices have none that can be set: their result is "nope", or "who?" or "!dev".
///
/// @param when  null: now
OSStatus AudioDeviceSetProperty(AudioDeviceID device, const AudioTimeStamp* when, UInt32 channel, Boolean isInput,
                                AudioObjectPropertySelector selector, UInt32 size, const void* data);

OSStatus AudioStreamGetPropertyInfo(AudioStreamID stream, UInt32 channel, AudioObjectPropertySelector selector,
                                    UInt32* size, Boolean* writable);
/// Reads a property of a stream; the same results, and "!str" where there is no such stream.
OSStatus AudioStreamGetProperty(AudioStreamID stream, UInt32 channel, AudioObjectPropertySelector selector,
                                UInt32* size, void* data);

/// The whole stamp of this moment on the timeline of a device that is open for input, as the device's own stamps have
/// it.
///
/// @return    0, or "stop" where the device is not open or has not delivered yet
/// @thread    any, as the next
/// @realtime  yes, as the next
OSStatus AudioDeviceGetCurrentTime(AudioDeviceID device, AudioTimeStamp* time);

/// Translates a stamp on the timeline of a device that is open for input, as measured now.
///
/// @param in      sample time or host time valid; of both the host time counts
/// @param out     its flags name what is wanted
/// @return        0, "stop" as above, or "nope" where `in` has neither
OSStatus AudioDeviceTranslateTime(AudioDeviceID device, const AudioTimeStamp* in, AudioTimeStamp* out);
