// CAStreamBasicDescription: how formats compare, sort and are named to a person.
// Why: clients ask for formats with fields left open. In comparisons a field that is 0 on either side is such an
// open field and takes no part.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

class CAStreamBasicDescription : public AudioStreamBasicDescription {
public:
    CAStreamBasicDescription(Float64 sampleRate, UInt32 formatID, UInt32 bytesPerPacket, UInt32 framesPerPacket,
                             UInt32 bytesPerFrame, UInt32 channelsPerFrame, UInt32 bitsPerChannel,
                             UInt32 formatFlags) noexcept;
    explicit CAStreamBasicDescription(const AudioStreamBasicDescription& description) noexcept
        : AudioStreamBasicDescription(description)
    {
    }

    /// Leaves every field open.
    static void ResetFormat(AudioStreamBasicDescription& format) noexcept;

    /// Makes a mixable linear PCM format packed 32-bit float of the same channels; leaves any other alone.
    static void NormalizeLinearPCMFormat(AudioStreamBasicDescription& format) noexcept;

    /// Fills the open fields of `target` from `source`.
    static void FillOutFormat(AudioStreamBasicDescription& target, const AudioStreamBasicDescription& source) noexcept;

    /// Whether both are the same format: as operator== has it, or byte for byte without `wildcards`.
    bool IsEqual(const AudioStreamBasicDescription& other, bool wildcards) const noexcept;

    /// Writes a name for a menu, such as "Mixable 2 Ch Float32" (abbreviated), cut to `size` bytes with its NUL.
    static void GetSimpleName(const AudioStreamBasicDescription& format, char* name, UInt32 size, bool abbreviate);

    /// Writes one line of all that is in the format, cut to `size` bytes with its NUL.
    void AsString(char* buffer, unsigned long size) const;
};

/// Whether both may be the same format, open fields aside. Not transitive, for that reason.
bool operator==(const AudioStreamBasicDescription& a, const AudioStreamBasicDescription& b) noexcept;

/// The order of format lists: linear PCM first, mixable and integer first among those, then fewer bits, lower
/// rates and fewer channels first.
bool operator<(const AudioStreamBasicDescription& a, const AudioStreamBasicDescription& b) noexcept;

/// Whether the numbers can be those of a real format; for what comes from outside.
bool SanityCheck(const AudioStreamBasicDescription& format) noexcept;
