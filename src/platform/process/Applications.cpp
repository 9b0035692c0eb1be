#include "platform/process/Applications.h"

#include "platform/audio/CurrentServer.h"
#include "platform/machine/Machine.h"
#include "platform/process/PlainText.h"
#include "platform/process/ProcessTree.h"

#include <algorithm>
#include <filesystem>
#include <map>

namespace platform::process {

using machine::PlaybackStream;
using machine::ProcessRecord;

namespace {

using Lineage = std::vector<const ProcessRecord*>;

/// What a stream says of its place among applications.
struct Membership {
    std::string mGroup;                       // streams of equal group are one application
    const ProcessRecord* mTop = nullptr;      // the topmost process of the group above the stream's
    const ProcessRecord* mProgram = nullptr;  // the topmost that runs the stream's program
    std::string mSandboxID;
};

template <class Predicate>
const ProcessRecord* Topmost(const Lineage& line, Predicate matches)
{
    const auto found =
        std::find_if(line.rbegin(), line.rend(), [&](const ProcessRecord* row) { return matches(*row); });
    return found == line.rend() ? line.front() : *found;
}

Membership MembershipOf(const PlaybackStream& stream, const Lineage& line)
{
    const ProcessRecord& own = *line.front();
    Membership member;
    member.mSandboxID = stream.mSandboxID.empty() ? own.mSandboxID : stream.mSandboxID;
    member.mProgram = Topmost(
        line, [&](const ProcessRecord& row) { return !own.mExecutable.empty() && row.mExecutable == own.mExecutable; });
    if (!member.mSandboxID.empty()) {
        member.mGroup = "sandbox " + member.mSandboxID;
        // The server may know a sandbox whose inside may not be read here: the program stands for it then.
        member.mTop = Topmost(line, [&](const ProcessRecord& row) {
            return row.mSandboxID == member.mSandboxID || &row == member.mProgram;
        });
    } else if (!own.mDesktopScope.empty()) {
        member.mGroup = "scope " + own.mDesktopScope;
        member.mTop = Topmost(line, [&](const ProcessRecord& row) { return row.mDesktopScope == own.mDesktopScope; });
    } else {
        member.mGroup = "process " + std::to_string(member.mProgram->mPID);
        member.mTop = member.mProgram;
    }
    return member;
}

std::string ProgramName(const ProcessRecord& process)
{
    const std::string file = std::filesystem::path(process.mExecutable).filename();
    return file.empty() ? process.mName : file;
}

void Identify(Application& application, const Membership& member, const PlaybackStream& stream,
              const std::optional<machine::Processes::DesktopEntry>& entry)
{
    const std::pair<IdentifierSource, std::string> candidates[] = {
        {IdentifierSource::SandboxID, member.mSandboxID},
        {IdentifierSource::DesktopScope, member.mTop->mDesktopScope},
        {IdentifierSource::DesktopEntry, entry ? entry->mIdentifier : std::string()},
        {IdentifierSource::ServerProperty, stream.mApplicationID},
        {IdentifierSource::Executable, ProgramName(*member.mProgram)},
    };
    for (const auto& [source, identifier] : candidates) {
        application.mIdentifierSource = source;
        application.mIdentifier = PlainText(identifier);
        if (!identifier.empty()) return;
    }
}

Application MakeApplication(const Membership& member, const PlaybackStream& stream)
{
    const ProcessRecord& program = *member.mProgram;
    std::optional<machine::Processes::DesktopEntry> entry;
    if (!program.mExecutable.empty())
        entry = machine::Machine::Current().GetProcesses().FindDesktopEntry(program.mExecutable);

    Application application;
    application.mPID = member.mTop->mPID;
    application.mExecutable = program.mExecutable;
    Identify(application, member, stream, entry);
    if (entry) application.mName = PlainText(entry->mName);
    if (application.mName.empty()) application.mName = PlainText(stream.mApplicationName);
    if (application.mName.empty()) application.mName = PlainText(program.mName);
    return application;
}

/// The groups of one look at the server, as they grow stream by stream.
class Groups {
public:
    void Add(const PlaybackStream& stream)
    {
        const Lineage line = mTree.Lineage(stream.mPID);
        if (line.empty()) return;  // gone, or in a table that is not ours: nothing that could be chosen
        const Membership member = MembershipOf(stream, line);
        auto [group, added] = mGroups.try_emplace(member.mGroup);
        Application& application = group->second;
        if (added) application = MakeApplication(member, stream);
        // Of several trees in one sandbox or scope, the first that was started stands for them.
        if (member.mTop->mStartTime < mTree.Find(application.mPID)->mStartTime) application.mPID = member.mTop->mPID;
        application.mPlaying |= stream.mPlaying;
        application.mHelpers.push_back(stream.mPID);
    }

    std::vector<Application> Take()
    {
        std::vector<Application> applications;
        for (auto& [key, application] : mGroups) {
            std::vector<pid_t>& helpers = application.mHelpers;
            std::sort(helpers.begin(), helpers.end());
            helpers.erase(std::unique(helpers.begin(), helpers.end()), helpers.end());
            std::erase(helpers, application.mPID);
            applications.push_back(std::move(application));
        }
        return applications;
    }

private:
    ProcessTree mTree;
    std::map<std::string, Application> mGroups;
};

}  // namespace

std::vector<Application> CopyApplications()
{
    const pid_t self = machine::Machine::Current().GetProcesses().Self();
    Groups groups;
    for (const PlaybackStream& stream : audio::LookAtServer().mStreams) {
        if (stream.mPID != self) groups.Add(stream);
    }
    std::vector<Application> applications = groups.Take();
    std::sort(applications.begin(), applications.end(), [](const Application& a, const Application& b) {
        return std::tie(a.mName, a.mPID) < std::tie(b.mName, b.mPID);
    });
    return applications;
}

bool IsDescendant(pid_t pid, pid_t ancestor)
{
    ProcessTree tree;
    const Lineage line = tree.Lineage(pid);
    return std::any_of(line.begin(), line.end(), [&](const ProcessRecord* row) { return row->mPID == ancestor; });
}

}  // namespace platform::process
