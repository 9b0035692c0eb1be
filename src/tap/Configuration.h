// Configuration: what a tap is asked for, read from the dictionary that its client sends.
// Why: every value comes from outside the service and is bounded here, once, so that nothing behind it has to
// doubt a rate or a count.
#pragma once

#include "platform/foundation/CFBase.h"
#include "platform/kernel/Memory.h"
#include "tap/Schedule.h"

#include <sys/types.h>
#include <optional>
#include <string>
#include <vector>

namespace tap {

/// One output device to take the sound of.
struct TappedDevice {
    std::string mUID;
    /// Indices of the device's channels that are its front left and right; absent where the client knows none.
    struct Pair {
        uint32_t mLeft, mRight;
        bool operator==(const Pair&) const = default;
    };
    std::optional<Pair> mPreferredPair;
    bool mActive = true;  // false: its sound is not wanted any more
};

struct Configuration {
    static constexpr uint32_t kLowestHz = 1'000, kHighestHz = 768'000;
    static constexpr long kMostDevices = 64, kMostProcesses = 4096;

    FixedRate mRate = 0;
    unsigned mChannels = 0;              // 1 or 2
    std::vector<TappedDevice> mDevices;  // at least one, no identifier twice
    std::vector<pid_t> mProcesses;       // positive: these and their descendants; negative: not these; empty: all
    uint32_t mPublishFrames = 0;         // that may wait before they are published; 0: each block comes at its time

    /// Reads the dictionary into this.
    ///
    /// Keys: "IOAudioSampleRate" (an array of whole part and 2^-32 fraction, or one 16.16 number),
    /// "IOAudioNumChannels", "IOAudioDevices" (each an identifier, or an array of identifier, left and right
    /// channel counted from 0), "IOAudioProcesses" (may be absent), "IOAudioPublishFrames" (may be absent). Other keys
    /// are passed over.
    ///
    /// @return  kIOReturnSuccess, or kIOReturnBadArgument for anything missing, of another type or out of
    ///          range; this is then not to be used
    kern_return_t Parse(CFTypeRef properties);

    /// Reads "IOAudioDevices" and "IOAudioProcesses" alone. @return as Parse
    kern_return_t ParseTargets(CFTypeRef properties);
};

}  // namespace tap
