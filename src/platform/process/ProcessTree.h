// ProcessTree: who descends from whom, from one look at the process table.
#pragma once

#include "platform/machine/Processes.h"

#include <map>
#include <optional>
#include <vector>

namespace platform::process {

/// A view of the table that reads each row once. For one question's time, on one thread.
class ProcessTree {
public:
    enum class Rows { Whole, Brief };  // as Processes::Find and Processes::FindBriefly return them

    explicit ProcessTree(machine::Processes& processes, Rows rows = Rows::Whole) : mProcesses(processes), mKind(rows) {}

    /// The row of a process; null where there is none, for 0 and for negative numbers.
    const machine::ProcessRecord* Find(pid_t pid);

    /// The process itself and its ancestors, nearest first; empty where there is no such process. A parent
    /// that started after its child is a number that was given out again, and ends the line.
    std::vector<const machine::ProcessRecord*> Lineage(pid_t pid);

private:
    machine::Processes& mProcesses;
    const Rows mKind;
    std::map<pid_t, std::optional<machine::ProcessRecord>> mRows;
};

}  // namespace platform::process
