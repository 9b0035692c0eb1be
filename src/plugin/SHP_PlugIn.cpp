#include "plugin/SHP_PlugIn.h"

#include "platform/foundation/CFDictionary.h"
#include "plugin/SHP_Device.h"
#include "plugin/settings/CVNDevice.h"
#include "plugin/settings/MainBundle.h"
#include "plugin/settings/RunningApplications.h"
#include "plugin/settings/SharedPreferences.h"
#include "utility/CAException.h"

#include <cstring>
#include <utility>

namespace {

using cf::Ref;

constexpr unsigned kDaemonDevices = 12;
constexpr double kDelayedInitSeconds = 0.001;

bool IsName(const AudioObjectPropertyAddress& address)
{
    return address.mSelector == kAudioDevicePropertyDeviceNameCFString;
}

bool IsText(CFStringRef string, const char* text)
{
    return string && CFStringCompare(string, CFSTR(text), kCFCompareCaseInsensitive) == kCFCompareEqualTo;
}

/// A word of the system, 0 where it cannot be read.
bool IsSystemFlagSet(AudioObjectPropertySelector selector)
{
    UInt32 value = 0, size = sizeof value;
    return AudioHardwareGetProperty(selector, &size, &value) == 0 && value != 0;
}

/// The entry of a device in the preferences, not retained; null for none.
CFDictionaryRef FindEntry(CFArrayRef settings, const SHP_Device& device)
{
    const int32_t uid = device.GetUID();
    const auto number = Ref<cf::Number>::Adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &uid));
    return DictionaryThatContainsCFTypeForKey(settings, number.Get(), CFSTR("uid"));
}

bool AreSame(CFTypeRef a, CFTypeRef b)
{
    return a == b || settings::AreEqual(a, b);
}

}  // namespace

/// What the preferences say of this process.
struct SHP_PlugIn::Wanted {
    Ref<cf::Array> mEntries;  // null: they have no list
    bool mEnabled;
    Ref<cf::String> mOutputUID;
};

std::atomic<uint32_t> gSHP_PlugInCount{0};

SHP_PlugIn::SHP_PlugIn(CFUUIDRef factory) : HP_HardwarePlugIn(factory), mBundleID(settings::CopyMainBundleIdentifier())
{
    if (!mBundleID) mBundleID = settings::CopyMainBundlePath();
    mIsCorvaneApplication = IsText(mBundleID.Get(), "com.ostrel.corvane");
    mIsCoreAudioD = IsText(mBundleID.Get(), "com.apple.coreaudiod");  // until the factory says what it found
}

SHP_PlugIn::~SHP_PlugIn()
{
    if (!IsDaemon()) RemoveSignalHandler();
    CancelDelayedInitTimer();  // after the handler, which may start one
}

void SHP_PlugIn::SetMode(bool isCoreAudioD, bool isRoot)
{
    mIsCoreAudioD = isCoreAudioD;
    mIsRoot = isRoot;
}

void SHP_PlugIn::InitializeWithObjectID(AudioObjectID objectID)
{
    gSHP_PlugInCount.fetch_add(1, std::memory_order_relaxed);
    HP_HardwarePlugIn::InitializeWithObjectID(objectID);
    if (mIsCoreAudioD) return CoreAudioDInitDevices();
    // Who starts while devices are off has none to the end: he does not even listen.
    if (!CorvaneIsEnabled()) return;
    InitializeCorvaneDevices();
    CancelDelayedInitTimer();
    InstallSignalHandler();
}

void SHP_PlugIn::Teardown()
{
    const bool isExiting = IsSystemFlagSet(kAudioHardwarePropertyIsInitingOrExiting);
    if (isExiting && !IsSystemFlagSet(kAudioHardwarePropertyProcessIsMaster)) {
        for (auto& device : mDevices) {
            device->Finalize();
            static_cast<void>(device.release());  // not destroyed: threads of the ending process may still use it
        }
        return mDevices.clear();
    }
    CancelDelayedInitTimer();
    for (const auto& device : mDevices) {
        device->SetAlive(false);
        SetObjectStateMutexForID(device->GetObjectID(), nullptr);
        device->Teardown();
    }
    mDevices.clear();
    HP_HardwarePlugIn::Teardown();
}

bool SHP_PlugIn::HasProperty(const AudioObjectPropertyAddress& address)
{
    return IsName(address) || HP_HardwarePlugIn::HasProperty(address);
}

