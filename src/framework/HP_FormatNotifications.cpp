// What a change of a stream's format is to its listeners, and to those of its device.
#include "framework/HP_Device.h"
#include "framework/HP_FormatList.h"
#include "framework/HP_Stream.h"
#include "platform/audio/AudioObjectProperties.h"

namespace {

constexpr AudioObjectPropertyScope kGlobal = kAudioObjectPropertyScopeGlobal;
constexpr AudioObjectPropertyElement kMaster = kAudioObjectPropertyElementMaster;

AudioStreamBasicDescription Virtual(AudioStreamBasicDescription format)
{
    CAStreamBasicDescription::NormalizeLinearPCMFormat(format);
    return format;
}

bool CanBeMixed(const AudioStreamBasicDescription& format)
{
    return format.mFormatID == kAudioFormatLinearPCM && !(format.mFormatFlags & kAudioFormatFlagIsNonMixable);
}

/// A property on the stream's element; who listens to the whole device hears of its first stream.
void AppendOnElement(CAPropertyAddressList& list, AudioObjectPropertySelector selector, AudioObjectPropertyScope scope,
                     const HP_Stream& stream)
{
    const AudioObjectPropertyElement element = stream.GetStartingChannel();
    list.AppendUnique({selector, scope, element});
    if (element == 1) list.AppendUnique({selector, scope, kMaster});
}

/// All streams of a device run at one rate.
void AppendRateOfSide(CAPropertyAddressList& list, const HP_Device::StreamList& streams, AudioObjectPropertyScope scope,
                      const HP_Stream& changed)
{
    if (streams.empty()) return;
    list.AppendUnique({kAudioDevicePropertyLatency, scope, kMaster});
    list.AppendUnique({kAudioDevicePropertySafetyOffset, scope, kMaster});
    for (const HP_Stream* const stream : streams) {
        if (stream == &changed) continue;
        AppendOnElement(list, kAudioStreamPropertyPhysicalFormat, scope, *stream);
        AppendOnElement(list, kAudioDevicePropertyStreamFormat, scope, *stream);
    }
}

}  // namespace

void HP_FormatList::DetermineNotifications(const HP_Device& device, const HP_Stream& stream,
                                           const AudioStreamBasicDescription& oldFormat,
                                           const AudioStreamBasicDescription& newFormat,
                                           CAPropertyAddressList& ofStream, CAPropertyAddressList& ofDevice)
{
    if (oldFormat == newFormat) return;
    const AudioObjectPropertyScope side =
        stream.IsInput() ? kAudioObjectPropertyScopeInput : kAudioObjectPropertyScopeOutput;
    AppendOnElement(ofStream, kAudioStreamPropertyPhysicalFormat, side, stream);
    ofDevice.AppendUnique({kAudioStreamPropertyPhysicalFormat, kGlobal, kMaster});

    if (!(HP_WithoutRate(oldFormat) == HP_WithoutRate(newFormat)))
        ofStream.AppendUnique({kAudioDevicePropertyAvailableNominalSampleRates, kGlobal, kMaster});

    if (!(Virtual(oldFormat) == Virtual(newFormat))) {
        AppendOnElement(ofStream, kAudioDevicePropertyStreamFormat, side, stream);
        ofStream.AppendUnique({kAudioDevicePropertyStreamFormat, kGlobal, kMaster});
    }

    if (oldFormat.mSampleRate != newFormat.mSampleRate) {
        ofStream.AppendUnique({kAudioDevicePropertyNominalSampleRate, kGlobal, kMaster});
        // The scopes go by the order, not by the side: a listener to either hears of the stream's own side first.
        AppendRateOfSide(ofStream, device.GetStreams(stream.IsInput()), kAudioObjectPropertyScopeInput, stream);
        AppendRateOfSide(ofStream, device.GetStreams(!stream.IsInput()), kAudioObjectPropertyScopeOutput, stream);
        ofDevice.AppendUnique({kAudioDevicePropertyNominalSampleRate, kGlobal, kMaster});
        ofDevice.AppendUnique({kAudioDevicePropertyLatency, kGlobal, kMaster});
    }

    if (oldFormat.mChannelsPerFrame != newFormat.mChannelsPerFrame)
        ofDevice.AppendUnique({kAudioDevicePropertyStreamConfiguration, side, kMaster});

    if (CanBeMixed(oldFormat) != CanBeMixed(newFormat)) {
        ofStream.AppendUnique({kAudioDevicePropertySupportsMixing, kGlobal, kMaster});
        ofDevice.AppendUnique({kAudioDevicePropertySupportsMixing, kGlobal, kMaster});
    }
}
