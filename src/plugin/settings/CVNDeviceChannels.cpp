// How many channels a device has as things are now.
#include "capture/buffers/AI.h"
#include "plugin/settings/CVNDevice.h"
#include "plugin/settings/SharedPreferences.h"

#include <vector>

namespace {

using cf::As;
using cf::Ref;

/// The description of each input stream of a device.
OSStatus CopyInputFormats(AudioDeviceID device, std::vector<AudioStreamBasicDescription>& formats)
{
    UInt32 size = 0;
    OSStatus error = AudioDeviceGetPropertyInfo(device, 0, true, kAudioDevicePropertyStreams, &size, nullptr);
    if (error != 0) return error;
    std::vector<AudioStreamID> streams(size / sizeof(AudioStreamID));
    error = AudioDeviceGetProperty(device, 0, true, kAudioDevicePropertyStreams, &size, streams.data());
    for (size_t i = 0; i < streams.size() && error == 0; ++i) {
        AudioStreamBasicDescription format{};
        UInt32 bytes = sizeof format;
        error = AudioStreamGetProperty(streams[i], 0, kAudioDevicePropertyStreamFormat, &bytes, &format);
        formats.push_back(format);
    }
    return error;
}

UInt32 BytesPerSample(const AudioStreamBasicDescription& format, bool nonInterleaved)
{
    const UInt32 channels = nonInterleaved ? 1 : format.mChannelsPerFrame;
    const UInt32 bytes = channels != 0 ? format.mBytesPerFrame / channels : 0;
    return bytes != 0 ? bytes : (format.mBitsPerChannel + 7) / 8;
}

struct SortedSources {
    bool mAllSystemAudio = false;
    std::vector<CFStringRef> mDeviceUIDs;  // not retained
    Ref<cf::Array> mApplications;
};

SortedSources Sort(CFArrayRef sources)
{
    SortedSources sorted;
    const CFMutableArrayRef applications = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    sorted.mApplications = Ref<cf::Array>::Adopt(applications);
    for (CFIndex i = 0; sources && i < CFArrayGetCount(sources); ++i) {
        const auto* source = As<cf::Dictionary>(CFArrayGetValueAtIndex(sources, i));
        if (!source) continue;
        const auto* identifier = As<cf::String>(source->Find(settings::kApplicationIdentifier));
        if (const CFTypeRef uid = source->Find(CVNDevice::kSourceDeviceUID)) {
            if (const auto* text = As<cf::String>(uid)) sorted.mDeviceUIDs.push_back(text);
        } else if (identifier && identifier->Text() == CVNDevice::kAllSystemAudio) {
            sorted.mAllSystemAudio = true;
        } else if (identifier || source->Find(settings::kApplicationPath)) {
            CFArrayAppendValue(applications, source);
        }
    }
    return sorted;
}

/// Whether the default output can be told; that there is none is an answer too.
OSStatus LookUpDefaultOutput()
{
    AudioDeviceID device = 0;
    UInt32 size = sizeof device;
    const OSStatus error = AudioHardwareGetProperty(kAudioHardwarePropertyDefaultOutputDevice, &size, &device);
    if (error != 0 || device == 0) return error;
    CFStringRef uid = nullptr;
    size = sizeof uid;
    const OSStatus answer = AudioDeviceGetProperty(device, 0, false, kAudioDevicePropertyDeviceUID, &size, &uid);
    static_cast<void>(Ref<cf::String>::Adopt(uid));
    return answer;
}

/// 0 where there is no such input device.
UInt32 InputChannels(CFStringRef uid)
{
    AudioDeviceID device = 0;
    AudioStreamBasicDescription description;
    if (AI_GetDeviceWithUID(uid, &device) != 0 || CVNDevice::GetDeviceDesc(device, &description) != 0) return 0;
    return description.mChannelsPerFrame;
}

}  // namespace

OSStatus CVNDevice::GetDeviceDesc(AudioDeviceID device, AudioStreamBasicDescription* description)
{
    *description = {};
    UInt32 size = sizeof *description;
    OSStatus error = AudioDeviceGetProperty(device, 0, true, kAudioDevicePropertyStreamFormat, &size, description);
    if (error != 0) return error;
    std::vector<AudioStreamBasicDescription> formats;
    if ((error = CopyInputFormats(device, formats)) != 0) return error;
    UInt32 channels = 0;
    for (const AudioStreamBasicDescription& format : formats) channels += format.mChannelsPerFrame;

    const bool nonInterleaved = description->mFormatID == kAudioFormatLinearPCM &&
                                (description->mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0;
    const UInt32 bytes = BytesPerSample(*description, nonInterleaved);
    description->mFramesPerPacket = 1;
    description->mChannelsPerFrame = channels;
    description->mBytesPerFrame = description->mBytesPerPacket = nonInterleaved ? bytes : bytes * channels;
    if (!nonInterleaved) description->mFormatFlags &= ~kAudioFormatFlagIsNonInterleaved;
    return kAudioHardwareNoError;
}

OSStatus CVNDevice::GetChannelCount(UInt32* count) const
{
    if (mOutputChannelCount != 0) {
        *count = UInt32(mOutputChannelCount);
        return kAudioHardwareNoError;
    }
    const SortedSources sources = Sort(mCaptureSources.Get());
    const bool takesDefault = mCaptureDevices && CFArrayContainsValue(mCaptureDevices.Get(), CFSTR(kDefaultOutput));
    if (const OSStatus error = takesDefault ? LookUpDefaultOutput() : kAudioHardwareNoError) return error;

    UInt32 channels = 0;
    if (sources.mAllSystemAudio)
        channels = 2;
    else if (CFArrayGetCount(sources.mApplications.Get()) != 0)
        channels =
            2 *
            UInt32(CFArrayGetCount(Ref<cf::Array>::Adopt(CopyPIDsFromIDs(sources.mApplications.Get(), false)).Get()));
    for (const CFStringRef uid : sources.mDeviceUIDs) channels += InputChannels(uid);
    *count = channels;
    return kAudioHardwareNoError;
}
