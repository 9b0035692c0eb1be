// Membership: which streams a tap takes in, and on which of its devices.
// Why: a user names an application, the server knows processes and streams, and a browser plays from a helper
// whose parents may be gone by the time it does. What was once found out about a process is therefore kept as
// long as the process lives.
// Start at Assign.
#pragma once

#include "platform/machine/AudioServer.h"
#include "tap/Configuration.h"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

namespace tap {

/// What membership asks of the process table.
class Ancestry {
public:
    /// The process and its ancestors; empty where there is no such process.
    virtual std::vector<pid_t> Lineage(pid_t pid) = 0;
    /// What tells one process from a later one of the same number; nothing where there is none.
    virtual std::optional<uint64_t> StartTime(pid_t pid) = 0;

protected:
    ~Ancestry() = default;
};

/// The process table of the current machine.
Ancestry& MachineAncestry();

class Membership {
public:
    Membership(const Configuration& configuration, Ancestry& ancestry)
        : mConfiguration(configuration), mAncestry(ancestry)
    {
    }

    /// The streams to capture on each of the configuration's devices, in its order. A stream that plays on
    /// several of them is taken once, on the first; one that is on its way between devices stays where it was
    /// until it arrives, so that the way costs it no frame.
    std::vector<std::vector<uint32_t>> Assign(const platform::machine::ServerSnapshot& snapshot);

    /// Forgets what was decided by a list of processes that is another one now.
    void ForgetDecisions() { mDecisions.clear(); }

private:
    struct Decision {
        std::optional<uint64_t> mStartTime;
        bool mAdmitted;
    };

    bool Admits(pid_t pid);
    bool Decide(pid_t pid);
    void Forget(const platform::machine::ServerSnapshot& snapshot);
    std::optional<size_t> DeviceOf(const platform::machine::PlaybackStream& stream,
                                   const platform::machine::ServerSnapshot& snapshot) const;
    bool IsThere(size_t device, const platform::machine::ServerSnapshot& snapshot) const;

    const Configuration& mConfiguration;
    Ancestry& mAncestry;
    std::map<pid_t, Decision> mDecisions;
    std::map<uint32_t, size_t> mPlaces;  // device of each stream at the last look
};

}  // namespace tap
