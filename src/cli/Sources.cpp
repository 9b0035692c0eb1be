#include "cli/Sources.h"

#include "cli/ReadNumber.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

namespace cli {

using platform::process::Application;

namespace {

constexpr const char* kExample =
    "for example app:firefox, app-inverse:firefox, id:org.mozilla.firefox, path:/usr/bin/mpv, pid:1234, "
    "device:default, input:default or system";

std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return c < 128 ? std::tolower(c) : c; });
    return text;
}

// Levenshtein's distance, in bytes.
size_t Distance(const std::string& a, const std::string& b)
{
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t(0));
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t replaced = diagonal + (a[i] != b[j]);
            diagonal = row[j + 1];
            row[j + 1] = std::min({row[j + 1] + 1, row[j] + 1, replaced});
        }
    }
    return row.back();
}

// A name that contains the wanted one, or is contained in it, is as near as one with a wrong letter.
size_t Unlikeness(const std::string& wanted, const std::string& name)
{
    const std::string a = Lower(wanted), b = Lower(name);
    const bool contained = !a.empty() && !b.empty() && (a.find(b) != b.npos || b.find(a) != b.npos);
    return contained ? 1 : Distance(a, b);
}

bool Matches(const Source& source, const Application& application)
{
    switch (source.mKind) {
        case Source::Kind::Application:
        case Source::Kind::AllBut:
            return Lower(application.mName) == Lower(source.mValue);
        case Source::Kind::Identifier:
            return application.mIdentifier == source.mValue;
        case Source::Kind::Path:
            return application.mExecutable == source.mValue;
        default:
            return false;
    }
}

ApplicationIdentity IdentityOf(const Application& application)
{
    return {application.mName, application.mIdentifier};
}

std::string KeyOf(const Source& source, const Application& application)
{
    switch (source.mKind) {
        case Source::Kind::Identifier:
            return "id:" + application.mIdentifier;
        case Source::Kind::Path:
            return "path:" + application.mExecutable;
        default:
            return "app:" + application.mName;
    }
}

std::string ListWhatIsThere(const Source& source, const std::vector<Application>& applications)
{
    if (applications.empty()) return "No application has a stream on the audio server now.";
    std::vector<std::string> keys;
    for (const Application& application : applications) keys.push_back(KeyOf(source, application));
    const std::string wanted = source.mKind == Source::Kind::Identifier ? "id:"
                               : source.mKind == Source::Kind::Path     ? "path:"
                                                                        : "app:";
    keys = ClosestFirst(wanted + source.mValue, std::move(keys));
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    std::string text = "These are there:";
    for (const std::string& key : keys) text += "\n  " + key;
    return text;
}

std::string TellApart(const std::string& written, const std::vector<const Application*>& found)
{
    std::string text = fmt::format("'{}' is {} applications; choose one of them:", written, found.size());
    for (const Application* application : found)
        text +=
            fmt::format("\n  pid:{}  {}  {}", application->mPID, application->mIdentifier, application->mExecutable);
    return text;
}

}  // namespace

std::string Written(const Source& source)
{
    switch (source.mKind) {
        case Source::Kind::Application:
            return "app:" + source.mValue;
        case Source::Kind::AllBut:
            return "app-inverse:" + source.mValue;
        case Source::Kind::Identifier:
            return "id:" + source.mValue;
        case Source::Kind::Path:
            return "path:" + source.mValue;
        case Source::Kind::Process:
            return fmt::format("pid:{}", source.mPID);
        case Source::Kind::System:
            return "system";
        case Source::Kind::Output:
            return "device:" + source.mValue;
        case Source::Kind::Input:
            return "input:" + source.mValue;
    }
    return {};
}

std::string ParseSource(const std::string& text, Source& source)
{
    if (text == "system") {
        source = {Source::Kind::System, {}, 0};
        return {};
    }
    const size_t colon = text.find(':');
    const std::string kind = text.substr(0, colon);
    const std::string value = colon == text.npos ? "" : text.substr(colon + 1);
    if (colon == text.npos || value.empty()) return fmt::format("'{}' is not a source; {}", text, kExample);
    if (kind == "app")
        source = {Source::Kind::Application, value, 0};
    else if (kind == "app-inverse")
        source = {Source::Kind::AllBut, value, 0};
    else if (kind == "id")
        source = {Source::Kind::Identifier, value, 0};
    else if (kind == "path")
        source = {Source::Kind::Path, value, 0};
    else if (kind == "input")
        source = {Source::Kind::Input, value, 0};
    else if (kind == "device" && value == "default_input")
        source = {Source::Kind::Input, "default", 0};
    else if (kind == "device")
        source = {Source::Kind::Output, value == "default_output" ? "default" : value, 0};
    else if (kind == "pid") {
        pid_t pid = 0;
        if (!ReadNumber(value, pid) || pid < 1)
            return fmt::format("'{}' in '{}' is not a process number; for example pid:1234", value, text);
        source = {Source::Kind::Process, value, pid};
    } else {
        return fmt::format("'{}' in '{}' is no kind of source; {}", kind, text, kExample);
    }
    return {};
}

Resolution Resolve(const Source& source, const std::vector<Application>& applications, bool (*processExists)(pid_t))
{
    using Kind = Source::Kind;
    if (source.mKind == Kind::System || source.mKind == Kind::Output || source.mKind == Kind::Input) return {};
    if (source.mKind == Kind::Process) {
        if (processExists(source.mPID)) return {{source.mPID}, {}, {}};
        return {{}, {}, fmt::format("There is no process {}. {}", source.mPID, ListWhatIsThere(source, applications))};
    }
    std::vector<const Application*> found;
    for (const Application& application : applications)
        if (Matches(source, application)) found.push_back(&application);
    if (found.empty())
        return {{},
                {},
                fmt::format("'{}' matches no application. {}", Written(source), ListWhatIsThere(source, applications))};
    const ApplicationIdentity identity = IdentityOf(*found.front());
    if (std::ranges::any_of(found, [&](const Application* other) { return IdentityOf(*other) != identity; }))
        return {{}, {}, TellApart(Written(source), found)};
    return {ProcessesOf(identity, applications), identity, {}};
}

std::vector<pid_t> ProcessesOf(const ApplicationIdentity& identity, const std::vector<Application>& applications)
{
    std::vector<pid_t> processes;
    for (const Application& application : applications) {
        const bool same = (identity.mName.empty() || identity.mName == application.mName) &&
                          (identity.mIdentifier.empty() || identity.mIdentifier == application.mIdentifier);
        if (!same) continue;
        processes.push_back(application.mPID);
        processes.insert(processes.end(), application.mHelpers.begin(), application.mHelpers.end());
    }
    return processes;
}

std::vector<std::string> ClosestFirst(const std::string& wanted, std::vector<std::string> names)
{
    std::stable_sort(names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
        return Unlikeness(wanted, a) < Unlikeness(wanted, b);
    });
    return names;
}

}  // namespace cli
