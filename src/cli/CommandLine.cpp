#include "cli/CommandLine.h"

#include "cli/NameMatching.h"

#include <fmt/format.h>

#include <map>

namespace cli {

namespace {

const CLI::App* FindCommand(const CLI::App& command, const std::string& name)
{
    const auto found = command.get_subcommands([&](const CLI::App* one) { return one->get_name() == name; });
    return found.empty() ? nullptr : found.front();
}

std::vector<const CLI::Option*> Positionals(const CLI::App& command)
{
    return command.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

size_t MostPositionals(const CLI::App& command)
{
    size_t most = 0;
    for (const CLI::Option* option : Positionals(command)) most += size_t(option->get_items_expected_max());
    return most;
}

// "-c2" and "--rate=48000" carry their value.
const CLI::Option* FindOption(const CLI::App& command, const std::string& word, bool& hasValue)
{
    const CLI::Option* option = command.get_option_no_throw(word);
    hasValue = option == nullptr;
    if (option) return option;
    return command.get_option_no_throw(word.starts_with("--") ? word.substr(0, word.find('=')) : word.substr(0, 2));
}

void Pass(const std::string& word, Place& place)
{
    bool hasValue = false;
    if (place.mValueOf) {
        place.mValueOf = nullptr;
    } else if (!place.mOptionsEnded && word == "--") {
        place.mOptionsEnded = true;
    } else if (!place.mOptionsEnded && word.size() > 1 && word[0] == '-') {
        const CLI::Option* option = FindOption(*place.mCommand, word, hasValue);
        if (!option && place.mUnexpected.empty()) place.mUnexpected = word;
        if (TakesValue(option) && !hasValue) place.mValueOf = option;
    } else if (const CLI::App* command = FindCommand(*place.mCommand, word)) {
        place.mCommand = command;
    } else if (++place.mPositionals > MostPositionals(*place.mCommand) && place.mUnexpected.empty()) {
        place.mUnexpected = word;
    }
}

const char* ExampleOf(const std::string& command)
{
    static const std::map<std::string, const char*> sExamples = {
        {"list", "list apps"},
        {"apps", "list apps"},
        {"outputs", "list outputs"},
        {"inputs", "list inputs"},
        {"devices", "list devices"},
        {"add", "add Podcast --source app:firefox"},
        {"set", "set Podcast -c 0"},
        {"rename", "rename Podcast Interview"},
        {"remove", "remove Podcast"},
        {"enable", "enable Podcast"},
        {"disable", "disable Podcast"},
        {"show", "show Podcast"},
        {"doctor", "doctor --json"},
        {"watch", "watch --all"},
        {"route", "route app:firefox default"},
    };
    const auto found = sExamples.find(command);
    return found == sExamples.end() ? "record --source app:firefox -d 10 talk.wav" : found->second;
}

std::string FullName(const CLI::App& command)
{
    const CLI::App* parent = command.get_parent();
    return parent ? FullName(*parent) + " " + command.get_name() : command.get_name();
}

std::string DescribeUnexpected(const Place& place)
{
    const std::string& word = place.mUnexpected;
    const std::string command = FullName(*place.mCommand);
    const auto commands = CommandNames(*place.mCommand);
    const auto closest = [&](const std::vector<std::string>& names) { return ClosestFirst(word, names).front(); };
    if (word[0] == '-')
        return fmt::format("'{}' is no option of {}; the closest is {}", word, command,
                           closest(OptionNames(*place.mCommand)));
    if (!commands.empty())
        return fmt::format("'{}' is no command of {}; the closest is {}", word, command, closest(commands));
    return fmt::format("'{}' is one word too many for {}", word, command);
}

std::string DescribeMissing(const Place& place)
{
    const std::string command = FullName(*place.mCommand);
    const auto commands = CommandNames(*place.mCommand);
    if (place.mValueOf)
        return fmt::format("{} of {} needs a value, {}", place.mValueOf->get_name(), command,
                           place.mValueOf->get_type_name());
    if (!commands.empty()) return fmt::format("{} needs a command: {}", command, fmt::join(commands, ", "));
    size_t there = place.mPositionals;
    for (const CLI::Option* option : Positionals(*place.mCommand)) {
        if (option->get_required() && there == 0) return fmt::format("{} needs {}", command, option->get_single_name());
        there -= std::min(there, size_t(option->get_items_expected_max()));
    }
    return {};
}

}  // namespace

Place Walk(const CLI::App& app, std::span<const std::string> words)
{
    Place place{&app};
    for (const std::string& word : words) Pass(word, place);
    return place;
}

bool TakesValue(const CLI::Option* option)
{
    return option && option->get_items_expected_max() > 0;
}

std::vector<std::string> CommandNames(const CLI::App& command)
{
    std::vector<std::string> names;
    for (const CLI::App* one : command.get_subcommands([](const CLI::App*) { return true; }))
        names.push_back(one->get_name());
    return names;
}

std::vector<std::string> OptionNames(const CLI::App& command)
{
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options())
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    return names;
}

std::string DescribeUsageError(const CLI::App& app, const std::vector<std::string>& words, const std::string& otherwise)
{
    const Place place = Walk(app, words);
    std::string text = place.mUnexpected.empty() ? DescribeMissing(place) : DescribeUnexpected(place);
    if (text.empty()) text = otherwise;
    return fmt::format("{}; for example corvane {}, or see {} --help", text, ExampleOf(place.mCommand->get_name()),
                       FullName(*place.mCommand));
}

}  // namespace cli
