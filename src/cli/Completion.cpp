#include "cli/Completion.h"

#include "cli/CommandLine.h"
#include "cli/DeviceCommands.h"
#include "cli/Devices.h"
#include "cli/ExitCodes.h"
#include "cli/Output.h"
#include "platform/process/Applications.h"

#include <fmt/format.h>

#include <algorithm>

namespace cli {

namespace {

struct Candidate {
    std::string mText;
    std::string mDescription;  // may be empty
};
using Candidates = std::vector<Candidate>;

constexpr const char* kFileNames = "";

bool ServerAnswers()
{
    static const bool sAnswers = ServerAnswersAtOnce();  // asked once: each miss would be waited for
    return sAnswers;
}

void AddApplications(const std::string& prefix, Candidates& candidates)
{
    if (!ServerAnswers()) return;
    for (const auto& application : platform::process::CopyApplications())
        candidates.push_back({prefix + application.mName, application.mPlaying ? "playing" : "idle"});
}

void AddDevices(Side side, const std::string& prefix, Candidates& candidates)
{
    if (!ServerAnswers()) return;
    for (const Device& device : CopyDevices(side)) candidates.push_back({prefix + device.mUID, device.mName});
}

Candidates Sources()
{
    Candidates candidates{{"system", "everything that plays"}, {"input:default", "the default input"}};
    AddApplications("app:", candidates);
    AddDevices(Side::Input, "input:", candidates);
    return candidates;
}

Candidates RecordSources()
{
    Candidates candidates = Sources();
    candidates.push_back({"device:default", "what plays on the default output"});
    AddApplications("app-inverse:", candidates);
    AddDevices(Side::Output, "device:", candidates);
    return candidates;
}

Candidates Outputs(Candidates first)
{
    AddDevices(Side::Output, "", first);
    return first;
}

Candidates VirtualDevices()
{
    Candidates candidates;
    for (const std::string& name : VirtualDeviceNames()) candidates.push_back({name, ""});
    return candidates;
}

/// Tracks are written NAME=SOURCE,SOURCE: the source behind the last separator is the one to complete.
Candidates TrackSources(const std::string& word)
{
    size_t begin = 0;
    for (size_t i = 0; i < word.size(); ++i) {
        if (word[i] == '\\')
            ++i;
        else if (word[i] == ',' || (word[i] == '=' && begin == 0))
            begin = i + 1;
    }
    if (begin == 0) return {};
    Candidates candidates = RecordSources();
    for (Candidate& candidate : candidates) {
        std::string quoted = word.substr(0, begin);
        for (const char c : candidate.mText) quoted += c == ',' || c == '\\' ? std::string{'\\', c} : std::string{c};
        candidate.mText = quoted;
    }
    return candidates;
}

/// What a value of that name in the usage may be.
Candidates ValuesOf(const Place& place, const std::string& kind, const std::string& word)
{
    const bool records = place.mCommand->get_name() == "record";
    if (kind == "SOURCE") return records ? RecordSources() : Sources();
    if (kind == "NAME=SOURCE,...") return TrackSources(word);
    if (kind == "OUTPUT") {
        const Candidate standard{"default", "the default output"};
        if (place.mCommand->get_name() == "route") return Outputs({standard});
        return Outputs(records ? Candidates() : Candidates{standard, {"all", "all outputs"}});
    }
    if (kind == "APPLICATION") {
        Candidates candidates;
        AddApplications("app:", candidates);
        return candidates;
    }
    if (kind == "DEVICE") return VirtualDevices();
    if (kind == "FORMAT") return {{"f32", "32-bit float"}, {"s24", "24-bit integer"}, {"s16", "16-bit integer"}};
    if (kind == "TYPE") return {{"wav", ""}, {"flac", ""}, {"raw", ""}};
    if (kind == "MODE") return {{"json", ""}};
    if (kind == "FILE") return {{kFileNames, ""}};
    return {};
}

Candidates Commands(const CLI::App& command)
{
    Candidates candidates;
    for (const CLI::App* one : command.get_subcommands([](const CLI::App*) { return true; }))
        candidates.push_back({one->get_name(), one->get_description()});
    return candidates;
}

Candidates Options(const CLI::App& command)
{
    Candidates candidates;
    for (const CLI::Option* option : command.get_options())
        for (const std::string& name : option->get_lnames())
            candidates.push_back({"--" + name, option->get_description()});
    return candidates;
}

Candidates Positionals(const Place& place, const std::string& word)
{
    Candidates candidates = Commands(*place.mCommand);
    if (!candidates.empty()) return candidates;
    const auto options =
        place.mCommand->get_options([](const CLI::Option* option) { return option->get_positional(); });
    size_t passed = 0;
    for (const CLI::Option* option : options) {
        passed += size_t(option->get_items_expected_max());
        if (passed > place.mPositionals) return ValuesOf(place, option->get_single_name(), word);
    }
    return {};
}

Candidates CandidatesFor(const Place& place, const std::string& word)
{
    if (place.mValueOf) return ValuesOf(place, place.mValueOf->get_type_name(), word);
    if (place.mOptionsEnded || !word.starts_with('-')) return Positionals(place, word);
    const size_t equals = word.find('=');
    if (equals == word.npos) return Options(*place.mCommand);
    const CLI::Option* option = place.mCommand->get_option_no_throw(word.substr(0, equals));
    Candidates candidates;
    if (TakesValue(option)) candidates = ValuesOf(place, option->get_type_name(), word.substr(equals + 1));
    for (Candidate& candidate : candidates) candidate.mText.insert(0, word, 0, equals + 1);
    return candidates;
}

bool HasControls(const std::string& text)
{
    return std::ranges::any_of(text, [](unsigned char c) { return c < 0x20 || c == 0x7F; });
}

}  // namespace

int PrintCandidates(const CLI::App& app, const std::vector<std::string>& words)
{
    const std::string word = words.empty() ? "" : words.back();
    const Place place = Walk(app, std::span(words).first(words.empty() ? 0 : words.size() - 1));
    const bool wantsOption = word.starts_with('-') && !place.mValueOf;
    for (const Candidate& candidate : CandidatesFor(place, word)) {
        // A name that looks like an option would be taken for one.
        if (HasControls(candidate.mText) || (candidate.mText.starts_with('-') && !wantsOption)) continue;
        fmt::print("{}\t{}\n", candidate.mText, Printable(candidate.mDescription));
    }
    return kExitDone;
}

}  // namespace cli
