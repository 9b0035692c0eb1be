#include "platform/machine/simulated/SimulatedProcesses.h"

#include "platform/machine/simulated/Unseen.h"

#include <utility>

namespace platform::machine::simulated {

namespace {

template <class Map>
std::optional<typename Map::mapped_type> Look(const Map& map, const typename Map::key_type& key)
{
    const Unseen unseen;
    const auto found = map.find(key);
    return found == map.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace

std::optional<ProcessRecord> SimulatedProcesses::Find(pid_t pid)
{
    return Look(mTable, pid);
}

std::vector<pid_t> SimulatedProcesses::List()
{
    const Unseen unseen;
    std::vector<pid_t> processes;
    for (const auto& [pid, record] : mTable) processes.push_back(pid);
    return processes;
}

std::optional<Processes::DesktopEntry> SimulatedProcesses::FindDesktopEntry(const std::string& executable)
{
    return Look(mEntries, executable);
}

void SimulatedProcesses::Spawn(ProcessRecord record)
{
    const Unseen unseen;
    record.mStartTime = ++mLastStartTime;
    mTable[record.mPID] = std::move(record);
}

void SimulatedProcesses::Exit(pid_t pid)
{
    const Unseen unseen;
    mTable.erase(pid);
    for (auto& [other, record] : mTable)
        if (record.mParent == pid) record.mParent = 1;
}

void SimulatedProcesses::AddDesktopEntry(const std::string& executable, DesktopEntry entry)
{
    const Unseen unseen;
    mEntries[executable] = std::move(entry);
}

}  // namespace platform::machine::simulated
