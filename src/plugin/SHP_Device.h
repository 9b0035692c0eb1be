// SHP_Device: one virtual device in one process: its name and number, its streams, and the settings that it was made
// from. Why: recording programs see an ordinary device; the plug-in compares what it is with what the preferences want.
// Start at Initialize and CopySettings. The settings are set before Initialize and stay; the mute alone changes.
#pragma once

#include "framework/HP_Device.h"
#include "platform/foundation/CFDictionary.h"

#include <atomic>
#include <memory>
#include <vector>

class CVNDevice;
class SHP_PlugIn;
class SHP_Stream;

class SHP_Device final : public HP_Device {
public:
    /// @param isCoreAudioD  the daemon's: it has its place among devices, and delivers nothing
    SHP_Device(AudioObjectID objectID, SHP_PlugIn* plugIn, bool isCoreAudioD);
    ~SHP_Device() override;

    // Before Initialize:
    /// @param channels  of the input stream, as many as the sources have now where the settings leave that open
    void SetSettings(const CVNDevice& settings, UInt32 channels);
    void SetOutputDeviceUID(cf::Ref<cf::String> uid) { mOutputDeviceUID = std::move(uid); }
    void SetUID(int32_t uid) { mUID = uid; }

    void Initialize() override;
    void Teardown() override;
    /// Leaves things as others would find them, in a process that is about to go. Nothing is ended.
    void Finalize();

    /// Tells listeners.
    void SetAlive(bool alive);
    bool IsAlive() const override { return mAlive.load(std::memory_order_relaxed); }

    /// The entry of this device as it would stand in the preferences, which the caller releases: never muted, always
    /// enabled.
    CFDictionaryRef CopySettings() const;
    int32_t GetUID() const { return mUID; }
    /// Not retained; null for none.
    CFStringRef GetOutputDeviceUID() const { return mOutputDeviceUID.Get(); }

    void SetMuteSoftwareSources(bool muted) { mSoftwareSourcesMuted.store(muted, std::memory_order_relaxed); }
    bool GetMuteSoftwareSources() const { return mSoftwareSourcesMuted.load(std::memory_order_relaxed); }

    CFStringRef CopyDeviceName() const override;
    CFStringRef CopyDeviceManufacturerName() const override;
    CFStringRef CopyDeviceUID() const override;
    CFStringRef CopyModelUID() const override;
    UInt32 GetTransportType() const override { return FourCC("virt"); }
    bool CanBeDefaultDevice(bool isInput, bool) const override { return isInput; }
    UInt32 GetLatency(bool isInput) const override;
    UInt32 GetSafetyOffset(bool isInput) const override;

private:
    void CreateStreams();
    void ReleaseStreams();
    std::unique_ptr<SHP_Stream> MakeStream(bool isInput, UInt32 channels);
    AudioDeviceID FindOutputDevice() const;
    UInt32 ReadOutputDevice(AudioObjectPropertySelector selector) const;

    SHP_PlugIn* const mPlugIn;
    double mSampleRate = 0;            // hertz
    double mConfiguredSampleRate = 0;  // as the preferences have it; 0: automatic
    int32_t mUID = -1;
    cf::Ref<cf::String> mName;
    cf::Ref<cf::String> mOutputDeviceUID;
    AudioDeviceID mOutputDeviceID = 0;  // 0: none
    cf::Ref<cf::Array> mCaptureSources;
    cf::Ref<cf::Array> mCaptureDevices;
    UInt32 mChannelCount = 2;
    int32_t mOutputChannelCount = 2;
    std::atomic<bool> mAlive{true};                  // stored by the system's thread, read by any
    std::atomic<bool> mSoftwareSourcesMuted{false};  // the same
    std::vector<std::unique_ptr<SHP_Stream>> mStreams;
    const bool mIsCoreAudioD;
};
