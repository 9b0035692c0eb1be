// Sources: what a person writes behind --source and --from, and what it stands for.
#pragma once

#include "cli/NameMatching.h"
#include "platform/process/Applications.h"

#include <optional>
#include <string>
#include <vector>

namespace cli {

/// A source as it was written: kind and value, "app:firefox".
struct Source {
    enum class Kind {
        Application,  // app:NAME
        AllBut,       // app-inverse:NAME, everything except that application
        Identifier,   // id:IDENTIFIER
        Path,         // path:EXECUTABLE
        Process,      // pid:N
        System,       // system, everything
        Output,       // device:NAME, everything that plays on that output; "default" follows the default output
        Input,        // input:NAME; "default" is the default input
    };
    Kind mKind = Kind::System;
    std::string mValue;
    pid_t mPID = 0;  // for Process
};

/// The source as a person writes it.
std::string Written(const Source& source);

/// Reads a source. @return an empty string, or what is wrong with it, with an example of a right one
std::string ParseSource(const std::string& text, Source& source);

/// What stays the same when an application is started again.
struct ApplicationIdentity {
    std::string mName, mIdentifier;  // an empty one matches any

    bool operator==(const ApplicationIdentity&) const = default;
};

/// The processes that a source stands for. Input and Output sources have none: see MatchDevice.
struct Resolution {
    std::vector<pid_t> mProcesses;                 // of AllBut: the ones to leave out; empty for System
    std::optional<ApplicationIdentity> mIdentity;  // of app:, app-inverse:, id: and path:, to find later instances
    std::string mError;                            // for a person; empty where the source was found
};

/// The applications that "app:NAME" stands for, by shown name, the server's name, executable's file or the last part of
/// the identifier; by the whole of it first, then by its beginning, then by a part. Several may match equally well.
std::vector<const platform::process::Application*> FindApplications(
    const std::string& name, const std::vector<platform::process::Application>& applications);

/// What to say where no application, or several different ones, match.
std::string TellNoMatch(const Source& source, const std::vector<platform::process::Application>& applications);
std::string TellApart(const Source& source, const std::vector<const platform::process::Application*>& found);

/// Finds a source among the applications that run. A source that matches nothing, or several different applications,
/// is an error that lists the applications, close names first.
///
/// @param processExists  says whether a process is there, for "pid:N"
Resolution Resolve(const Source& source, const std::vector<platform::process::Application>& applications,
                   bool (*processExists)(pid_t));

/// The processes of all running instances of an application; empty where none runs.
std::vector<pid_t> ProcessesOf(const ApplicationIdentity& identity,
                               const std::vector<platform::process::Application>& applications);

}  // namespace cli
