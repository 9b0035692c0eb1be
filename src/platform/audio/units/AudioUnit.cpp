// The published calls on units, each on the unit behind its handle. A null handle is refused here.
#include "platform/audio/AudioUnit.h"

#include "platform/audio/units/Unit.h"

using platform::audio::units::Unit;
using platform::kernel::RealtimeScope;

namespace {

Unit* Behind(AudioUnit unit) noexcept
{
    return static_cast<Unit*>(unit);
}

}  // namespace

OSStatus AudioUnitInitialize(AudioUnit unit)
{
    return unit ? Behind(unit)->Initialize() : kAudio_ParamError;
}

OSStatus AudioUnitUninitialize(AudioUnit unit)
{
    if (!unit) return kAudio_ParamError;
    Behind(unit)->Uninitialize();
    return 0;
}

OSStatus AudioUnitReset(AudioUnit unit, UInt32 scope, UInt32 element)
{
    const RealtimeScope realtime;
    if (!unit) return kAudio_ParamError;
    if (scope != kAudioUnitScope_Global) return kAudioUnitErr_InvalidScope;
    if (element != 0) return kAudioUnitErr_InvalidElement;
    Behind(unit)->Reset();
    return 0;
}

OSStatus AudioUnitGetPropertyInfo(AudioUnit unit, UInt32 property, UInt32 scope, UInt32 element, UInt32* size,
                                  Boolean* writable)
{
    return unit ? Behind(unit)->GetPropertyInfo({property, scope, element}, size, writable) : kAudio_ParamError;
}

OSStatus AudioUnitGetProperty(AudioUnit unit, UInt32 property, UInt32 scope, UInt32 element, void* data, UInt32* size)
{
    return unit ? Behind(unit)->GetProperty({property, scope, element}, data, size) : kAudio_ParamError;
}

OSStatus AudioUnitSetProperty(AudioUnit unit, UInt32 property, UInt32 scope, UInt32 element, const void* data,
                              UInt32 size)
{
    return unit ? Behind(unit)->SetProperty({property, scope, element}, data, size) : kAudio_ParamError;
}

OSStatus AudioUnitSetParameter(AudioUnit unit, UInt32 parameter, UInt32 scope, UInt32 element, Float32 value, UInt32)
{
    const RealtimeScope realtime;
    return unit ? Behind(unit)->SetParameter(parameter, scope, element, value) : kAudio_ParamError;
}

OSStatus AudioUnitGetParameter(AudioUnit unit, UInt32 parameter, UInt32 scope, UInt32 element, Float32* value)
{
    const RealtimeScope realtime;
    return unit && value ? Behind(unit)->GetParameter(parameter, scope, element, *value) : kAudio_ParamError;
}

OSStatus AudioUnitRender(AudioUnit unit, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32 bus,
                         UInt32 frames, AudioBufferList* data)
{
    const RealtimeScope realtime;
    if (!unit) return kAudio_ParamError;
    if (frames > Behind(unit)->SliceFrames()) return kAudioUnitErr_TooManyFramesToProcess;
    return Behind(unit)->Render({flags, time}, bus, frames, data);
}

OSStatus AudioOutputUnitStart(AudioUnit unit)
{
    return unit ? Behind(unit)->Start() : kAudio_ParamError;
}

OSStatus AudioOutputUnitStop(AudioUnit unit)
{
    return unit ? Behind(unit)->Stop() : kAudio_ParamError;
}
