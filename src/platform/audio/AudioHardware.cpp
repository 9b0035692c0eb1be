// The system's own properties.
#include "platform/audio/AudioHardware.h"

#include "platform/audio/AudioSystem.h"
#include "platform/audio/PropertyRoom.h"
#include "platform/foundation/CFDictionary.h"
#include "platform/machine/Identity.h"
#include "platform/machine/Machine.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <optional>
#include <ranges>

using namespace platform::audio;

namespace {

constexpr const char* kDaemonIdentifier = "/usr/sbin/coreaudiod";

std::atomic<UInt32> sProcessIsAudible{1};  // stored and read by any thread, as the next
std::atomic<UInt32> sMixStereoToMono{0};

std::vector<AudioDeviceID> CopyDeviceNumbers()
{
    AudioSystem::Get().EnsurePlugIns();
    std::vector<AudioDeviceID> numbers;
    for (const NativeDevice& device : CopyNativeDevices().mDevices) numbers.push_back(device.mID);
    std::ranges::copy(AudioSystem::Get().Objects().CopyDevices(), std::back_inserter(numbers));
    return numbers;
}

UInt32 ProcessIsMaster()
{
    const auto bundle = platform::machine::Machine::Current().GetIdentity().GetMainBundle();
    return bundle && bundle->mIdentifier == kDaemonIdentifier;
}

bool HasUID(AudioDeviceID device, const std::string& uid)
{
    CFStringRef string = nullptr;
    UInt32 size = sizeof string;
    if (AudioDeviceGetProperty(device, 0, false, kAudioDevicePropertyDeviceUID, &size, &string)) return false;
    return cf::ToStdString(cf::Ref<cf::String>::Adopt(string).Get()) == uid;
}

/// @return the device's number, or 0
AudioDeviceID FindUID(const std::string& uid)
{
    for (const NativeDevice& device : CopyNativeDevices().mDevices)
        if (device.mDevice.mUID == uid) return device.mID;
    AudioSystem::Get().EnsurePlugIns();
    for (const AudioDeviceID device : AudioSystem::Get().Objects().CopyDevices())
        if (HasUID(device, uid)) return device;
    return 0;
}

OSStatus TranslateUID(const AudioValueTranslation& translation)
{
    if (translation.mInputDataSize != sizeof(CFStringRef) || translation.mOutputDataSize != sizeof(AudioDeviceID))
        return kAudioHardwareBadPropertySizeError;
    if (!translation.mInputData || !translation.mOutputData) return kAudioHardwareIllegalOperationError;
    const std::string uid = cf::ToStdString(*static_cast<const CFStringRef*>(translation.mInputData));
    *static_cast<AudioDeviceID*>(translation.mOutputData) = FindUID(uid);
    return kAudioHardwareNoError;
}

/// A property that is one 32-bit word.
struct Word {
    AudioObjectPropertySelector mSelector;
    UInt32 (*mGet)();
    std::atomic<UInt32>* mValue = nullptr;  // where it can be set
};

constexpr Word kWords[] = {
    {kAudioHardwarePropertyDefaultInputDevice, [] { return CopyNativeDevices().mDefaultInput; }},
    {kAudioHardwarePropertyDefaultOutputDevice, [] { return CopyNativeDevices().mDefaultOutput; }},
    {kAudioHardwarePropertyDefaultSystemOutputDevice, [] { return CopyNativeDevices().mDefaultOutput; }},
    {kAudioHardwarePropertyIsInitingOrExiting, [] { return UInt32(AudioSystem::Get().IsExiting()); }},
    {kAudioHardwarePropertyProcessIsMaster, &ProcessIsMaster},
    {kAudioHardwarePropertyUserSessionIsActiveOrHeadless, [] { return UInt32(1); }},
    {kAudioHardwarePropertyProcessIsAudible, [] { return sProcessIsAudible.load(std::memory_order_relaxed); },
     &sProcessIsAudible},
    {kAudioHardwarePropertyMixStereoToMono, [] { return sMixStereoToMono.load(std::memory_order_relaxed); },
     &sMixStereoToMono},
};

const Word* FindWord(AudioObjectPropertySelector selector)
{
    const auto* word = std::ranges::find(kWords, selector, &Word::mSelector);
    return word == std::end(kWords) ? nullptr : word;
}

}  // namespace

OSStatus AudioHardwareGetPropertyInfo(AudioObjectPropertySelector selector, UInt32* size, Boolean* writable)
{
    const Word* word = FindWord(selector);
    std::optional<UInt32> bytes;
    if (word) bytes = UInt32(sizeof(UInt32));
    if (selector == kAudioHardwarePropertyDeviceForUID) bytes = UInt32(sizeof(AudioValueTranslation));
    if (selector == kAudioHardwarePropertyDevices) bytes = UInt32(CopyDeviceNumbers().size() * sizeof(AudioDeviceID));
    const OSStatus error = AnswerInfo(bytes, size, writable);
    if (error == kAudioHardwareNoError && writable) *writable = word && word->mValue;
    return error;
}

OSStatus AudioHardwareGetProperty(AudioObjectPropertySelector selector, UInt32* size, void* data)
{
    if (selector == kAudioHardwarePropertyDevices) {
        const std::vector<AudioDeviceID> numbers = CopyDeviceNumbers();
        const size_t bytes = numbers.size() * sizeof(AudioDeviceID);
        if (const OSStatus error = TakeRoom(UInt32(bytes), size, data)) return error;
        std::ranges::copy(numbers, static_cast<AudioDeviceID*>(data));
        return kAudioHardwareNoError;
    }
    if (selector == kAudioHardwarePropertyDeviceForUID) {
        if (const OSStatus error = TakeRoom(UInt32(sizeof(AudioValueTranslation)), size, data)) return error;
        return TranslateUID(*static_cast<const AudioValueTranslation*>(data));
    }
    const Word* word = FindWord(selector);
    const auto bytes = word ? std::optional(UInt32(sizeof(UInt32))) : std::nullopt;
    if (const OSStatus error = TakeRoom(bytes, size, data)) return error;
    const UInt32 value = word->mGet();
    std::memcpy(data, &value, sizeof value);
    return kAudioHardwareNoError;
}

OSStatus AudioHardwareSetProperty(AudioObjectPropertySelector selector, UInt32 size, const void* data)
{
    if (const OSStatus error = AudioHardwareGetPropertyInfo(selector, nullptr, nullptr)) return error;
    const Word* word = FindWord(selector);
    if (!word || !word->mValue || !data) return kAudioHardwareIllegalOperationError;
    if (size != sizeof(UInt32)) return kAudioHardwareBadPropertySizeError;
    UInt32 value = 0;
    std::memcpy(&value, data, sizeof value);
    if (word->mValue->exchange(value != 0, std::memory_order_relaxed) != UInt32(value != 0))
        AudioSystem::Get().TellLater(kAudioObjectSystemObject,
                                     {{selector, kAudioObjectPropertyScopeGlobal, kAudioObjectPropertyElementMaster}});
    return kAudioHardwareNoError;
}
