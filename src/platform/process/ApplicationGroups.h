// ApplicationGroups: processes put together into applications, one process after another.
// Why: the applications that play, those that run, and the one that this process belongs to have to be the same ones.
// Start at Add. What is a group is said in Applications.h.
#pragma once

#include "platform/process/Applications.h"
#include "platform/process/ProcessTree.h"

namespace platform::process {

/// What the audio server says of a process, all empty for one that it does not know.
struct ServerWord {
    std::string mSandboxID;
    std::string mApplicationID;
    std::string mApplicationName;
};

/// The groups of one look at the process table. On one thread.
class ApplicationGroups {
public:
    explicit ApplicationGroups(machine::Processes& processes) : mProcesses(processes), mTree(processes) {}

    /// The application of a process, which the first of its processes gave its name and identifier.
    ///
    /// @return null for a process that is gone, or in a table that is not ours: nothing that could be chosen
    Application* Add(pid_t pid, const ServerWord& word);

    /// What the table says of a process; null where it says nothing.
    const machine::ProcessRecord* Find(pid_t pid) { return mTree.Find(pid); }

    /// All of them, in no order that means anything. Ends this look.
    std::vector<Application> Take();

private:
    using DesktopEntry = std::optional<machine::Processes::DesktopEntry>;
    const DesktopEntry& EntryOf(const std::string& executable);

    machine::Processes& mProcesses;
    ProcessTree mTree;
    std::map<std::string, DesktopEntry> mEntries;  // by executable: a program is looked up once
    std::map<std::string, Application> mGroups;
};

}  // namespace platform::process
