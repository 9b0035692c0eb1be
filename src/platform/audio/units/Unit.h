// Unit: what all audio units share: elements with formats, where each input comes from, the slice, and properties.
// Why: the rules of AudioUnit.h (nothing changes on a refusal, nothing is allocated in a render) are kept in one place;
// a unit of some kind says which properties it has and what it does with the samples.
// Start at the protected operations, which a kind of unit fills in. Threads are those of AudioUnit.h.
#pragma once

#include "platform/audio/AudioUnit.h"
#include "platform/audio/units/StreamFormat.h"
#include "platform/kernel/Realtime.h"

#include <atomic>
#include <cstring>
#include <span>
#include <vector>

struct OpaqueAudioUnit {};

namespace platform::audio::units {

class Unit;

/// What goes through a chain with each pull.
struct Pull {
    AudioUnitRenderActionFlags* mFlags;
    const AudioTimeStamp* mTime;
};

/// Where the sound of an input element comes from: a unit, a callback, or nowhere.
struct Source {
    Unit* mUnit = nullptr;
    UInt32 mBus = 0;  // of the unit
    AURenderCallbackStruct mCallback{};
};

struct InputElement {
    AudioStreamBasicDescription mFormat = kDefaultFormat;
    Source mSource;
};

struct PropertyAddress {
    UInt32 mProperty;
    UInt32 mScope;
    UInt32 mElement;
};

/// One property in one scope, as a unit serves it. A property without a row does not exist.
struct PropertyRow {
    enum Access : unsigned {
        kRead = 1,
        kWrite = 2,
        kFixed = 4,  // stays as it is while the unit is initialized
    };
    UInt32 mProperty;
    UInt32 mScope;
    UInt32 mBytes;  // 0: see Unit::PropertyBytes
    unsigned mAccess;
};

// Rows that several kinds share.
constexpr PropertyRow kSliceRow{kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, sizeof(UInt32),
                                PropertyRow::kRead | PropertyRow::kWrite | PropertyRow::kFixed};
constexpr PropertyRow kLatencyRow{kAudioUnitProperty_Latency, kAudioUnitScope_Global, sizeof(Float64),
                                  PropertyRow::kRead};
constexpr PropertyRow FormatRow(UInt32 scope)
{
    return {kAudioUnitProperty_StreamFormat, scope, sizeof(AudioStreamBasicDescription),
            PropertyRow::kRead | PropertyRow::kWrite | PropertyRow::kFixed};
}
constexpr PropertyRow kCallbackRow{kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input,
                                   sizeof(AURenderCallbackStruct), PropertyRow::kWrite | PropertyRow::kFixed};

template <typename T>
T Taken(const void* data)
{
    T value;
    std::memcpy(&value, data, sizeof value);
    return value;
}

template <typename T>
void Give(const T& value, void* data)
{
    std::memcpy(data, &value, sizeof value);
}

class Unit : public OpaqueAudioUnit {
public:
    virtual ~Unit() = default;
    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;

    OSStatus Initialize();
    void Uninitialize();
    void Reset() CORVANE_REALTIME;

    OSStatus GetPropertyInfo(const PropertyAddress& address, UInt32* bytes, Boolean* writable) const;
    OSStatus GetProperty(const PropertyAddress& address, void* data, UInt32* bytes) const;
    OSStatus SetProperty(const PropertyAddress& address, const void* data, UInt32 bytes);

    virtual OSStatus SetParameter(UInt32 parameter, UInt32 scope, UInt32 element, Float32 value) CORVANE_REALTIME;
    virtual OSStatus GetParameter(UInt32 parameter, UInt32 scope, UInt32 element, Float32& value) CORVANE_REALTIME;

    /// As AudioUnitRender, but up to MostFrames.
    OSStatus Render(const Pull& pull, UInt32 bus, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME;
    UInt32 SliceFrames() const noexcept { return mSliceFrames; }

    virtual OSStatus Start() { return kAudio_ParamError; }
    virtual OSStatus Stop() { return kAudio_ParamError; }

    /// Feeds an input element from an output element of `source`, which outlives this or its next connection.
    ///
    /// @return 0, kAudioUnitErr_InvalidElement, or kAudioUnitErr_Initialized
    OSStatus Connect(UInt32 element, Unit& source, UInt32 sourceElement);

protected:
    Unit(size_t inputs, size_t outputs) : mInputs(inputs), mOutputs(outputs, kDefaultFormat) {}

    // ---- What a kind of unit is

    virtual std::span<const PropertyRow> Properties() const noexcept = 0;
    /// The size of a property whose row leaves it open; 0 takes any.
    virtual UInt32 PropertyBytes(const PropertyAddress&) const { return 0; }
    /// Reads and writes a property whose row and size have been checked. These serve the shared ones.
    virtual void Read(const PropertyAddress& address, void* data) const;
    virtual OSStatus Write(const PropertyAddress& address, const void* data, UInt32 bytes);

    /// Whether an element may have this format, which IsFloat. One buffer a channel, unless a kind says otherwise.
    virtual bool Takes(const PropertyAddress& address, const AudioStreamBasicDescription& format) const;
    /// Whether the formats go together, and all that rendering will need. May throw std::bad_alloc.
    virtual OSStatus Prepare() = 0;
    /// Forgets sound that is on its way; only called between Prepare and Uninitialize.
    virtual void Forget() CORVANE_REALTIME {}
    virtual Float64 LatencySeconds() const { return 0; }
    /// Makes 1 .. MostFrames() frames of output element `bus`, for which `data` has room, or changes nothing.
    virtual OSStatus Produce(const Pull& pull, UInt32 bus, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME = 0;

    // ---- What it is given

    /// Asks the source of an input element. `data` has its byte sizes set for `frames`, at least 1.
    OSStatus PullInput(UInt32 element, const Pull& pull, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME;

    /// The slice, and what a varispeed asks beyond it of the unit before.
    UInt32 MostFrames() const noexcept { return mSliceFrames + mSliceFrames / 16 + 2; }
    bool IsInitialized() const noexcept { return mInitialized.load(std::memory_order_acquire); }

    std::vector<InputElement> mInputs;
    std::vector<AudioStreamBasicDescription> mOutputs;  // formats, an element each

private:
    OSStatus FindRow(const PropertyAddress& address, const PropertyRow*& row) const;
    AudioStreamBasicDescription& FormatAt(const PropertyAddress& address);
    OSStatus SetFormat(const PropertyAddress& address, const AudioStreamBasicDescription& format);
    bool ConnectionsFit() const noexcept;

    UInt32 mSliceFrames = 8192;
    // Stored by control threads after all that it says is made (release), loaded by the I/O thread too (acquire).
    std::atomic<bool> mInitialized{false};
};

}  // namespace platform::audio::units
