// AI: small helpers over the audio system's devices, and over runs of float samples.
// Why: settings, devices and sources ask the same few questions about hardware; here each has one answer.
// Every function returns 0 or the platform's status, unless it says otherwise, and keeps no state.
// All are for threads that may block, save those on samples.
#pragma once

#include "platform/audio/AudioUnit.h"
#include "platform/foundation/CFBase.h"

#include <span>

// ---- Devices

/// The device of a UID. A null UID leaves `*device` alone; it is 0 after a failure, and where there is none.
OSStatus AI_GetDeviceWithUID(CFStringRef uid, AudioDeviceID* device);
OSStatus AI_GetDefaultInputDevice(AudioDeviceID* device);
OSStatus AI_GetDefaultOutputDevice(AudioDeviceID* device);

/// Opens the default output unit. Where that fails the process ends: this one does not report.
OSStatus AI_GetDefaultAU(AudioUnit* unit);

/// Whether the device has a stream of that direction; no, where its streams cannot be read.
bool AI_HasInputStream(AudioDeviceID device);
bool AI_HasOutputStream(AudioDeviceID device);

/// Names and UIDs of the devices with such a stream, in the platform's order, at the same index in both.
///
/// @param names  the caller releases it; null: not wanted. So for `uids`; both are left alone on failure
/// @param count  how many were found, also before a failure; null: not wanted
OSStatus AI_GetListOfOutputDevices(CFArrayRef* names, CFArrayRef* uids, UInt32* count);
OSStatus AI_GetListOfInputDevices(CFArrayRef* names, CFArrayRef* uids, UInt32* count);

/// Whether the device is there: 1.
OSStatus AI_IsDeviceAlive(AudioDeviceID device, UInt32* alive);
/// @param name  the caller releases it
OSStatus AI_GetDeviceName(AudioDeviceID device, CFStringRef* name);

/// BestRate and ClosestRate of what the input side names. @return also -1 when out of memory
OSStatus AI_GetBestSampleRate(AudioDeviceID device, double* rateHz);
/// @param rateHz  the wanted rate on entry
OSStatus AI_GetClosestSampleRate(AudioDeviceID device, double* rateHz);

// ---- Controls. Native devices have none of them: their result is "who?" or "nope"

/// Whether the gain of the input side can be set, of all channels together or of any one.
bool AI_SupportsGain(AudioDeviceID device);
/// The input side's gain in decibels: of all channels together, or of the first channel that has one.
OSStatus AI_GetGain(AudioDeviceID device, Float32* decibels);
/// Sets it for all channels together, or where there is no such control for each channel.
OSStatus AI_SetGain(AudioDeviceID device, Float32 decibels);
OSStatus AI_GetGainRangeDecibels(AudioDeviceID device, AudioValueRange* range);
/// Data sources of a direction, and their names at the same index. All are left alone on failure.
///
/// @param sources  the caller frees it
/// @param names    the caller releases it
OSStatus AI_GetListOfSources(AudioDeviceID device, bool isInput, UInt32** sources, CFArrayRef* names, UInt32* count);
/// Uses those streams of a direction that hold the channels preferred for stereo, and no other.
///
/// @param ioProc  for which I/O procedure; an address that only the device looks at
OSStatus AI_StreamsEnable(AudioDeviceID device, bool isInput, void* ioProc);

// ---- Formats. Those of a device are its input side's

/// Prints every field of a description on standard error, or that there is none.
void AI_PrintStreamDesc(const AudioStreamBasicDescription* desc);
/// Channels of the format that the device has by itself.
OSStatus AI_GetNumChannels(AudioDeviceID device, UInt32* channels);
/// Whether the pair of channels that stereo goes through may be chosen.
bool AI_SupportsStereo(AudioDeviceID device);
/// Gives a device whose format may be set the one closest to `desc`.
///
/// @param desc  set to what the device has then, in any case
/// @return      0, or the first failing step's status
OSStatus AI_SetDeviceToClosestFormatMatch(AudioDeviceID device, AudioStreamBasicDescription* desc);
/// Gives an input bus of a unit the format of its output 0. @param desc  set to that format
OSStatus AI_MatchAUFormats(AudioUnit* unit, AudioStreamBasicDescription* desc, UInt32 bus);

namespace capture {

/// The greatest rate of the ranges, in hertz; 0 where there is none.
double BestRate(std::span<const AudioValueRange> ranges) noexcept;

/// The rate of the ranges that comes closest to the one wanted, in hertz; 0 where there is none.
///
/// Each range counts by its upper end, and the first stands until another takes its place. That is one that is closer
/// and not below the wanted rate: one that is closer from below is passed over.
double ClosestRate(std::span<const AudioValueRange> ranges, double wantedHz) noexcept;

}  // namespace capture

// ---- Buffer lists

/// Bytes of a list of that many buffers, and of one more.
UInt32 AI_CalculateByteSize(UInt32 buffers);
/// A zeroed, page-aligned list without data, to be given to AI_DestroyBufferList. @return null when out of memory
AudioBufferList* AI_CreateBufferList(UInt32 buffers);
/// The same, with `bytes` of silence a buffer. @return null where any memory was not to be had
AudioBufferList* AI_CreateAllocedBufferList(UInt32 buffers, UInt32 channelsPerBuffer, UInt32 bytes);
/// A list of one buffer over the caller's data, which must be taken out again before the list is destroyed.
AudioBufferList* AI_WrapInterleavedDataInBufferList(void* data, UInt32 bytes, UInt32 channels);
/// Frees each buffer's data and the list, which may be null.
void AI_DestroyBufferList(AudioBufferList* list);

// ---- Samples. @realtime yes

/// Weaves two channels. @param byteCount  of one channel
OSStatus AI_InterleaveFloat(const float* left, const float* right, int byteCount, float* out);

/// Splits stereo frames into two channels.
///
/// @param byteCount  of the frames; where it is odd nothing is done
/// @return           0, or 1 for an odd count
OSStatus AI_DeinterleaveFloat(const float* in, UInt32 byteCount, float* left, float* right);
/// The same, with samples of -1 to 1 put on the scale of 16-bit integers.
OSStatus AI_DeinterleaveFloatAndLamify(const float* in, UInt32 byteCount, float* left, float* right);

/// Limits samples to [-limit, limit], in place.
/// @return 0, or 1 where `byteCount` is no whole number of samples, with nothing done
OSStatus AI_LimitFloat(float* samples, UInt32 byteCount, float limit);
