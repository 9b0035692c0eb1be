// OSLAudio_Source: anything that can be asked for frames; the pull side of the capture graph.
// Why: the mixer pulls whatever stands behind a bus, and is itself pulled, by the same four operations.
// Results here and in all of the room are 0 or a status; nothing throws.
#pragma once

#include "platform/audio/AudioUnit.h"
#include "platform/kernel/Realtime.h"

class OSLAudio_Source {
public:
    /// What Render gives.
    virtual OSStatus GetRenderDesc(AudioStreamBasicDescription* desc) = 0;

    /// The most frames of one Render. @thread control
    virtual OSStatus SetMaxRenderSlice(UInt32 frames) = 0;
    virtual OSStatus GetMaxRenderSlice(UInt32* frames) = 0;

    /// Fills `data` with the next `frames` frames.
    ///
    /// @param flags  in and out; handed through
    /// @param time   the caller's; what is given depends on what was given before, not on this
    /// @param data   with byte sizes set for `frames`
    /// @return       0; a positive status where the sound is not there yet; a negative one for an error
    /// @thread       the I/O thread
    /// @realtime     yes
    virtual OSStatus Render(UInt32* flags, const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                            AudioBufferList* data) CORVANE_REALTIME = 0;

protected:
    ~OSLAudio_Source() = default;
};
