// Processes: the process table of the current machine.
#pragma once

#include <sys/types.h>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform::machine {

/// What the table says of one process. Empty strings where it says nothing, or may not be read.
struct ProcessRecord {
    pid_t mPID = 0;
    pid_t mParent = 0;
    uint64_t mStartTime = 0;    // opaque, rising; with the identifier it names one process for ever
    std::string mName;          // the short name the process runs under
    std::string mExecutable;    // absolute path
    std::string mSandboxID;     // identifier given by a sandbox
    std::string mDesktopScope;  // application identifier of the desktop's scope the process runs in
};

class Processes {
public:
    virtual ~Processes() = default;

    virtual pid_t Self() = 0;
    virtual std::optional<ProcessRecord> Find(pid_t pid) = 0;
    /// The same without executable, sandbox and scope, each of which may cost a file.
    virtual std::optional<ProcessRecord> FindBriefly(pid_t pid) { return Find(pid); }
    /// All there are, in rising order.
    virtual std::vector<pid_t> List() = 0;
    /// Whether there is a process of that identifier, 1 or above, that this one may send signals to.
    virtual bool MaySignal(pid_t pid) = 0;

    /// The identifier and the shown name that the desktop's entries give for an executable, if any has it.
    struct DesktopEntry {
        std::string mIdentifier;
        std::string mName;
        bool mHidden = false;  // it stands in no menu
    };
    virtual std::optional<DesktopEntry> FindDesktopEntry(const std::string& executable) = 0;
};

}  // namespace platform::machine
