// SimulatedProcesses: a process table that a script fills.
#pragma once

#include "platform/machine/Processes.h"

#include <map>

namespace platform::machine::simulated {

class SimulatedProcesses final : public Processes {
public:
    static constexpr pid_t kSelf = 4711;

    pid_t Self() override { return kSelf; }
    std::optional<ProcessRecord> Find(pid_t pid) override;
    std::vector<pid_t> List() override;
    bool MaySignal(pid_t pid) override { return pid == kSelf || Find(pid); }
    std::optional<DesktopEntry> FindDesktopEntry(const std::string& executable) override;

    /// A process begins. Its start time is made up, and never given twice.
    void Spawn(ProcessRecord record);
    /// A process ends. Its children become those of process 1.
    void Exit(pid_t pid);
    void AddDesktopEntry(const std::string& executable, DesktopEntry entry);

private:
    std::map<pid_t, ProcessRecord> mTable;
    std::map<std::string, DesktopEntry> mEntries;
    uint64_t mLastStartTime = 0;
};

}  // namespace platform::machine::simulated
