#include "platform/process/ProcessTree.h"

namespace platform::process {

using machine::ProcessRecord;

namespace {

// Deeper than any real tree, and an end for a table that changes while it is read.
constexpr size_t kMostGenerations = 256;

}  // namespace

const ProcessRecord* ProcessTree::Find(pid_t pid)
{
    if (pid <= 0) return nullptr;
    auto [row, added] = mRows.try_emplace(pid);
    if (added) row->second = mKind == Rows::Brief ? mProcesses.FindBriefly(pid) : mProcesses.Find(pid);
    return row->second ? &*row->second : nullptr;
}

std::vector<const ProcessRecord*> ProcessTree::Lineage(pid_t pid)
{
    std::vector<const ProcessRecord*> line;
    for (const ProcessRecord* next = Find(pid); next && line.size() < kMostGenerations; next = Find(next->mParent)) {
        if (!line.empty() && next->mStartTime > line.back()->mStartTime) break;
        line.push_back(next);
    }
    return line;
}

}  // namespace platform::process
