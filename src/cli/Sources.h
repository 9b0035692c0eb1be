// Sources: what a person writes behind --source and --from, and what it stands for.
#pragma once

#include "platform/process/Applications.h"

#include <string>
#include <vector>

namespace cli {

/// A source as it was written: kind and value, "app:firefox".
struct Source {
    enum class Kind { Application, Identifier, Path, Process, System, Input };
    Kind mKind = Kind::System;
    std::string mValue;
    pid_t mPID = 0;  // for Process
};

/// The source as a person writes it.
std::string Written(const Source& source);

/// Reads a source. @return an empty string, or what is wrong with it, with an example of a right one
std::string ParseSource(const std::string& text, Source& source);

/// The processes that a source stands for, which is no input.
struct Resolution {
    std::vector<pid_t> mProcesses;  // empty for the whole system
    std::string mError;             // for a person; empty where the source was found
};

/// Finds a source among the applications that run. One that matches nothing, or applications that differ,
/// is an error that lists what is there, close names first.
///
/// @param processExists  says whether a process is there, for "pid:N"
Resolution Resolve(const Source& source, const std::vector<platform::process::Application>& applications,
                   bool (*processExists)(pid_t));

/// `names` with those most like `wanted` first; equally like ones keep their order.
std::vector<std::string> ClosestFirst(const std::string& wanted, std::vector<std::string> names);

}  // namespace cli