bool SHP_PlugIn::IsPropertySettable(const AudioObjectPropertyAddress& address)
{
    return !IsName(address) && HP_HardwarePlugIn::IsPropertySettable(address);
}

UInt32 SHP_PlugIn::GetPropertyDataSize(const AudioObjectPropertyAddress& address, UInt32 qualifierSize,
                                       const void* qualifier)
{
    if (IsName(address)) return sizeof(CFStringRef);
    return HP_HardwarePlugIn::GetPropertyDataSize(address, qualifierSize, qualifier);
}

void SHP_PlugIn::GetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                                 UInt32& size, void* data)
{
    if (!IsName(address)) return HP_HardwarePlugIn::GetPropertyData(address, qualifierSize, qualifier, size, data);
    if (size != sizeof(CFStringRef)) throw CAException(kAudioHardwareBadPropertySizeError);
    const CFStringRef name = CFSTR("com.ostrel.corvane.plugin");
    CFRetain(name);
    std::memcpy(data, &name, sizeof name);
}

// ---- Notifications

void SHP_PlugIn::InstallSignalHandler()
{
    if (mIsCorvaneApplication)
        CFNotificationCenterAddObserver(CFNotificationCenterGetLocalCenter(), this, &SharedPrefsChanged,
                                        CFSTR(settings::kLocallyChangedNotification), nullptr,
                                        CFNotificationSuspensionBehaviorDeliverImmediately);
    else
        CFNotificationCenterAddObserver(CFNotificationCenterGetDistributedCenter(), this, &SharedPrefsChanged,
                                        CFSTR(settings::kChangedNotification), CFSTR(settings::kChangedNotification),
                                        CFNotificationSuspensionBehaviorDeliverImmediately);
}

void SHP_PlugIn::RemoveSignalHandler()
{
    if (mIsCorvaneApplication)
        CFNotificationCenterRemoveObserver(CFNotificationCenterGetLocalCenter(), this,
                                           CFSTR(settings::kLocallyChangedNotification), nullptr);
    else
        CFNotificationCenterRemoveObserver(CFNotificationCenterGetDistributedCenter(), this,
                                           CFSTR(settings::kChangedNotification),
                                           CFSTR(settings::kChangedNotification));
}

void SHP_PlugIn::SharedPrefsChanged(CFNotificationCenterRef, void* observer, CFNotificationName, const void*,
                                    CFDictionaryRef)
{
    try {
        static_cast<SHP_PlugIn*>(observer)->SharedPrefsChanged();
    } catch (...) {  // no object to be had: the next change tries again
    }
}

void SHP_PlugIn::SharedPrefsChanged()
{
    UpdateDevices();
    KillDevices();
    StartDelayedInitTimer();
}

void SHP_PlugIn::StartDelayedInitTimer()
{
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    if (mDelayedInitTimer || !loop) return;
    CFRunLoopTimerContext context{0, this, nullptr, nullptr, nullptr};
    const CFRunLoopTimerRef timer =
        CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + kDelayedInitSeconds, 0, 0, 0,
                             &DelayedInitializeDevices, &context);
    mDelayedInitTimer = Ref<cf::RunLoopTimer>::Adopt(timer);
    CFRunLoopAddTimer(loop, timer, kCFRunLoopCommonModes);
}

void SHP_PlugIn::CancelDelayedInitTimer()
{
    if (mDelayedInitTimer) CFRunLoopTimerInvalidate(const_cast<CFRunLoopTimerRef>(mDelayedInitTimer.Get()));
    mDelayedInitTimer = {};
}

void SHP_PlugIn::DelayedInitializeDevices(CFRunLoopTimerRef timer, void* info)
{
    try {
        static_cast<SHP_PlugIn*>(info)->DelayedInitializeDevices(timer);
    } catch (...) {  // no object to be had: the next change tries again
    }
}

void SHP_PlugIn::DelayedInitializeDevices(CFRunLoopTimerRef timer)
{
    if (timer != mDelayedInitTimer.Get()) return;
    const auto pending = std::exchange(mDelayedInitTimer, {});  // gone also where a device cannot be made
    InitializeCorvaneDevices();
}

// ---- Devices

SHP_Device* SHP_PlugIn::DeviceWithID(int32_t uid) const
{
    for (const auto& device : mDevices)
        if (device->GetUID() == uid) return device.get();
    return nullptr;
}

