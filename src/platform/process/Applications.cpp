#include "platform/process/Applications.h"

#include "platform/audio/CurrentServer.h"
#include "platform/machine/Machine.h"
#include "platform/process/ApplicationGroups.h"

#include <algorithm>
#include <tuple>

namespace platform::process {

namespace {

machine::Processes& CurrentProcesses()
{
    return machine::Machine::Current().GetProcesses();
}

/// The kernel's own threads, and what belongs to other users, say of no program that they run it.
bool RunsAProgram(const machine::ProcessRecord* process)
{
    return process && !(process->mExecutable.empty() && process->mSandboxID.empty());
}

void AddOutputs(const machine::PlaybackStream& stream, const std::vector<machine::Device>& outputs,
                std::vector<std::string>& uids)
{
    for (const machine::Device& output : outputs)
        if (std::ranges::find(stream.mOutputs, output.mID) != stream.mOutputs.end() &&
            std::ranges::find(uids, output.mUID) == uids.end())
            uids.push_back(output.mUID);
}

}  // namespace

std::vector<Application> CopyApplications()
{
    const machine::ServerSnapshot server = audio::LookAtServer();
    ApplicationGroups groups(CurrentProcesses());
    const pid_t self = CurrentProcesses().Self();
    for (const machine::PlaybackStream& stream : server.mStreams) {
        if (stream.mPID == self) continue;
        const ServerWord word{stream.mSandboxID, stream.mApplicationID, stream.mApplicationName};
        Application* application = groups.Add(stream.mPID, word);
        if (!application) continue;
        application->mPlaying |= stream.mPlaying;
        AddOutputs(stream, server.mOutputs, application->mOutputs);
    }
    std::vector<Application> applications = groups.Take();
    std::sort(applications.begin(), applications.end(), [](const Application& a, const Application& b) {
        return std::tie(a.mName, a.mPID) < std::tie(b.mName, b.mPID);
    });
    return applications;
}

std::vector<Application> CopyRunningApplications()
{
    ApplicationGroups groups(CurrentProcesses());
    for (const pid_t pid : CurrentProcesses().List()) {
        if (RunsAProgram(groups.Find(pid))) groups.Add(pid, {});
    }
    std::vector<Application> applications = groups.Take();
    std::sort(applications.begin(), applications.end(), [](const Application& a, const Application& b) {
        return std::tie(a.mStartTime, a.mPID) < std::tie(b.mStartTime, b.mPID);
    });
    return applications;
}

std::vector<pid_t> CopyLineage(pid_t pid)
{
    ProcessTree tree(CurrentProcesses(), ProcessTree::Rows::Brief);
    std::vector<pid_t> line;
    for (const machine::ProcessRecord* row : tree.Lineage(pid)) line.push_back(row->mPID);
    return line;
}

}  // namespace platform::process
