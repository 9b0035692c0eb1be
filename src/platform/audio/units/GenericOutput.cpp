#include "platform/audio/units/GenericOutput.h"

namespace platform::audio::units {

std::span<const PropertyRow> GenericOutput::Properties() const noexcept
{
    static constexpr PropertyRow kRows[] = {FormatRow(kAudioUnitScope_Input), FormatRow(kAudioUnitScope_Output),
                                            kSliceRow};
    return kRows;
}

OSStatus GenericOutput::Prepare()
{
    return IsSameSound(mInputs[0].mFormat, mOutputs[0]) ? 0 : kAudioUnitErr_FormatNotSupported;
}

OSStatus GenericOutput::Produce(const Pull& pull, UInt32, UInt32 frames, AudioBufferList* data) CORVANE_REALTIME
{
    return PullInput(0, pull, frames, data);
}

}  // namespace platform::audio::units
