// CVNDevice: the settings of one device: what it captures, under which name and number, with how many channels.
// Why: the plug-in, its devices and the companion all speak of a device in these terms, and the file's entry of a
// device is made in one place, so that what the companion writes is what a device says of itself. Start at the
// constructors and CopyDictionaryRepresentation. For threads that may block; a record belongs to its owner.
#pragma once

#include "platform/audio/AudioHardware.h"
#include "platform/foundation/CFDictionary.h"

#include <memory>
#include <string>
#include <vector>

class CVNDevice {
public:
    /// The plug-in's bundle, and the beginning of its devices' UIDs.
    static constexpr const char* kPlugInIdentifier = "com.ostrel.audio.corvane.halplugin";

    // What stands for devices that are not named.
    static constexpr const char* kDefaultOutput = "com.ostrel.corvane.default_output";
    static constexpr const char* kDefaultInput = "com.ostrel.corvane.default_input";
    static constexpr const char* kAllDevices = "com.ostrel.corvane.all_devices";
    /// The identifier of a source that is the whole system's sound, and no application.
    static constexpr const char* kAllSystemAudio = "com.ostrel.corvane.all_system_audio";
    /// The key of a source that is an input device; where it is there, other keys do not count.
    static constexpr const char* kSourceDeviceUID = "AudioDeviceUID";

    /// A device as it is before anybody set anything: the default output's mix in stereo, "untitled".
    CVNDevice();
    /// The same, and what the dictionary says beyond; keys that are missing or of a wrong type say nothing.
    explicit CVNDevice(CFDictionaryRef dictionary);

    /// Whether a device can be made with so many channels, and can run at this rate. The file may hold any numbers.
    static bool IsUsableChannelCount(UInt32 channels) { return 1 <= channels && channels <= 64; }
    static bool IsUsableRate(double hertz) { return 1'000 <= hertz && hertz <= 768'000; }

    /// Whether a key of an entry is one of these settings, and the value of its type.
    static bool Understands(const std::string& key, CFTypeRef value);

    /// What recording programs show, and what they remember a device by.
    static std::string PublishedName(CFStringRef name, int32_t uid);
    static std::string PublishedUID(int32_t uid);

    /// 1 or 2; anything from 3 on is 0: as many as the sources have. Mixing down goes with 2 alone.
    void SetOutputChannelCount(int32_t count);

    /// The device's entry in the file, which the caller releases. The count that was last known is not the one read,
    /// but that of now.
    CFMutableDictionaryRef CopyDictionaryRepresentation() const;

    /// The channels of the device as things are now: of a device that follows its sources, 2 for the system, 2 for each
    /// application that runs, or 2 together where none does, and those of each input device.
    ///
    /// @param count  written on success alone
    /// @return       0, or the status of the default output, which is looked up where it is captured
    OSStatus GetChannelCount(UInt32* count) const;

    /// The UIDs of the output devices whose mix is captured, each once; the caller releases the array.
    CFArrayRef CopyTransformedCaptureDevices() const;

    /// The processes of those source applications that run, as numbers; the caller releases the array. Where it would
    /// be empty and this process is not to be included, it holds the negative of this process's number: everyone but
    /// this one.
    static CFArrayRef CopyPIDsFromIDs(CFArrayRef sources, bool includeSelf);

    /// The UIDs that a name of devices stands for, of a plain UID that one; the caller releases the array. Null on
    /// failure.
    static CFArrayRef CopyTransformedAudioDevice(CFStringRef identifier);
    /// Those of several, each once, in the order in which they first appear.
    static CFArrayRef CopyTransformedAudioDevices(CFArrayRef identifiers);

    /// One description of all input streams of a device, with the sum of their channels.
    static OSStatus GetDeviceDesc(AudioDeviceID device, AudioStreamBasicDescription* description);

    static std::vector<std::unique_ptr<CVNDevice>> CreateDevicesWithDictionaries(CFArrayRef dictionaries);
    /// The other way; the caller releases the array.
    static CFArrayRef CreateDictionariesWithDevices(const std::vector<std::unique_ptr<CVNDevice>>& devices);

    cf::Ref<cf::Array> mCaptureDevices;  // UIDs of output devices and names for them
    cf::Ref<cf::Array> mCaptureSources;  // dictionaries: applications and input devices
    cf::Ref<cf::String> mName;
    int8_t mEnabled = 1;
    double mSampleRate = 0;  // hertz; 0: automatic
    int32_t mUID = -1;       // the device's identity across processes
    int8_t mDownMix = 1;
    int32_t mOutputChannelCount = 2;  // 0: as many as the sources have
    int8_t mSoftwareSourcesMuted = 0;
    int32_t mCachedChannelCount = 2;  // as it was last known
};
