// What AI asks of devices. What it does with lists and samples is in AISamples.cpp.
#include "capture/buffers/AI.h"
#include "capture/buffers/DeviceProperties.h"
#include "capture/buffers/UnitCalls.h"
#include "platform/foundation/CFDictionary.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

using capture::GetDeviceList;
using capture::GetDeviceProperty;
using capture::GetStreamProperty;

namespace {

bool HasStream(AudioDeviceID device, bool isInput)
{
    std::vector<AudioStreamID> streams;
    if (GetDeviceList(device, isInput, kAudioDevicePropertyStreams, &streams) != 0) return false;
    return std::any_of(streams.begin(), streams.end(), [&](AudioStreamID stream) {
        UInt32 direction = 0;
        return GetStreamProperty(stream, kAudioStreamPropertyDirection, &direction) == 0 && (direction != 0) == isInput;
    });
}

OSStatus CopyDevices(std::vector<AudioDeviceID>* devices)
try {
    UInt32 size = 0;
    if (const OSStatus error = AudioHardwareGetPropertyInfo(kAudioHardwarePropertyDevices, &size, nullptr))
        return error;
    devices->resize(size / sizeof(AudioDeviceID));
    const OSStatus error = AudioHardwareGetProperty(kAudioHardwarePropertyDevices, &size, devices->data());
    devices->resize(error ? 0 : size / sizeof(AudioDeviceID));
    return error;
} catch (const std::bad_alloc&) {
    return kAudio_MemFullError;
}

OSStatus AppendString(AudioDeviceID device, bool isInput, AudioObjectPropertySelector selector, CFMutableArrayRef list)
{
    CFStringRef text = nullptr;
    if (const OSStatus error = GetDeviceProperty(device, isInput, selector, &text)) return error;
    const auto owned = cf::Ref<cf::String>::Adopt(text);
    CFArrayAppendValue(list, text);
    return 0;
}

OSStatus ListDevices(bool isInput, CFArrayRef* names, CFArrayRef* uids, UInt32* count)
try {
    const CFMutableArrayRef allNames = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    auto namesOwned = cf::Ref<cf::Array>::Adopt(allNames);
    const CFMutableArrayRef allUIDs = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    auto uidsOwned = cf::Ref<cf::Array>::Adopt(allUIDs);
    std::vector<AudioDeviceID> devices;
    if (const OSStatus error = CopyDevices(&devices)) return error;
    if (count) *count = 0;
    for (const AudioDeviceID device : devices) {
        if (!HasStream(device, isInput)) continue;
        if (const OSStatus error = AppendString(device, isInput, kAudioDevicePropertyDeviceNameCFString, allNames))
            return error;
        if (const OSStatus error = AppendString(device, isInput, kAudioDevicePropertyDeviceUID, allUIDs)) return error;
        if (count) ++*count;
    }
    if (names) *names = namesOwned.Detach();
    if (uids) *uids = uidsOwned.Detach();
    return 0;
} catch (const std::bad_alloc&) {
    return kAudio_MemFullError;
}

OSStatus CopyRates(AudioDeviceID device, std::vector<AudioValueRange>* ranges)
{
    return GetDeviceList(device, true, kAudioDevicePropertyAvailableNominalSampleRates, ranges);
}

}  // namespace

OSStatus AI_GetDeviceWithUID(CFStringRef uid, AudioDeviceID* device)
{
    if (!uid) return 0;
    AudioValueTranslation translation = {&uid, sizeof uid, device, sizeof *device};
    const OSStatus error = capture::GetSystemProperty(kAudioHardwarePropertyDeviceForUID, &translation);
    if (error) *device = 0;
    return error;
}

OSStatus AI_GetDefaultInputDevice(AudioDeviceID* device)
{
    return capture::GetSystemProperty(kAudioHardwarePropertyDefaultInputDevice, device);
}

OSStatus AI_GetDefaultOutputDevice(AudioDeviceID* device)
{
    return capture::GetSystemProperty(kAudioHardwarePropertyDefaultOutputDevice, device);
}

OSStatus AI_GetDefaultAU(AudioUnit* unit)
{
    if (capture::OpenUnit(FourCC("auou"), FourCC("def "), unit) != 0) std::exit(-1);
    return 0;
}

bool AI_HasInputStream(AudioDeviceID device)
{
    return HasStream(device, true);
}

bool AI_HasOutputStream(AudioDeviceID device)
{
    return HasStream(device, false);
}

OSStatus AI_GetListOfOutputDevices(CFArrayRef* names, CFArrayRef* uids, UInt32* count)
{
    return ListDevices(false, names, uids, count);
}

OSStatus AI_GetListOfInputDevices(CFArrayRef* names, CFArrayRef* uids, UInt32* count)
{
    return ListDevices(true, names, uids, count);
}

OSStatus AI_IsDeviceAlive(AudioDeviceID device, UInt32* alive)
{
    return GetDeviceProperty(device, false, kAudioDevicePropertyDeviceIsAlive, alive);
}

OSStatus AI_GetDeviceName(AudioDeviceID device, CFStringRef* name)
{
    return GetDeviceProperty(device, false, kAudioDevicePropertyDeviceNameCFString, name);
}

OSStatus AI_GetBestSampleRate(AudioDeviceID device, double* rateHz)
{
    std::vector<AudioValueRange> ranges;
    const OSStatus error = CopyRates(device, &ranges);
    *rateHz = capture::BestRate(ranges);
    return error == kAudio_MemFullError ? -1 : error;
}

OSStatus AI_GetClosestSampleRate(AudioDeviceID device, double* rateHz)
{
    std::vector<AudioValueRange> ranges;
    if (const OSStatus error = CopyRates(device, &ranges)) return error;
    *rateHz = capture::ClosestRate(ranges, *rateHz);
    return 0;
}

namespace capture {

double BestRate(std::span<const AudioValueRange> ranges) noexcept
{
    double best = 0;
    for (const AudioValueRange& range : ranges) best = std::max(best, range.mMaximum);
    return best;
}

double ClosestRate(std::span<const AudioValueRange> ranges, double wantedHz) noexcept
{
    double best = ranges.empty() ? 0 : ranges.front().mMaximum;
    for (const AudioValueRange& range : ranges) {
        const double rate = range.mMaximum;
        const bool closer = std::fabs(rate - wantedHz) < std::fabs(best - wantedHz) && rate >= wantedHz;
        if (best == 0 || closer) best = rate;
    }
    return best;
}

}  // namespace capture
