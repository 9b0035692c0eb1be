// LinuxProcesses: the process table from /proc, and what desktops and sandboxes say about its rows.
// Everything read here was written by others, names and paths included: bounded, and never believed to be
// well formed.
// Start at Find.
#pragma once

#include "platform/machine/Processes.h"
#include "platform/machine/linux/DesktopEntries.h"

namespace platform::machine {

class LinuxProcesses final : public Processes {
public:
    /// The table of the running system.
    LinuxProcesses();
    /// The table under another root, laid out as /proc is, with desktop entries of its own.
    LinuxProcesses(std::string processRoot, DesktopEntries entries);

    pid_t Self() override;
    std::optional<ProcessRecord> Find(pid_t pid) override;
    std::optional<ProcessRecord> FindBriefly(pid_t pid) override;
    std::vector<pid_t> List() override;
    bool MaySignal(pid_t pid) override;
    std::optional<DesktopEntry> FindDesktopEntry(const std::string& executable) override;

private:
    std::string FolderOf(pid_t pid) const { return mRoot + "/" + std::to_string(pid); }

    std::string mRoot;
    DesktopEntries mEntries;
};

/// The application that a control group belongs to by the desktop's naming of scopes and services, from the
/// text of a process's cgroup file; "" where its innermost group is none of those.
std::string ApplicationOfControlGroup(const std::string& text);

}  // namespace platform::machine
