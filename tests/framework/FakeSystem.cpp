#include "framework/FakeSystem.h"

#include <algorithm>
#include <cstring>

namespace {

FakeSystem* sSystem = nullptr;

}  // namespace

FakeSystem::FakeSystem()
{
    sSystem = this;
}

FakeSystem::~FakeSystem()
{
    sSystem = nullptr;
}

std::string Letters(UInt32 code)
{
    return {char(code >> 24), char(code >> 16), char(code >> 8), char(code)};
}

OSStatus AudioObjectPropertiesChanged(AudioHardwarePlugInRef, AudioObjectID object, UInt32 count,
                                      const AudioObjectPropertyAddress* addresses)
{
    for (const auto* address = addresses; address != addresses + count; ++address) {
        sSystem->mChanged += Letters(address->mSelector) + " " + Letters(address->mScope) + " " +
                             std::to_string(address->mElement) + " of " + std::to_string(object) + ";";
    }
    if (sSystem->mOnChanged) sSystem->mOnChanged();
    return 0;
}

OSStatus AudioObjectGetPropertyData(AudioObjectID, const AudioObjectPropertyAddress* address, UInt32, const void*,
                                    UInt32*, void* data)
{
    const auto found = sSystem->mValues.find(address->mSelector);
    if (found == sSystem->mValues.end()) return kAudioHardwareUnknownPropertyError;
    std::memcpy(data, &found->second, sizeof found->second);
    return 0;
}

OSStatus AudioObjectAddPropertyListener(AudioObjectID, const AudioObjectPropertyAddress* address,
                                        AudioObjectPropertyListenerProc listener, void*)
{
    sSystem->mListenedTo.push_back(address->mSelector);
    sSystem->mListener = listener;
    return 0;
}

OSStatus AudioObjectRemovePropertyListener(AudioObjectID, const AudioObjectPropertyAddress* address,
                                           AudioObjectPropertyListenerProc, void*)
{
    std::erase(sSystem->mListenedTo, address->mSelector);
    return 0;
}
