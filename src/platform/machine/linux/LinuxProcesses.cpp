#include "platform/machine/linux/LinuxProcesses.h"

#include "platform/machine/linux/BoundedFile.h"

#include <signal.h>
#include <unistd.h>
#include <algorithm>
#include <charconv>
#include <climits>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

namespace platform::machine {

namespace {

constexpr size_t kMostBytes = 64 * 1024;

std::vector<std::string_view> Split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    for (size_t start = 0; start <= text.size();) {
        const size_t end = std::min(text.find(separator, start), text.size());
        parts.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

template <class Number>
bool ParseNumber(std::string_view text, Number& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

/// Takes name, parent and start time. The name is the process's own choice and may hold spaces, brackets
/// and line ends, so that the fields are counted from the last bracket.
bool ParseStat(std::string_view text, ProcessRecord& record)
{
    constexpr size_t kParentField = 1, kStartTimeField = 19;  // counted from the state, the first after the name
    const size_t open = text.find('('), close = text.rfind(") ");
    if (open == std::string_view::npos || close == std::string_view::npos || close < open) return false;
    record.mName = text.substr(open + 1, close - open - 1);
    const std::vector<std::string_view> fields = Split(text.substr(close + 2), ' ');
    // A number that nothing follows may have been cut.
    return fields.size() > kStartTimeField + 1 && ParseNumber(fields[kParentField], record.mParent) &&
           ParseNumber(fields[kStartTimeField], record.mStartTime);
}

std::string ReadExecutable(const std::string& folder)
{
    char target[PATH_MAX];
    const ssize_t bytes = readlink((folder + "/exe").c_str(), target, sizeof target);
    if (bytes <= 0 || size_t(bytes) == sizeof target) return {};
    std::string_view path(target, size_t(bytes));
    // A program that was upgraded while it runs is still that program.
    if (constexpr std::string_view kDeleted = " (deleted)"; path.ends_with(kDeleted))
        path.remove_suffix(kDeleted.size());
    return std::string(path);
}

/// Undoes the escaping of unit names: \xHH for a character that means something in them.
std::string Unescaped(std::string_view text)
{
    std::string plain;
    for (size_t at = 0; at < text.size(); ++at) {
        unsigned code = 0;
        const bool escape = text.substr(at, 2) == "\\x" && at + 4 <= text.size();
        const char* digits = text.data() + at + 2;
        if (escape && std::from_chars(digits, digits + 2, code, 16).ptr == digits + 2) {
            plain += char(code);
            at += 3;
        } else {
            plain += text[at];
        }
    }
    return plain;
}

std::string Joined(const std::vector<std::string_view>& parts, size_t first, size_t end)
{
    std::string text;
    for (size_t i = first; i < end; ++i) text.append(i > first ? "-" : "").append(parts[i]);
    return text;
}

bool IsInstanceNumber(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789abcdef") == std::string_view::npos &&
           text.find_first_of("0123456789") != std::string_view::npos;
}

/// The application of a unit named app[-<launcher>]-<application>[-<instance>].scope or
/// app[-<launcher>]-<application>[@<instance>].service. A dash inside a part is escaped, though not by all.
std::string ApplicationOfUnit(std::string_view unit)
{
    constexpr std::string_view kScope = ".scope", kService = ".service";
    const bool scope = unit.ends_with(kScope);
    if (!unit.starts_with("app-") || !(scope || unit.ends_with(kService))) return {};
    unit.remove_suffix(scope ? kScope.size() : kService.size());
    unit = unit.substr(0, unit.find('@'));

    const std::vector<std::string_view> parts = Split(unit, '-');
    size_t first = 1, end = parts.size();
    if (scope && end - first > 1 && IsInstanceNumber(parts[end - 1])) --end;
    if (end - first > 1) ++first;  // the launcher
    return Unescaped(Joined(parts, first, end));
}

}  // namespace

std::string ApplicationOfControlGroup(const std::string& text)
{
    for (const std::string_view line : Split(text, '\n')) {
        // The unified hierarchy's line is "0::<path>"; the manager's own on older systems names itself.
        if (!line.starts_with("0::") && line.find(":name=systemd:") == std::string_view::npos) continue;
        const size_t leaf = line.rfind('/');
        if (leaf == std::string_view::npos) continue;
        // The innermost group only: what a terminal starts in a group of its own is not the terminal.
        if (std::string application = ApplicationOfUnit(line.substr(leaf + 1)); !application.empty())
            return application;
    }
    return {};
}

LinuxProcesses::LinuxProcesses() : LinuxProcesses("/proc", DesktopEntries::OfThisUser()) {}

LinuxProcesses::LinuxProcesses(std::string processRoot, DesktopEntries entries)
    : mRoot(std::move(processRoot)), mEntries(std::move(entries))
{
}

pid_t LinuxProcesses::Self()
{
    return getpid();
}

bool LinuxProcesses::MaySignal(pid_t pid)
{
    return kill(pid, 0) == 0;
}

std::vector<pid_t> LinuxProcesses::List()
{
    std::vector<pid_t> processes;
    std::error_code error;
    std::filesystem::directory_iterator row(mRoot, error);
    for (; row != std::filesystem::directory_iterator(); row.increment(error)) {
        pid_t pid = 0;
        if (ParseNumber(row->path().filename().native(), pid) && pid > 0) processes.push_back(pid);
    }
    std::sort(processes.begin(), processes.end());
    return processes;
}

std::optional<ProcessRecord> LinuxProcesses::FindBriefly(pid_t pid)
{
    if (pid <= 0) return std::nullopt;
    const std::optional<std::string> stat = ReadBoundedFile(FolderOf(pid) + "/stat", kMostBytes);
    ProcessRecord record;
    record.mPID = pid;
    if (!stat || !ParseStat(*stat, record)) return std::nullopt;
    return record;
}

std::optional<ProcessRecord> LinuxProcesses::Find(pid_t pid)
{
    std::optional<ProcessRecord> record = FindBriefly(pid);
    if (!record) return record;
    const std::string folder = FolderOf(pid);
    record->mExecutable = ReadExecutable(folder);
    // The root is the sandbox's own ground: a link there could lead anywhere on this side.
    const std::string sandbox = folder + "/root/.flatpak-info";
    record->mSandboxID =
        FindInKeyFile(ReadBoundedFile(sandbox, kMostBytes, Links::Refuse).value_or(""), "Application", "name");
    record->mDesktopScope = ApplicationOfControlGroup(ReadBoundedFile(folder + "/cgroup", kMostBytes).value_or(""));
    return record;
}

std::optional<Processes::DesktopEntry> LinuxProcesses::FindDesktopEntry(const std::string& executable)
{
    return mEntries.Find(executable);
}

}  // namespace platform::machine
