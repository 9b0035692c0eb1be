// Following: keeps a recording's sources on the applications and outputs that they name, while those come, move and go.
// Why: a recording names an application, not a process or an output. Each change is noted once, in a sentence.
// Start at Update.
#pragma once

#include "cli/RecordingPlan.h"

#include <atomic>
#include <string>
#include <vector>

namespace cli {

class Following final : platform::machine::ServerListener {
public:
    /// @param recorder  outlives this; its WaitFor returns when something changed
    Following(record::Recorder& recorder, const RecordingPlan& plan);
    ~Following();

    /// Follows what has changed since the last call. @return what happened @thread the recorder's owner
    std::vector<record::RecordingEvent> Update();

private:
    /// How a source stood at the last look.
    struct Standing {
        FollowedSource mFollowed;
        std::string mName;
        bool mIsTap = true;
        bool mRuns = false;
        int mStatus = 0;                    // of the latest targets
        bool mWasThere = false;             // it has run since the start
        std::vector<pid_t> mProcesses;      // where it runs
        std::vector<std::string> mPlaysOn;  // names of outputs
    };

    void OnServerChanged() noexcept override;
    void FollowServer(const platform::machine::ServerSnapshot& snapshot);
    void FollowDefault(const platform::machine::ServerSnapshot& snapshot);
    void FollowSource(size_t source, const platform::machine::ServerSnapshot& snapshot,
                      const std::vector<platform::process::Application>& applications);
    void NotePresence(size_t source, std::vector<pid_t> processes);
    void NotePlace(Standing& standing, const platform::machine::ServerSnapshot& snapshot);
    void Note(const char* kind, const std::string& source, std::string text);

    record::Recorder& mRecorder;
    std::vector<Standing> mSources;
    bool mServerThere = true;
    bool mFollowsDefault = false;
    std::string mDefaultOutput;
    std::vector<record::RecordingEvent> mHappened;
    // Set by the server's thread (release), cleared by the owner (acquire).
    std::atomic<bool> mChanged{true};
};

}  // namespace cli
