// Applications: what a person calls an application, made from the processes and streams of the machine.
// Why: a browser plays from a helper that nobody has heard of. An application is the topmost process of a
// group that runs the same program, or shares a desktop scope or a sandbox, with its helpers folded in.
// Start at CopyApplications, of those that play, or CopyRunningApplications, of all.
#pragma once

#include <sys/types.h>
#include <cstdint>
#include <string>
#include <vector>

namespace platform::process {

/// How an application's identifier was found, best first.
enum class IdentifierSource { SandboxID, DesktopScope, DesktopEntry, ServerProperty, Executable };

struct Application {
    pid_t mPID = 0;           // the topmost process of the group
    uint64_t mStartTime = 0;  // of that process; opaque, and later for one that was started later
    std::string mName;        // for people
    std::string mIdentifier;
    IdentifierSource mIdentifierSource = IdentifierSource::Executable;
    std::string mExecutable;  // absolute path; empty where it may not be read
    bool mHidden = false;     // the desktop knows it, and shows it in no menu: others start it
    bool mPlaying = false;
    std::vector<pid_t> mHelpers;        // further processes of the group that were looked at
    std::string mServerName;            // as it introduced itself to the audio server; empty where it has no stream
    std::vector<std::string> mOutputs;  // UIDs of the outputs that its streams play on, each once
};

/// The applications that have a stream on the audio server, by name, this process left out. Helpers are those of their
/// processes that have streams.
std::vector<Application> CopyApplications();

/// All applications that run, those without a stream too and this process's own, in the order in which their topmost
/// processes were started. Processes whose program may not be read are left out.
std::vector<Application> CopyRunningApplications();

/// The process and its ancestors as of now, nearest first; empty where there is no such process.
std::vector<pid_t> CopyLineage(pid_t pid);

}  // namespace platform::process
