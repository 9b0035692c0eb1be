#include "cli/WatchCommand.h"

#include "cli/DeviceCommands.h"
#include "cli/Devices.h"
#include "cli/ExitCodes.h"
#include "cli/Output.h"
#include "cli/StopSignals.h"
#include "platform/audio/AudioObjectProperties.h"
#include "platform/foundation/CFDictionary.h"
#include "platform/kernel/Threads.h"
#include "plugin/settings/CVNDevice.h"
#include "plugin/settings/SharedPreferences.h"
#include "utility/CAMutex.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <map>
#include <vector>

namespace cli {

namespace {

constexpr uint32_t kLookMicroseconds = 100'000;

constexpr AudioObjectPropertyAddress kDevices{kAudioHardwarePropertyDevices, kAudioObjectPropertyScopeGlobal,
                                              kAudioObjectPropertyElementMaster};
constexpr AudioObjectPropertyAddress kAnything{kAudioObjectPropertySelectorWildcard, kAudioObjectPropertyScopeWildcard,
                                               kAudioObjectPropertyElementWildcard};

/// What a person sees of a device.
struct Sight {
    struct Stream {
        bool mIsInput;
        UInt32 mChannels;
        double mRateHz;
        bool operator==(const Stream&) const = default;
    };
    std::string mUID, mName;
    std::vector<Stream> mStreams;
    bool operator==(const Sight&) const = default;
};

template <class Value>
Value Read(AudioDeviceID device, bool isInput, AudioObjectPropertySelector selector)
{
    Value value{};
    UInt32 size = sizeof value;
    AudioDeviceGetProperty(device, 0, isInput, selector, &size, &value);  // one that has just gone reads as nothing
    return value;
}

std::string ReadText(AudioDeviceID device, AudioObjectPropertySelector selector)
{
    return cf::ToStdString(cf::Ref<cf::String>::Adopt(Read<CFStringRef>(device, false, selector)).Get());
}

/// The width that the stream offers: that of a virtual device is set to stereo, whatever its width, until somebody sets
/// it.
UInt32 ReadChannels(AudioStreamID stream, const AudioStreamBasicDescription& current)
{
    AudioStreamRangedDescription offered{};
    UInt32 size = sizeof offered;
    const OSStatus error =
        AudioStreamGetProperty(stream, 0, kAudioStreamPropertyAvailablePhysicalFormats, &size, &offered);
    return error == 0 && size == sizeof offered ? offered.mFormat.mChannelsPerFrame : current.mChannelsPerFrame;
}

void ReadStreams(AudioDeviceID device, bool isInput, std::vector<Sight::Stream>& streams)
{
    UInt32 size = 0;
    if (AudioDeviceGetPropertyInfo(device, 0, isInput, kAudioDevicePropertyStreams, &size, nullptr) != 0) return;
    std::vector<AudioStreamID> numbers(size / sizeof(AudioStreamID));
    if (AudioDeviceGetProperty(device, 0, isInput, kAudioDevicePropertyStreams, &size, numbers.data()) != 0) return;
    numbers.resize(size / sizeof(AudioStreamID));
    for (const AudioStreamID stream : numbers) {
        AudioStreamBasicDescription format{};
        size = sizeof format;
        if (AudioStreamGetProperty(stream, 0, kAudioDevicePropertyStreamFormat, &size, &format) == 0)
            streams.push_back({isInput, ReadChannels(stream, format), format.mSampleRate});
    }
}

Sight Look(AudioDeviceID device)
{
    Sight sight{
        ReadText(device, kAudioDevicePropertyDeviceUID), ReadText(device, kAudioDevicePropertyDeviceNameCFString), {}};
    for (const bool isInput : {true, false}) ReadStreams(device, isInput, sight.mStreams);
    return sight;
}

std::vector<AudioDeviceID> CopyDeviceNumbers()
{
    UInt32 size = 0;
    std::vector<AudioDeviceID> numbers;
    do {  // one more may have come since the size was asked for
        if (AudioHardwareGetPropertyInfo(kAudioHardwarePropertyDevices, &size, nullptr) != 0) return {};
        numbers.resize(size / sizeof(AudioDeviceID));
    } while (AudioHardwareGetProperty(kAudioHardwarePropertyDevices, &size, numbers.data()) ==
             kAudioHardwareBadPropertySizeError);
    numbers.resize(size / sizeof(AudioDeviceID));
    return numbers;
}

class Watch {
public:
    Watch(bool json, bool all) : mJSON(json), mAll(all)
    {
        AudioObjectAddPropertyListener(kAudioObjectSystemObject, &kDevices, &OnChange, this);
        Compare();
    }
    ~Watch()
    {
        {
            const CAMutex::Scope scope(mMutex);
            mEnding = true;  // what is seen stays as it is; a removal waits for calls, which wait for the mutex
        }
        AudioObjectRemovePropertyListener(kAudioObjectSystemObject, &kDevices, &OnChange, this);
        for (const auto& [device, sight] : mSeen)
            AudioObjectRemovePropertyListener(device, &kAnything, &OnChange, this);
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

private:
    static OSStatus OnChange(AudioObjectID, UInt32, const AudioObjectPropertyAddress*, void* watch)
    {
        static_cast<Watch*>(watch)->Compare();
        return 0;
    }

    bool IsWanted(const Sight& sight) const
    {
        const bool isThere = !sight.mUID.empty();  // not gone since the list was read
        return isThere && (mAll || sight.mUID.starts_with(CVNDevice::kPlugInIdentifier));
    }

    /// Tells what is otherwise than it was. Whoever changed it, all is looked at again: there are few devices.
    void Compare()
    {
        const CAMutex::Scope scope(mMutex);
        if (mEnding) return;
        std::map<AudioDeviceID, Sight> now;
        for (const AudioDeviceID device : CopyDeviceNumbers()) {
            Sight sight = Look(device);
            if (IsWanted(sight)) now.emplace(device, std::move(sight));
        }
        for (const auto& [device, sight] : mSeen) {
            if (now.contains(device)) continue;
            AudioObjectRemovePropertyListener(device, &kAnything, &OnChange, this);
            Tell("gone", sight);
        }
        for (const auto& [device, sight] : now) {
            const auto before = mSeen.find(device);
            if (before == mSeen.end()) {
                AudioObjectAddPropertyListener(device, &kAnything, &OnChange, this);
                Tell("appeared", sight);
            } else if (before->second != sight) {
                Tell("changed", sight);
            }
        }
        mSeen.swap(now);
    }

    void Tell(const char* event, const Sight& sight) const
    {
        nlohmann::json streams = nlohmann::json::array();
        std::string text;
        for (const Sight::Stream& stream : sight.mStreams) {
            const char* direction = stream.mIsInput ? "input" : "output";
            streams.push_back({{"direction", direction}, {"channels", stream.mChannels}, {"rate", stream.mRateHz}});
            text += fmt::format("  {} {} ch {:.0f} Hz", direction, stream.mChannels, stream.mRateHz);
        }
        if (mJSON)
            PrintLine({{"event", event}, {"uid", sight.mUID}, {"name", sight.mName}, {"streams", streams}});
        else
            fmt::print("{:<8}  {}  ({}){}\n", event, Printable(sight.mName), Printable(sight.mUID), text);
        std::fflush(stdout);
    }

    const bool mJSON, mAll;
    CAMutex mMutex{"Watch"};  // the first look is the main thread's, all others the system's
    std::map<AudioDeviceID, Sight> mSeen;
    bool mEnding = false;
};

}  // namespace

int RunWatch(bool json, bool all)
{
    if (!all) {
        if (const auto why = WhyNoVirtualDevices())
            return Complain(*why + "; run this as the user whose devices they are", kExitNotPermitted);
        cf::Ref<cf::Dictionary> root;
        if (const int code = ReadPreferenceRoot(root)) return code;
        if (!CorvaneIsEnabled())
            Complain(
                "virtual devices are off. A program that starts while they are off, as this one, never sees any. Turn "
                "them on with corvane enable --all, then start watch again",
                kExitDone);
    }
    CatchStopSignals();
    const Watch watch(json, all);
    while (StopSignal() == 0) platform::kernel::usleep(kLookMicroseconds);
    return kExitDone;
}

}  // namespace cli
