#include "platform/process/ApplicationGroups.h"

#include "platform/process/PlainText.h"

#include <algorithm>
#include <filesystem>

namespace platform::process {

using machine::ProcessRecord;

namespace {

using Lineage = std::vector<const ProcessRecord*>;

/// The place of a process among applications.
struct Membership {
    std::string mGroup;                       // processes of equal group are one application
    const ProcessRecord* mTop = nullptr;      // the topmost process of the group above this one
    const ProcessRecord* mProgram = nullptr;  // the topmost that runs this one's program
    std::string mSandboxID;
};

template <class Predicate>
const ProcessRecord* Topmost(const Lineage& line, Predicate matches)
{
    const auto found =
        std::find_if(line.rbegin(), line.rend(), [&](const ProcessRecord* row) { return matches(*row); });
    return found == line.rend() ? line.front() : *found;
}

Membership MembershipOf(const Lineage& line, const std::string& sandboxID)
{
    const ProcessRecord& own = *line.front();
    Membership member;
    member.mSandboxID = sandboxID.empty() ? own.mSandboxID : sandboxID;
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

void Identify(Application& application, const Membership& member, const ServerWord& word,
              const std::optional<machine::Processes::DesktopEntry>& entry)
{
    const std::pair<IdentifierSource, std::string> candidates[] = {
        {IdentifierSource::SandboxID, member.mSandboxID},
        {IdentifierSource::DesktopScope, member.mTop->mDesktopScope},
        {IdentifierSource::DesktopEntry, entry ? entry->mIdentifier : std::string()},
        {IdentifierSource::ServerProperty, word.mApplicationID},
        {IdentifierSource::Executable, ProgramName(*member.mProgram)},
    };
    for (const auto& [source, identifier] : candidates) {
        application.mIdentifierSource = source;
        application.mIdentifier = PlainText(identifier);
        if (!identifier.empty()) return;
    }
}

Application MakeApplication(const Membership& member, const ServerWord& word,
                            const std::optional<machine::Processes::DesktopEntry>& entry)
{
    const ProcessRecord& program = *member.mProgram;
    Application application;
    application.mExecutable = program.mExecutable;
    Identify(application, member, word, entry);
    if (entry) application.mName = PlainText(entry->mName);
    application.mHidden = entry && entry->mHidden;
    if (application.mName.empty()) application.mName = PlainText(word.mApplicationName);
    if (application.mName.empty()) application.mName = PlainText(program.mName);
    return application;
}

void Lead(Application& application, const ProcessRecord& top)
{
    application.mPID = top.mPID;
    application.mStartTime = top.mStartTime;
}

}  // namespace

const ApplicationGroups::DesktopEntry& ApplicationGroups::EntryOf(const std::string& executable)
{
    auto [entry, added] = mEntries.try_emplace(executable);
    if (added && !executable.empty()) entry->second = mProcesses.FindDesktopEntry(executable);
    return entry->second;
}

Application* ApplicationGroups::Add(pid_t pid, const ServerWord& word)
{
    const Lineage line = mTree.Lineage(pid);
    if (line.empty()) return nullptr;
    const Membership member = MembershipOf(line, word.mSandboxID);
    auto [group, added] = mGroups.try_emplace(member.mGroup);
    Application& application = group->second;
    if (added) application = MakeApplication(member, word, EntryOf(member.mProgram->mExecutable));
    // Of several trees in one sandbox or scope, the first that was started stands for them.
    if (added || member.mTop->mStartTime < application.mStartTime) Lead(application, *member.mTop);
    application.mHelpers.push_back(pid);
    if (application.mServerName.empty()) application.mServerName = PlainText(word.mApplicationName);
    return &application;
}

std::vector<Application> ApplicationGroups::Take()
{
    std::vector<Application> applications;
    for (auto& [key, application] : mGroups) {
        std::vector<pid_t>& helpers = application.mHelpers;
        std::sort(helpers.begin(), helpers.end());
        helpers.erase(std::unique(helpers.begin(), helpers.end()), helpers.end());
        std::erase(helpers, application.mPID);
        applications.push_back(std::move(application));
    }
    mGroups.clear();
    return applications;
}

}  // namespace platform::process
