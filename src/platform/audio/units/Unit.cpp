#include "platform/audio/units/Unit.h"

#include <algorithm>
#include <new>

namespace platform::audio::units {

OSStatus Unit::Initialize()
{
    if (IsInitialized()) return 0;
    if (!ConnectionsFit()) return kAudioUnitErr_FormatNotSupported;
    try {
        if (const OSStatus error = Prepare()) return error;
    } catch (const std::bad_alloc&) {
        return kAudio_MemFullError;
    }
    mInitialized.store(true, std::memory_order_release);
    return 0;
}

void Unit::Uninitialize()
{
    Stop();  // of a unit that is not started: nothing
    mInitialized.store(false, std::memory_order_release);
}

void Unit::Reset() CORVANE_REALTIME
{
    if (IsInitialized()) Forget();
}

/// Whether what connected units give is what this one takes.
bool Unit::ConnectionsFit() const noexcept
{
    return std::all_of(mInputs.begin(), mInputs.end(), [](const InputElement& input) {
        const Unit* const from = input.mSource.mUnit;
        return !from || IsSameSound(from->mOutputs[input.mSource.mBus], input.mFormat);
    });
}

OSStatus Unit::Connect(UInt32 element, Unit& source, UInt32 sourceElement)
{
    if (IsInitialized()) return kAudioUnitErr_Initialized;
    if (element >= mInputs.size() || sourceElement >= source.mOutputs.size()) return kAudioUnitErr_InvalidElement;
    mInputs[element].mSource = {.mUnit = &source, .mBus = sourceElement};
    return 0;
}

OSStatus Unit::FindRow(const PropertyAddress& address, const PropertyRow*& row) const
{
    const auto rows = Properties();
    const auto isIt = [&](const PropertyRow& each) { return each.mProperty == address.mProperty; };
    if (std::none_of(rows.begin(), rows.end(), isIt)) return kAudioUnitErr_InvalidProperty;
    const auto found = std::find_if(
        rows.begin(), rows.end(), [&](const PropertyRow& each) { return isIt(each) && each.mScope == address.mScope; });
    if (found == rows.end()) return kAudioUnitErr_InvalidScope;

    const bool ofScope =
        address.mScope == kAudioUnitScope_Global || address.mProperty == kAudioUnitProperty_ElementCount;
    const size_t elements = ofScope ? 1 : address.mScope == kAudioUnitScope_Input ? mInputs.size() : mOutputs.size();
    if (address.mElement >= elements) return kAudioUnitErr_InvalidElement;
    row = &*found;
    return 0;
}

OSStatus Unit::GetPropertyInfo(const PropertyAddress& address, UInt32* bytes, Boolean* writable) const
{
    const PropertyRow* row = nullptr;
    if (const OSStatus error = FindRow(address, row)) return error;
    if (bytes) *bytes = row->mBytes ? row->mBytes : PropertyBytes(address);
    if (writable) *writable = (row->mAccess & PropertyRow::kWrite) != 0;
    return 0;
}

OSStatus Unit::GetProperty(const PropertyAddress& address, void* data, UInt32* bytes) const
{
    const PropertyRow* row = nullptr;
    if (const OSStatus error = FindRow(address, row)) return error;
    if (!(row->mAccess & PropertyRow::kRead)) return kAudioUnitErr_InvalidProperty;
    const UInt32 needed = row->mBytes ? row->mBytes : PropertyBytes(address);
    if (!data || !bytes || *bytes < needed) return kAudio_ParamError;
    *bytes = needed;
    Read(address, data);
    return 0;
}

OSStatus Unit::SetProperty(const PropertyAddress& address, const void* data, UInt32 bytes)
{
    const PropertyRow* row = nullptr;
    if (const OSStatus error = FindRow(address, row)) return error;
    if (!(row->mAccess & PropertyRow::kWrite)) return kAudioUnitErr_PropertyNotWritable;
    if (IsInitialized() && row->mAccess & PropertyRow::kFixed) return kAudioUnitErr_Initialized;
    if (!data || (row->mBytes && bytes != row->mBytes)) return kAudio_ParamError;
    try {
        return Write(address, data, bytes);
    } catch (const std::bad_alloc&) {
        return kAudio_MemFullError;
    }
}

void Unit::Read(const PropertyAddress& address, void* data) const
{
    const bool input = address.mScope == kAudioUnitScope_Input;
    switch (address.mProperty) {
        case kAudioUnitProperty_StreamFormat:
            return Give(input ? mInputs[address.mElement].mFormat : mOutputs[address.mElement], data);
        case kAudioUnitProperty_ElementCount:
            return Give(UInt32(input ? mInputs.size() : mOutputs.size()), data);
        case kAudioUnitProperty_Latency:
            return Give(LatencySeconds(), data);
        case kAudioUnitProperty_MaximumFramesPerSlice:
            return Give(mSliceFrames, data);
    }
}

OSStatus Unit::Write(const PropertyAddress& address, const void* data, UInt32)
{
    constexpr UInt32 kMostSliceFrames = 1 << 15;
    switch (address.mProperty) {
        case kAudioUnitProperty_StreamFormat:
            return SetFormat(address, Taken<AudioStreamBasicDescription>(data));
        case kAudioUnitProperty_MaximumFramesPerSlice: {
            const auto frames = Taken<UInt32>(data);
            if (frames < 1 || frames > kMostSliceFrames) return kAudio_ParamError;
            mSliceFrames = frames;
            return 0;
        }
        case kAudioUnitProperty_SetRenderCallback:
            mInputs[address.mElement].mSource = {.mCallback = Taken<AURenderCallbackStruct>(data)};
            return 0;
        default:
            return kAudioUnitErr_InvalidProperty;
    }
}

bool Unit::Takes(const PropertyAddress&, const AudioStreamBasicDescription& format) const
{
    return !IsInterleaved(format);
}

OSStatus Unit::SetFormat(const PropertyAddress& address, const AudioStreamBasicDescription& format)
{
    if (!IsFloat(format) || !Takes(address, format)) return kAudioUnitErr_FormatNotSupported;
    const bool input = address.mScope == kAudioUnitScope_Input;
    (input ? mInputs[address.mElement].mFormat : mOutputs[address.mElement]) = format;
    return 0;
}

OSStatus Unit::SetParameter(UInt32, UInt32, UInt32, Float32) CORVANE_REALTIME
{
    return kAudioUnitErr_InvalidParameter;
}

OSStatus Unit::GetParameter(UInt32, UInt32, UInt32, Float32&) CORVANE_REALTIME
{
    return kAudioUnitErr_InvalidParameter;
}

OSStatus Unit::Render(const Pull& pull, UInt32 bus, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME
{
    if (!IsInitialized()) return kAudioUnitErr_Uninitialized;
    if (bus >= mOutputs.size()) return kAudioUnitErr_InvalidElement;
    if (frames > MostFrames()) return kAudioUnitErr_TooManyFramesToProcess;
    if (frames == 0) return 0;
    if (!data || !HasRoom(*data, mOutputs[bus], frames)) return kAudio_ParamError;
    return Produce(pull, bus, frames, data);
}

OSStatus Unit::PullInput(UInt32 element, const Pull& pull, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME
{
    const Source& source = mInputs[element].mSource;
    if (source.mUnit) return source.mUnit->Render(pull, source.mBus, frames, data);
    if (!source.mCallback.inputProc) return kAudioUnitErr_NoConnection;
    return source.mCallback.inputProc(source.mCallback.inputProcRefCon, pull.mFlags, pull.mTime, element, frames, data);
}

}  // namespace platform::audio::units
