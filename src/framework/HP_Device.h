// HP_Device: what is the same for all audio devices: streams in their order, frame sizes of I/O buffers, and the table
// of generic properties. What concerns hardware is left to the virtual operations, which a concrete device overrides.
// Why: a client asks every device alike.
// Start at Initialize, AddStream and the table in HP_DeviceProperties.cpp.
#pragma once

#include "framework/HP_Object.h"
#include "platform/audio/AudioHardwarePlugIn.h"

#include <atomic>
#include <memory>
#include <vector>

class HP_DeviceFormatList;
class HP_Stream;

class HP_Device : public HP_Object {
public:
    using StreamList = std::vector<HP_Stream*>;

    HP_Device(AudioObjectID objectID, AudioClassID classID, HP_HardwarePlugIn* plugIn);
    ~HP_Device() override;

    void Initialize() override;
    /// Streams are removed before. The state mutex, which this takes where the caller does not hold it, goes when
    /// nobody waits for it any more.
    void Teardown() override;
    std::shared_ptr<CAMutex> GetObjectStateMutex() const override { return mStateMutex; }

    bool HasProperty(const AudioObjectPropertyAddress& address) override;
    bool IsPropertySettable(const AudioObjectPropertyAddress& address) override;
    UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& address, UInt32 qualifierSize,
                               const void* qualifier) override;
    void GetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                         UInt32& size, void* data) override;
    void SetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                         UInt32 size, const void* data, const AudioTimeStamp* when) override;

    virtual bool IsAlive() const { return true; }
    virtual bool IsHidden() const { return false; }

    // Retained, the caller releases them; null: the device has none. Elements are channels counted from 1, 0 the
    // device.
    virtual CFStringRef CopyDeviceName() const { return nullptr; }
    virtual CFStringRef CopyDeviceManufacturerName() const { return nullptr; }
    virtual CFURLRef CopyDeviceIcon() const { return nullptr; }
    virtual CFStringRef CopyElementFullName(const AudioObjectPropertyAddress&) const { return nullptr; }
    virtual CFStringRef CopyElementCategoryName(const AudioObjectPropertyAddress&) const { return nullptr; }
    virtual CFStringRef CopyElementNumberName(const AudioObjectPropertyAddress&) const { return nullptr; }
    /// The identifier of the application that people configure the device with.
    virtual CFStringRef CopyConfigurationApplicationBundleID() const;
    virtual CFStringRef CopyDeviceUID() const { return nullptr; }
    virtual CFStringRef CopyModelUID() const { return nullptr; }

    virtual UInt32 GetTransportType() const { return 0; }
    /// @param isSystem  for the system's own sounds
    virtual bool CanBeDefaultDevice(bool /*isInput*/, bool /*isSystem*/) const { return false; }

    virtual void CreateDeviceStateMutex();
    virtual void DestroyDeviceStateMutex();

    // What a client asks of I/O procedures. The base has none, and throws CAException "unop".
    virtual AudioDeviceIOProcID Do_CreateIOProcID(AudioDeviceIOProc procedure, void* clientData);
    virtual void Do_DestroyIOProcID(AudioDeviceIOProcID id);
    virtual void Do_AddIOProc(AudioDeviceIOProc procedure, void* clientData);
    virtual void Do_RemoveIOProc(AudioDeviceIOProc procedure);
    /// @param id  null: the engine alone
    virtual void Do_StartIOProc(AudioDeviceIOProcID id);
    virtual void Do_StartIOProcAtTime(AudioDeviceIOProcID id, AudioTimeStamp& time, UInt32 flags);
    virtual void Do_StopIOProc(AudioDeviceIOProcID id);

    /// In frames, of one side.
    virtual UInt32 GetLatency(bool /*isInput*/) const { return 0; }
    virtual UInt32 GetSafetyOffset(bool /*isInput*/) const { return 0; }

    // Frames of an I/O buffer: 0.3 ms to a quarter of a second, but fixed where a stream is not linear PCM.
    virtual bool IsValidIOBufferFrameSize(UInt32 frames) const;
    virtual UInt32 GetMinimumIOBufferFrameSize() const;
    virtual UInt32 GetMaximumIOBufferFrameSize() const;
    /// Sets the size for a client, and tells listeners of a new one. @throws CAException "nope" for one not valid
    virtual void Do_SetIOBufferFrameSize(UInt32 frames);

    /// The base has no engine.
    virtual bool IsIOEngineRunningSomewhere() const { return false; }
    /// The base cannot: CAException "unop".
    virtual void Read(const AudioTimeStamp& start, AudioBufferList& data);

    // The device's time. The base has none and leaves the stamps as they are.
    virtual void SafeGetCurrentTime(AudioTimeStamp&) {}
    virtual void TranslateTime(const AudioTimeStamp& /*in*/, AudioTimeStamp& /*out*/) {}
    virtual void GetNearestStartTime(AudioTimeStamp& /*requested*/, UInt32 /*flags*/) {}

    /// In hertz: the first input stream's, else the first output stream's, else 0.
    virtual Float64 GetCurrentNominalSampleRate() const;
    /// As measured; the nominal one here, and 0 while the engine does not run.
    virtual Float64 GetCurrentActualSampleRate() const;

    /// Puts a stream in its place by its first channel. Not owned: it is removed before it goes.
    void AddStream(HP_Stream* stream);
    void RemoveStream(HP_Stream* stream);
    const StreamList& GetStreams(bool isInput) const { return isInput ? mInputStreams : mOutputStreams; }
    /// The streams that an address of this scope speaks of: one side's, or of the global scope the output streams, or
    /// with none the input streams. None for any other scope.
    const StreamList& GetStreamsByScope(AudioObjectPropertyScope scope) const;
    /// The stream that the address's element lies in, 0 being in the first. Null where there is none; with
    /// `tryOtherSection` the first output stream serves then, or with none the first input stream.
    HP_Stream* GetStreamByPropertyAddress(const AudioObjectPropertyAddress& address, bool tryOtherSection) const;

    bool HasAnyNonLinearPCMStreams(bool isInput) const;
    bool HasAnyNonMixableStreams(bool isInput) const;
    bool CanSetIsMixable(bool isInput) const;

    UInt32 GetIOBufferFrameSize() const { return mIOBufferFrameSize.load(std::memory_order_relaxed); }
    /// Stores a size as it is, and tells listeners of a new one where asked.
    void SetIOBufferFrameSize(UInt32 frames, bool sendNotifications);
    /// The size that the streams can have nearest to the present one.
    UInt32 DetermineIOBufferFrameSize() const;

private:
    std::shared_ptr<CAMutex> mStateMutex;
    std::unique_ptr<HP_DeviceFormatList> mFormatList;
    std::atomic<UInt32> mIOBufferFrameSize{512};  // stored under the state mutex, loaded by any thread, relaxed
    StreamList mInputStreams, mOutputStreams;     // by first channel
};
