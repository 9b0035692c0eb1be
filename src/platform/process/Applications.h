// Applications: what a person calls an application, made from the processes and streams of the machine.
// Why: a browser plays from a helper that nobody has heard of. An application is the topmost process of a
// group that runs the same program, or shares a desktop scope or a sandbox, with its helpers folded in.
// Start at CopyApplications.
#pragma once

#include <sys/types.h>
#include <string>
#include <vector>

namespace platform::process {

/// How an application's identifier was found, best first.
enum class IdentifierSource { SandboxID, DesktopScope, DesktopEntry, ServerProperty, Executable };

struct Application {
    pid_t mPID = 0;     // the topmost process of the group
    std::string mName;  // for people; what "app:NAME" is compared with
    std::string mIdentifier;
    IdentifierSource mIdentifierSource = IdentifierSource::Executable;
    std::string mExecutable;  // absolute path; empty where it may not be read
    bool mPlaying = false;
    std::vector<pid_t> mHelpers;  // further processes of the group that have streams
};

/// The applications that have a stream on the audio server, by name, this process left out.
std::vector<Application> CopyApplications();

/// Whether `pid` is `ancestor` or one of its descendants. Answers from the process table of this moment.
bool IsDescendant(pid_t pid, pid_t ancestor);

}  // namespace platform::process
