// DesktopEntries: which desktop entry starts an executable.
// Why: a person knows "Firefox Web Browser", not /usr/lib/firefox-esr/firefox-esr.
#pragma once

#include "platform/machine/Processes.h"

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace platform::machine {

class DesktopEntries {
public:
    /// Entries are those of `dataFolders`' "applications", an earlier folder's before a later one's. Programs
    /// that an entry names without a path are looked for in `programFolders`.
    DesktopEntries(std::vector<std::string> dataFolders, std::vector<std::string> programFolders);
    /// The folders that this process's environment names.
    static DesktopEntries OfThisUser();

    /// The entry whose program is this file, else the one whose program has this file's name: many are
    /// scripts that end in a program of the same name elsewhere. Reads the folders again when they changed.
    ///
    /// @thread any that may block
    std::optional<Processes::DesktopEntry> Find(const std::string& executable);

private:
    using Entry = Processes::DesktopEntry;
    using Stamps = std::vector<std::filesystem::file_time_type>;

    Stamps ReadStamps() const;
    void Scan();
    void Add(const std::filesystem::path& file);
    std::string Locate(const std::string& program) const;

    std::vector<std::filesystem::path> mFolders;
    std::vector<std::filesystem::path> mProgramFolders;
    std::unique_ptr<std::mutex> mMutex = std::make_unique<std::mutex>();  // guards all below
    Stamps mStamps;
    std::map<std::string, Entry> mByPath;
    std::map<std::string, Entry> mByName;
};

/// The program that an Exec line starts: its first word with quotes undone, past "env" and assignments; ""
/// where that is a program that runs others (an interpreter, a sandbox), which says nothing.
std::string ProgramOfExecLine(const std::string& line);

}  // namespace platform::machine
