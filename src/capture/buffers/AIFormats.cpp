// What AI does with formats: of devices, of units, and for a person.
#include "capture/buffers/AI.h"
#include "capture/buffers/DeviceProperties.h"
#include "capture/buffers/UnitCalls.h"

#include <cstdio>

using capture::GetDeviceProperty;

namespace {

constexpr char kLine[] = "- - - - - - - - - - - - - - - - - - - -\n";

/// The format that the device's input side has for the one wanted.
OSStatus MatchFormat(AudioDeviceID device, AudioStreamBasicDescription* desc)
{
    return GetDeviceProperty(device, true, kAudioDevicePropertyStreamFormatMatch, desc);
}

bool IsWritable(AudioDeviceID device, AudioObjectPropertySelector selector)
{
    Boolean writable = 0;
    return AudioDeviceGetPropertyInfo(device, 0, true, selector, nullptr, &writable) == 0 && writable;
}

}  // namespace

void AI_PrintStreamDesc(const AudioStreamBasicDescription* desc)
{
    if (!desc) {
        std::fprintf(stderr, "Can't print a NULL desc!\n");
        return;
    }
    const UInt32 code = desc->mFormatID;
    const char formatID[] = {char(code >> 24), char(code >> 16), char(code >> 8), char(code)};
    std::fprintf(stderr, "%s", kLine);
    std::fprintf(stderr, "  Sample Rate:%f\n", desc->mSampleRate);
    std::fprintf(stderr, "  Format ID:%.*s\n", int(sizeof formatID), formatID);
    std::fprintf(stderr, "  Format Flags:%lX\n", static_cast<unsigned long>(desc->mFormatFlags));
    std::fprintf(stderr, "  Bytes per Packet:%ld\n", static_cast<long>(desc->mBytesPerPacket));
    std::fprintf(stderr, "  Frames per Packet:%ld\n", static_cast<long>(desc->mFramesPerPacket));
    std::fprintf(stderr, "  Bytes per Frame:%ld\n", static_cast<long>(desc->mBytesPerFrame));
    std::fprintf(stderr, "  Channels per Frame:%ld\n", static_cast<long>(desc->mChannelsPerFrame));
    std::fprintf(stderr, "  Bits per Channel:%ld\n", static_cast<long>(desc->mBitsPerChannel));
    std::fprintf(stderr, "  Reserved: %ld\n", static_cast<long>(desc->mReserved));
    std::fprintf(stderr, "%s", kLine);
}

OSStatus AI_GetNumChannels(AudioDeviceID device, UInt32* channels)
{
    AudioStreamBasicDescription desc{};
    const OSStatus error = MatchFormat(device, &desc);
    if (error == 0) *channels = desc.mChannelsPerFrame;
    return error;
}

bool AI_SupportsStereo(AudioDeviceID device)
{
    return IsWritable(device, kAudioDevicePropertyPreferredChannelsForStereo);
}

OSStatus AI_SetDeviceToClosestFormatMatch(AudioDeviceID device, AudioStreamBasicDescription* desc)
{
    OSStatus error = 0;
    if (IsWritable(device, kAudioDevicePropertyStreamFormat)) {
        AudioStreamBasicDescription closest = *desc;
        error = MatchFormat(device, &closest);
        if (error == 0)
            error = AudioDeviceSetProperty(device, nullptr, 0, true, kAudioDevicePropertyStreamFormat, sizeof closest,
                                           &closest);
    }
    const OSStatus unread = GetDeviceProperty(device, true, kAudioDevicePropertyStreamFormat, desc);
    return error ? error : unread;
}

OSStatus AI_MatchAUFormats(AudioUnit* unit, AudioStreamBasicDescription* desc, UInt32 bus)
{
    if (const OSStatus error =
            capture::GetUnitProperty(*unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0, desc))
        return error;
    return capture::SetUnitProperty(*unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, bus, *desc);
}
