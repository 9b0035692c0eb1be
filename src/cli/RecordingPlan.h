// RecordingPlan: from the words of a recording to what the recorder is given, by what is there now.
// Why: tracks, widths and targets are decided before anything is touched, and what a source stands for has to be found
// again whenever applications and outputs change.
// Start at MakePlan.
#pragma once

#include "cli/Devices.h"
#include "cli/RecordWords.h"
#include "platform/machine/AudioServer.h"
#include "record/Recorder.h"

#include <optional>
#include <string>
#include <vector>

namespace cli {

/// A source of a recording, as it is followed while the recording lasts.
struct FollowedSource {
    Source mSource;
    std::optional<ApplicationIdentity> mIdentity;  // none yet: it is waited for, or it names no application
    std::vector<std::string> mPinnedOutputs;       // UIDs; none: wherever it plays
};

struct RecordingPlan {
    record::RecordingSettings mSettings;
    std::vector<FollowedSource> mFollowed;  // one for each of the settings' sources
};

/// Makes the plan, or complains.
/// @return an exit code; kExitDone where there is a plan
int MakePlan(const RecordWish& wish, const RecordOptions& options, RecordingPlan& plan);

/// What a tap takes in for a source now: nothing that plays, where the source does not run. Finds the source's identity
/// where it is not known yet. No device: there is no output.
record::TapTargets FindTargets(FollowedSource& followed, const platform::machine::ServerSnapshot& snapshot,
                               const std::vector<platform::process::Application>& applications);

/// Whether a process is there, for "pid:N".
bool ProcessExists(pid_t pid);

}  // namespace cli
