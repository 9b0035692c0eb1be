// SHP_PlugIn: the one object of a process that makes, changes and ends virtual devices, as the shared preferences say.
// Why: every process that opens audio has one, and all of them agree by reading the same file.
// Start at InitializeWithObjectID and SharedPrefsChanged. All of it runs on the audio system's run loop, which also
// delivers the notifications of both centers and fires the one timer. So the plug-in has no lock of its own.
#pragma once

#include "framework/HP_HardwarePlugIn.h"
#include "platform/foundation/CFNotificationCenter.h"
#include "platform/foundation/CFRunLoop.h"

#include <atomic>
#include <memory>
#include <vector>

class CVNDevice;
class SHP_Device;

/// How often a plug-in was started in this process; for whoever looks at it from outside.
extern "C" __attribute__((visibility("default"))) std::atomic<uint32_t> gSHP_PlugInCount;

class SHP_PlugIn final : public HP_HardwarePlugIn {
public:
    explicit SHP_PlugIn(CFUUIDRef factory);
    ~SHP_PlugIn() override;

    /// What the factory found out; before the plug-in is started.
    void SetMode(bool isCoreAudioD, bool isRoot);

    /// Makes the devices: twelve without capture in the daemon, those of the preferences elsewhere, where they are on
    /// at all.
    void InitializeWithObjectID(AudioObjectID objectID) override;
    /// Ends the devices; in a process that is about to go they only leave things as others would find them.
    void Teardown() override;

    bool HasProperty(const AudioObjectPropertyAddress& address) override;
    bool IsPropertySettable(const AudioObjectPropertyAddress& address) override;
    UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& address, UInt32 qualifierSize,
                               const void* qualifier) override;
    void GetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                         UInt32& size, void* data) override;

    /// The preferences changed: mutes follow at once, devices that differ die, and a moment later what is wanted and
    /// not there is made. Changes within that moment are taken together.
    void SharedPrefsChanged();

    /// The device of that number in the preferences; null for none.
    SHP_Device* DeviceWithID(int32_t uid) const;

private:
    struct Wanted;

    static void SharedPrefsChanged(CFNotificationCenterRef center, void* observer, CFNotificationName name,
                                   const void* object, CFDictionaryRef userInfo);
    static void DelayedInitializeDevices(CFRunLoopTimerRef timer, void* info);

    bool IsDaemon() const { return mIsCoreAudioD || mIsRoot; }
    void InstallSignalHandler();
    void RemoveSignalHandler();

    void CoreAudioDInitDevices();
    /// @return the status of the publication; the plug-in goes on whatever it is
    OSStatus InitializeCorvaneDevices();
    void UpdateDevices();
    void KillDevices();
    /// @return the new device's number, or 0 where it has no channels or more than a device can have
    AudioObjectID CreateDeviceWithSettings(const CVNDevice* settings);
    bool IsToDie(const SHP_Device& device, const Wanted& wanted) const;

    void StartDelayedInitTimer();
    void CancelDelayedInitTimer();
    void DelayedInitializeDevices(CFRunLoopTimerRef timer);

    std::vector<std::unique_ptr<SHP_Device>> mDevices;  // in the order in which they were made
    bool mIsCorvaneApplication = false;                 // the companion hears of its own changes at once
    cf::Ref<cf::String> mBundleID;
    cf::Ref<cf::RunLoopTimer> mDelayedInitTimer;  // null: none is pending
    bool mIsCoreAudioD = false;
    bool mIsRoot = false;
};
