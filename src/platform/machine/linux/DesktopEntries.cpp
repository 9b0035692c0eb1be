#include "platform/machine/linux/DesktopEntries.h"

#include "platform/machine/linux/BoundedFile.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <set>
#include <string_view>
#include <system_error>

namespace platform::machine {

namespace fs = std::filesystem;

namespace {

constexpr size_t kMostEntryBytes = 256 * 1024;
constexpr size_t kMostEntries = 8192;
constexpr const char* kGroup = "Desktop Entry";

std::string Environment(const char* name, const std::string& otherwise)
{
    const char* value = std::getenv(name);
    return value && *value ? value : otherwise;
}

void AppendList(std::vector<std::string>& folders, const std::string& list)
{
    for (size_t start = 0; start <= list.size();) {
        const size_t end = std::min(list.find(':', start), list.size());
        if (end > start && list[start] == '/') folders.push_back(list.substr(start, end - start));
        start = end + 1;
    }
}

/// Takes the next word off the front of an Exec line, with double quotes and backslashes undone.
std::string TakeWord(std::string_view& line)
{
    std::string word;
    bool quoted = false;
    size_t at = std::min(line.find_first_not_of(' '), line.size());
    for (; at < line.size() && (quoted || line[at] != ' '); ++at) {
        if (line[at] == '"') {
            quoted = !quoted;
            continue;
        }
        if (line[at] == '\\' && at + 1 < line.size()) ++at;
        word += line[at];
    }
    line.remove_prefix(at);
    return word;
}

bool RunsOtherPrograms(std::string_view name)
{
    constexpr std::array<std::string_view, 16> kNames = {"sh",          "bash",     "dash", "zsh",  "flatpak", "snap",
                                                         "bwrap",       "perl",     "ruby", "node", "gjs",     "java",
                                                         "dbus-launch", "xdg-open", "wine", "mono"};
    return name.starts_with("python") || std::find(kNames.begin(), kNames.end(), name) != kNames.end();
}

}  // namespace

std::string ProgramOfExecLine(const std::string& line)
{
    std::string_view rest = line;
    std::string word = TakeWord(rest);
    if (fs::path(word).filename() == "env") {
        do word = TakeWord(rest);
        while (word.find('=') != std::string::npos);
    }
    return RunsOtherPrograms(fs::path(word).filename().native()) ? std::string() : word;
}

DesktopEntries::DesktopEntries(std::vector<std::string> dataFolders, std::vector<std::string> programFolders)
    : mProgramFolders(programFolders.begin(), programFolders.end())
{
    for (const std::string& folder : dataFolders) mFolders.push_back(fs::path(folder) / "applications");
}

DesktopEntries DesktopEntries::OfThisUser()
{
    std::vector<std::string> data, programs;
    AppendList(data, Environment("XDG_DATA_HOME", Environment("HOME", "") + "/.local/share"));
    AppendList(data, Environment("XDG_DATA_DIRS", "/usr/local/share:/usr/share"));
    AppendList(programs, Environment("PATH", "/usr/local/bin:/usr/bin:/bin"));
    return {std::move(data), std::move(programs)};
}

std::optional<Processes::DesktopEntry> DesktopEntries::Find(const std::string& executable)
{
    const std::lock_guard lock(*mMutex);
    if (Stamps now = ReadStamps(); now != mStamps) {
        mStamps = std::move(now);
        Scan();
    }
    if (const auto found = mByPath.find(executable); found != mByPath.end()) return found->second;
    const auto found = mByName.find(fs::path(executable).filename().native());
    if (found != mByName.end()) return found->second;
    return std::nullopt;
}

DesktopEntries::Stamps DesktopEntries::ReadStamps() const
{
    Stamps stamps;
    std::error_code error;
    for (const fs::path& folder : mFolders) stamps.push_back(fs::last_write_time(folder, error));
    return stamps;
}

void DesktopEntries::Scan()
{
    std::set<std::string> seen;  // identifiers: an earlier folder's entry hides a later one's
    mByPath.clear();
    mByName.clear();
    for (const fs::path& folder : mFolders) {
        std::vector<fs::path> files;
        std::error_code error;
        for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
            if (it->path().extension() == ".desktop" && files.size() < kMostEntries) files.push_back(it->path());
        }
        // By identifier, so that "player" comes before "player-private" and the order is everyone's.
        std::sort(files.begin(), files.end(), [](const fs::path& a, const fs::path& b) { return a.stem() < b.stem(); });
        for (const fs::path& file : files) {
            if (seen.insert(file.stem()).second) Add(file);
        }
    }
}

void DesktopEntries::Add(const fs::path& file)
{
    const std::string text = ReadBoundedFile(file, kMostEntryBytes).value_or("");
    if (FindInKeyFile(text, kGroup, "Type") != "Application" || FindInKeyFile(text, kGroup, "Hidden") == "true") return;
    const std::string program = ProgramOfExecLine(FindInKeyFile(text, kGroup, "Exec"));
    if (program.empty()) return;
    const Entry entry{file.stem(), FindInKeyFile(text, kGroup, "Name"),
                      FindInKeyFile(text, kGroup, "NoDisplay") == "true"};
    if (const std::string path = Locate(program); !path.empty()) mByPath.emplace(path, entry);
    mByName.emplace(fs::path(program).filename(), entry);
}

/// The file behind a program's name, links resolved as the process table shows it; "" where there is none.
std::string DesktopEntries::Locate(const std::string& program) const
{
    std::error_code error;
    if (program.find('/') != std::string::npos) return fs::canonical(program, error).native();
    for (const fs::path& folder : mProgramFolders) {
        const fs::path path = fs::canonical(folder / program, error);
        if (!error) return path.native();
    }
    return {};
}

}  // namespace platform::machine
