#include "framework/HP_SystemInfo.h"

namespace {

constexpr AudioObjectPropertyAddress kSession{kAudioHardwarePropertyUserSessionIsActiveOrHeadless,
                                              kAudioObjectPropertyScopeGlobal, kAudioObjectPropertyElementMaster};
constexpr AudioObjectPropertyAddress kAudible{kAudioHardwarePropertyProcessIsAudible, kAudioObjectPropertyScopeGlobal,
                                              kAudioObjectPropertyElementMaster};
constexpr AudioObjectPropertyAddress kMixToMono{kAudioHardwarePropertyMixStereoToMono, kAudioObjectPropertyScopeGlobal,
                                                kAudioObjectPropertyElementMaster};

/// Leaves `value` as it is where the system does not say.
OSStatus Read(const AudioObjectPropertyAddress& address, UInt32& value)
{
    UInt32 size = sizeof value;
    UInt32 said = 0;
    const OSStatus status = AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, &said);
    if (status == kAudioHardwareNoError) value = said;
    return status;
}

bool IsSaid(AudioObjectPropertySelector selector)
{
    UInt32 value = 0;
    Read({selector, kAudioObjectPropertyScopeGlobal, kAudioObjectPropertyElementMaster}, value);
    return value != 0;
}

void ReadAnew(const AudioObjectPropertyAddress& address)
{
    UInt32 value = 1;
    const OSStatus status = Read(address, value);
    switch (address.mSelector) {
        case kAudioHardwarePropertyMixStereoToMono:
            if (status == kAudioHardwareNoError) HP_SystemInfo::sIsMixingStereoToMono = value != 0;
            break;
        case kAudioHardwarePropertyUserSessionIsActiveOrHeadless:
            HP_SystemInfo::sCurrentUserSessionIsActiveOrHeadless = value != 0;
            break;
        case kAudioHardwarePropertyProcessIsAudible:
            HP_SystemInfo::sCurrentProcessIsAudible = value != 0;
            break;
    }
}

}  // namespace

void HP_SystemInfo::Initialize()
{
    if (sIsInitialized.exchange(true, std::memory_order_relaxed)) return;
    for (const AudioObjectPropertyAddress& address : {kSession, kAudible, kMixToMono}) {
        AudioObjectAddPropertyListener(kAudioObjectSystemObject, &address, SystemListener, nullptr);
        SystemListener(kAudioObjectSystemObject, 1, &address, nullptr);
    }
}

// The listener of mixing to mono stays: added again it is the same one still.
void HP_SystemInfo::Teardown()
{
    for (const AudioObjectPropertyAddress& address : {kSession, kAudible})
        AudioObjectRemovePropertyListener(kAudioObjectSystemObject, &address, SystemListener, nullptr);
    sIsInitialized.store(false, std::memory_order_relaxed);
}

bool HP_SystemInfo::IsCurrentProcessTheMaster()
{
    return IsSaid(kAudioHardwarePropertyProcessIsMaster);
}

bool HP_SystemInfo::IsCurrentProcessInitingOrExiting()
{
    return IsSaid(kAudioHardwarePropertyIsInitingOrExiting);
}

OSStatus HP_SystemInfo::SystemListener(AudioObjectID object, UInt32 count, const AudioObjectPropertyAddress* addresses,
                                       void*)
{
    if (object != kAudioObjectSystemObject) return kAudioHardwareNoError;
    for (UInt32 index = 0; index < count; ++index) ReadAnew(addresses[index]);
    return kAudioHardwareNoError;
}
