// What a device's sources and the devices that it captures stand for now.
#include "capture/buffers/AI.h"
#include "platform/kernel/System.h"
#include "platform/process/ProcessManager.h"
#include "plugin/settings/CVNDevice.h"
#include "plugin/settings/MainBundle.h"
#include "plugin/settings/RunningApplications.h"
#include "plugin/settings/SharedPreferences.h"

namespace {

using cf::As;
using cf::Ref;

/// The running application that a source names, by its identifier, else by its path; null for none.
CFDictionaryRef FindRunning(CFArrayRef running, CFTypeRef identifier, CFTypeRef path)
{
    const CFDictionaryRef found = DictionaryThatContainsCFTypeForKey(running, identifier, kCFBundleIdentifierKey);
    return found ? found : DictionaryThatContainsCFTypeForKey(running, path, kCFBundlePathKey);
}

OSStatus AppendDefaultDevice(AudioObjectPropertySelector selector, CFMutableArrayRef uids)
{
    AudioDeviceID device = 0;
    UInt32 size = sizeof device;
    if (const OSStatus error = AudioHardwareGetProperty(selector, &size, &device)) return error;
    CFStringRef uid = nullptr;
    size = sizeof uid;
    const OSStatus error = AudioDeviceGetProperty(device, 0, false, kAudioDevicePropertyDeviceUID, &size, &uid);
    if (error != 0) return error;
    CFArrayAppendValue(uids, Ref<cf::String>::Adopt(uid).Get());
    return kAudioHardwareNoError;
}

}  // namespace

CFArrayRef CVNDevice::CopyPIDsFromIDs(CFArrayRef sources, bool includeSelf)
{
    auto own = settings::CopyMainBundleIdentifier();
    if (!own) own = settings::CopyMainBundlePath();
    const auto running = Ref<cf::Array>::Adopt(CopyLaunchedApplications(true, false));
    const CFMutableArrayRef numbers = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    for (const auto& item : sources->Get()) {
        const auto* source = As<cf::Dictionary>(item.Get());
        if (!source) continue;
        const CFTypeRef identifier = source->Find(settings::kApplicationIdentifier);
        const CFTypeRef path = source->Find(settings::kApplicationPath);
        if (!includeSelf && (settings::AreEqual(identifier, own.Get()) || settings::AreEqual(path, own.Get())))
            continue;
        const CFDictionaryRef found = FindRunning(running.Get(), identifier, path);
        if (const CFTypeRef number = found ? found->Find("pid") : nullptr) CFArrayAppendValue(numbers, number);
    }
    if (CFArrayGetCount(numbers) == 0 && !includeSelf) {
        const int32_t everyoneElse = -int32_t(platform::kernel::getpid());
        const auto number =
            Ref<cf::Number>::Adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &everyoneElse));
        CFArrayAppendValue(numbers, number.Get());
    }
    return numbers;
}

CFArrayRef CVNDevice::CopyTransformedAudioDevice(CFStringRef identifier)
{
    const CFMutableArrayRef uids = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    auto owner = Ref<cf::Array>::Adopt(uids);
    OSStatus error = kAudioHardwareNoError;
    if (identifier->Text() == kDefaultOutput)
        error = AppendDefaultDevice(kAudioHardwarePropertyDefaultOutputDevice, uids);
    else if (identifier->Text() == kDefaultInput)
        error = AppendDefaultDevice(kAudioHardwarePropertyDefaultInputDevice, uids);
    else if (identifier->Text() == kAllDevices) {
        CFArrayRef all = nullptr;
        error = AI_GetListOfOutputDevices(nullptr, &all, nullptr);
        if (error == 0) owner = Ref<cf::Array>::Adopt(all);
    } else
        CFArrayAppendValue(uids, identifier);
    return error == 0 ? owner.Detach() : nullptr;
}

CFArrayRef CVNDevice::CopyTransformedAudioDevices(CFArrayRef identifiers)
{
    const CFMutableArrayRef uids = CFArrayCreateMutable(kCFAllocatorDefault, 0);
    for (CFIndex i = 0; identifiers && i < CFArrayGetCount(identifiers); ++i) {
        const auto* identifier = As<cf::String>(CFArrayGetValueAtIndex(identifiers, i));
        const auto some = Ref<cf::Array>::Adopt(identifier ? CopyTransformedAudioDevice(identifier) : nullptr);
        for (CFIndex j = 0; some && j < CFArrayGetCount(some.Get()); ++j) {
            const CFTypeRef uid = CFArrayGetValueAtIndex(some.Get(), j);
            if (!CFArrayContainsValue(uids, uid)) CFArrayAppendValue(uids, uid);
        }
    }
    return uids;
}