void SHP_PlugIn::CoreAudioDInitDevices()
{
    std::vector<AudioObjectID> made;
    for (unsigned i = 0; i < kDaemonDevices; ++i) {
        const AudioObjectID device = CreateDeviceWithSettings(nullptr);
        mDevices.back()->SetUID(int32_t(mDevices.size() - 1));
        made.push_back(device);
    }
    AudioObjectsPublishedAndDied(GetInterface(), kAudioObjectSystemObject, UInt32(made.size()), made.data(), 0,
                                 nullptr);
}

OSStatus SHP_PlugIn::InitializeCorvaneDevices()
{
    if (!CorvaneIsEnabled()) return 0;
    std::vector<AudioObjectID> made;
    const auto entries = Ref<cf::Array>::Adopt(CopyDeviceSettings());
    for (CFIndex i = 0; entries && i < CFArrayGetCount(entries.Get()); ++i) {
        const auto* entry = cf::As<cf::Dictionary>(CFArrayGetValueAtIndex(entries.Get(), i));
        if (!entry) continue;
        const CVNDevice settings(entry);
        if (DeviceWithID(settings.mUID)) continue;
        if (const AudioObjectID device = CreateDeviceWithSettings(&settings)) made.push_back(device);
    }
    return AudioObjectsPublishedAndDied(GetInterface(), kAudioObjectSystemObject, UInt32(made.size()), made.data(), 0,
                                        nullptr);
}

AudioObjectID SHP_PlugIn::CreateDeviceWithSettings(const CVNDevice* settings)
{
    UInt32 channels = 2;
    if (settings && (settings->GetChannelCount(&channels) != 0 || !CVNDevice::IsUsableChannelCount(channels)))
        channels = UInt32(settings->mCachedChannelCount);
    if (!CVNDevice::IsUsableChannelCount(channels)) return 0;

    AudioObjectID number = 0;
    CAException::ThrowIf(AudioObjectCreate(GetInterface(), kAudioObjectSystemObject, kAudioDeviceClassID, &number));
    auto device = std::make_unique<SHP_Device>(number, this, IsDaemon());
    if (settings) {
        device->SetSettings(*settings, channels);
        device->SetOutputDeviceUID(Ref<cf::String>::Adopt(CopyOutputUIDForHost()));
    }
    device->Initialize();
    if (settings) device->SetMuteSoftwareSources(settings->mSoftwareSourcesMuted != 0);
    SetObjectStateMutexForID(number, device->GetObjectStateMutex());
    mDevices.push_back(std::move(device));
    return number;
}

void SHP_PlugIn::UpdateDevices()
{
    const auto entries = Ref<cf::Array>::Adopt(CopyDeviceSettings());
    if (!entries || !CorvaneIsEnabled()) return;
    for (const auto& device : mDevices) {
        const CFDictionaryRef entry = FindEntry(entries.Get(), *device);
        if (!entry) continue;
        const bool muted = CVNDevice(entry).mSoftwareSourcesMuted != 0;
        if (muted != device->GetMuteSoftwareSources()) device->SetMuteSoftwareSources(muted);
    }
}

/// Any difference in any key replaces a device, the last known count and the mute included.
bool SHP_PlugIn::IsToDie(const SHP_Device& device, const Wanted& wanted) const
{
    if (!wanted.mEnabled || !AreSame(wanted.mOutputUID.Get(), device.GetOutputDeviceUID())) return true;
    const auto current = Ref<cf::Dictionary>::Adopt(device.CopySettings());
    return !settings::AreEqual(FindEntry(wanted.mEntries.Get(), device), current.Get());
}

void SHP_PlugIn::KillDevices()
{
    // Read once, not for each device: every reading opens the file, and a change meanwhile is told of again.
    const Wanted wanted{Ref<cf::Array>::Adopt(CopyDeviceSettings()), CorvaneIsEnabled(),
                        Ref<cf::String>::Adopt(CopyOutputUIDForHost())};
    std::vector<std::unique_ptr<SHP_Device>> dying;
    std::vector<AudioObjectID> dead;
    // Without a list none dies; with an empty one all do.
    for (size_t i = 0; wanted.mEntries && i < mDevices.size();) {
        if (!IsToDie(*mDevices[i], wanted)) {
            ++i;
            continue;
        }
        mDevices[i]->SetAlive(false);
        dead.push_back(mDevices[i]->GetObjectID());
        dying.push_back(std::move(mDevices[i]));
        mDevices.erase(mDevices.begin() + long(i));
    }
    for (auto& device : dying) {
        device->Teardown();
        device.reset();
    }
    AudioObjectsPublishedAndDied(GetInterface(), kAudioObjectSystemObject, 0, nullptr, UInt32(dead.size()),
                                 dead.data());
}
