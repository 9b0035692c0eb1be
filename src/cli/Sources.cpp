#include "cli/Sources.h"

#include "cli/ReadNumber.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace cli {

using platform::process::Application;

namespace {

constexpr const char* kExample =
    "for example app:firefox, app-inverse:firefox, id:org.mozilla.firefox, path:/usr/bin/mpv, pid:1234, "
    "device:default, input:default or system";

std::vector<std::string> NamesOf(const Application& application)
{
    const std::string& identifier = application.mIdentifier;
    const size_t dot = identifier.rfind('.');
    return {application.mName, application.mServerName, std::filesystem::path(application.mExecutable).filename(),
            dot == identifier.npos ? identifier : identifier.substr(dot + 1)};
}

ApplicationIdentity IdentityOf(const Application& application)
{
    return {application.mName, application.mIdentifier};
}

// What of an application this kind of source is compared with.
std::string KeyOf(const Source& source, const Application& application)
{
    switch (source.mKind) {
        case Source::Kind::Identifier:
            return application.mIdentifier;
        case Source::Kind::Path:
            return application.mExecutable;
        default:
            return application.mName;
    }
}

std::vector<const Application*> MatchesOf(const Source& source, const std::vector<Application>& applications)
{
    if (source.mKind == Source::Kind::Application || source.mKind == Source::Kind::AllBut)
        return FindApplications(source.mValue, applications);
    std::vector<const Application*> found;
    for (const Application& application : applications)
        if (KeyOf(source, application) == source.mValue) found.push_back(&application);
    return found;
}

std::string ListOf(const Source& source, const std::vector<Application>& applications, bool playing)
{
    std::vector<std::string> keys;
    for (const Application& application : applications)
        if (application.mPlaying == playing) keys.push_back(KeyOf(source, application));
    return ListClosest(source.mValue, std::move(keys));
}

// Of an identifier that several names share, the identifier is what stays the same.
std::optional<ApplicationIdentity> SharedIdentity(const Source& source, const std::vector<const Application*>& found)
{
    const ApplicationIdentity identity = IdentityOf(*found.front());
    const auto isOther = [&](const Application* one) { return IdentityOf(*one) != identity; };
    if (std::ranges::none_of(found, isOther)) return identity;
    if (source.mKind == Source::Kind::Identifier) return ApplicationIdentity{{}, source.mValue};
    return std::nullopt;
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
    if (pid_t pid = 0; ReadNumber(text, pid) && pid > 0) {  // as "corvane list apps" shows it
        source = {Source::Kind::Process, text, pid};
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
    else if (kind == "path" && value[0] != '/')
        return fmt::format("'{}' in '{}' is not an absolute path; for example path:/usr/bin/mpv", value, text);
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

std::vector<const Application*> FindApplications(const std::string& name, const std::vector<Application>& applications)
{
    return BestMatches(name, applications, NamesOf);
}

std::string TellNoMatch(const Source& source, const std::vector<Application>& applications)
{
    const std::string playing = ListOf(source, applications, true), paused = ListOf(source, applications, false);
    std::string text = source.mKind == Source::Kind::Process ? fmt::format("No process has the number {}.", source.mPID)
                       : source.mKind == Source::Kind::Identifier
                           ? fmt::format("No application has the identifier '{}'.", source.mValue)
                       : source.mKind == Source::Kind::Path
                           ? fmt::format("No application runs '{}'.", source.mValue)
                           : fmt::format("No application matches '{}'.", source.mValue);
    text += playing.empty() ? " No application plays now." : fmt::format(" Playing now: {}.", playing);
    if (!paused.empty()) text += fmt::format(" Paused: {}.", paused);
    return text + " See: corvane list apps.";
}

std::string TellApart(const Source& source, const std::vector<const Application*>& found)
{
    std::string text = fmt::format("'{}' matches {} applications. Choose one of them:", Written(source), found.size());
    for (const Application* one : found)
        text += fmt::format("\n  {:<24}  pid:{}  id:{}", one->mName, one->mPID, one->mIdentifier);
    return text;
}

Resolution Resolve(const Source& source, const std::vector<Application>& applications, bool (*processExists)(pid_t))
{
    using Kind = Source::Kind;
    if (source.mKind == Kind::System || source.mKind == Kind::Output || source.mKind == Kind::Input) return {};
    if (source.mKind == Kind::Process) {
        if (processExists(source.mPID)) return {{source.mPID}, {}, {}};
        return {{}, {}, TellNoMatch(source, applications)};
    }
    const auto found = MatchesOf(source, applications);
    if (found.empty()) return {{}, {}, TellNoMatch(source, applications)};
    const auto identity = SharedIdentity(source, found);
    if (!identity) return {{}, {}, TellApart(source, found)};
    return {ProcessesOf(*identity, applications), identity, {}};
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

}  // namespace cli
