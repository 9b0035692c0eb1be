// Source: what brings one source's frames: a tap on applications, or an input device.
// Why: the recorder writes strands and keeps one account, whatever is behind a source.
// Start at Open.
#pragma once

#include "record/FrameGrid.h"
#include "record/SilenceAccount.h"
#include "record/Strand.h"

#include <sys/types.h>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace record {

/// What a tap takes in: these processes on these outputs.
struct TapTargets {
    std::vector<std::string> mDeviceUIDs;  // of outputs; at least one
    std::vector<pid_t> mProcesses;         // positive: these and their descendants; negative: not these; empty: all

    bool operator==(const TapTargets&) const = default;
};

/// All operations are for the owner's thread, one at a time, but for those that say otherwise.
class Source {
public:
    virtual ~Source() = default;

    /// Makes everything ready; no sound flows yet. @return 0 or the status of what could not be made
    virtual int Open() = 0;
    /// Lets sound flow into the strand. @return 0 or a status
    virtual int Start() = 0;
    /// Why it could not be opened or started, as a sentence for a person; empty: the status is all there is to say.
    virtual std::string Explain() const { return {}; }
    /// Returns when no frame is put and none will be.
    virtual void Stop() = 0;

    virtual Strand& GetStrand() = 0;

    /// How long after its moment a frame is in the strand, if all goes well.
    virtual uint64_t DelayNanos() const = 0;

    /// Enters into the account what the source itself knows of its silences by now. @thread the writer's
    virtual void CollectSilences(SilenceAccount& account, size_t source) = 0;
    /// The same for a silence that goes on at the recording's end. @thread the writer's
    virtual void CollectOpenSilence(SilenceAccount& account, size_t source, uint64_t end) = 0;
    /// The first frame with sound that came from the source since Start; none: it plays nothing. @thread the writer's
    virtual std::optional<uint64_t> FirstSound() = 0;
    /// Samples that were beyond full scale and were cut on the way. @thread any
    virtual uint64_t ClippedSamples() const { return 0; }
};

}  // namespace record
