// AudioObjectProperties: the published selectors of the objects of plug-ins, beside those of AudioHardware.h, which
// native devices answer too. A comment gives the type of the value; a CFStringRef or CFURLRef the caller releases.
#pragma once

#include "platform/audio/AudioObject.h"

// Of every object. The names of elements are of a device or a stream.
constexpr uint32_t kAudioObjectPropertyName = FourCC("lnam");                 // CFStringRef
constexpr uint32_t kAudioObjectPropertyManufacturer = FourCC("lmak");         // CFStringRef
constexpr uint32_t kAudioObjectPropertyElementName = FourCC("lchn");          // CFStringRef
constexpr uint32_t kAudioObjectPropertyElementCategoryName = FourCC("lccn");  // CFStringRef
constexpr uint32_t kAudioObjectPropertyElementNumberName = FourCC("lcnn");    // CFStringRef
constexpr uint32_t kAudioObjectPropertyListenerAdded = FourCC("lisa");        // AudioObjectPropertyAddress, settable
constexpr uint32_t kAudioObjectPropertyListenerRemoved = FourCC("lisr");      // AudioObjectPropertyAddress, settable

// Of a device. Names as text end with a NUL.
constexpr uint32_t kAudioDevicePropertyDeviceName = FourCC("name");                      // char each
constexpr uint32_t kAudioDevicePropertyDeviceManufacturer = FourCC("makr");              // char each
constexpr uint32_t kAudioDevicePropertyChannelName = FourCC("chnm");                     // char each
constexpr uint32_t kAudioDevicePropertyChannelCategoryName = FourCC("ccnm");             // char each
constexpr uint32_t kAudioDevicePropertyChannelNumberName = FourCC("cnnm");               // char each
constexpr uint32_t kAudioDevicePropertyConfigurationApplication = FourCC("capp");        // CFStringRef
constexpr uint32_t kAudioDevicePropertyModelUID = FourCC("muid");                        // CFStringRef
constexpr uint32_t kAudioDevicePropertyIcon = FourCC("icon");                            // CFURLRef
constexpr uint32_t kAudioDevicePropertyTransportType = FourCC("tran");                   // UInt32
constexpr uint32_t kAudioDevicePropertyRelatedDevices = FourCC("akin");                  // AudioDeviceID each
constexpr uint32_t kAudioDevicePropertyClockDomain = FourCC("clkd");                     // UInt32
constexpr uint32_t kAudioDevicePropertyDeviceHasChanged = FourCC("diff");                // UInt32
constexpr uint32_t kAudioDevicePropertyIsHidden = FourCC("hidn");                        // UInt32
constexpr uint32_t kAudioDevicePropertyDeviceCanBeDefaultDevice = FourCC("dflt");        // UInt32
constexpr uint32_t kAudioDevicePropertyDeviceCanBeDefaultSystemDevice = FourCC("sflt");  // UInt32
constexpr uint32_t kAudioDevicePropertyDeviceIsRunning = FourCC("goin");                 // UInt32, settable
constexpr uint32_t kAudioDevicePropertyDeviceIsRunningSomewhere = FourCC("gone");        // UInt32
constexpr uint32_t kAudioDevicePropertyHogMode = FourCC("oink");                         // SInt32, -1: nobody
constexpr uint32_t kAudioDeviceProcessorOverload = FourCC("over");                       // UInt32
constexpr uint32_t kAudioDevicePropertyBufferSize = FourCC("bsiz");                      // UInt32, bytes, settable
constexpr uint32_t kAudioDevicePropertyBufferSizeRange = FourCC("bsz#");                 // AudioValueRange, bytes
constexpr uint32_t kAudioDevicePropertyBufferFrameSize = FourCC("fsiz");                 // UInt32, frames, settable
constexpr uint32_t kAudioDevicePropertyBufferFrameSizeRange = FourCC("fsz#");            // AudioValueRange, frames
constexpr uint32_t kAudioDevicePropertyActualSampleRate = FourCC("asrt");                // Float64, hertz
constexpr uint32_t kAudioDevicePropertySupportsMixing = FourCC("mix?");  // UInt32, settable; of a stream too

// Of a stream, and of a device for the stream that an element lies in. "Supported" and "match" read a format from the
// caller's data; the one fails where it is not supported, the other puts the nearest one in its place.
constexpr uint32_t kAudioStreamPropertyStartingChannel = FourCC("schn");           // UInt32, counted from 1
constexpr uint32_t kAudioStreamPropertyTerminalType = FourCC("term");              // UInt32
constexpr uint32_t kAudioStreamPropertyAvailableVirtualFormats = FourCC("sfma");   // AudioStreamRangedDescription each
constexpr uint32_t kAudioDevicePropertyStreamFormats = FourCC("sfm#");             // AudioStreamBasicDescription each
constexpr uint32_t kAudioDevicePropertyStreamFormatSupported = FourCC("sfm?");     // AudioStreamBasicDescription
constexpr uint32_t kAudioStreamPropertyPhysicalFormat = FourCC("pft ");            // AudioStreamBasicDescription
constexpr uint32_t kAudioStreamPropertyAvailablePhysicalFormats = FourCC("pfta");  // AudioStreamRangedDescription each
constexpr uint32_t kAudioStreamPropertyPhysicalFormats = FourCC("pft#");           // AudioStreamBasicDescription each
constexpr uint32_t kAudioStreamPropertyPhysicalFormatSupported = FourCC("pft?");   // AudioStreamBasicDescription
constexpr uint32_t kAudioStreamPropertyPhysicalFormatMatch = FourCC("pftm");       // AudioStreamBasicDescription
