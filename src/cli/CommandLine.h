// CommandLine: where a word of a command line stands, by the options and commands that the parser knows.
// Why: completion and usage errors look at a command line that is incomplete or wrong. Start at Walk.
#pragma once

#include <CLI/CLI.hpp>

#include <span>
#include <string>
#include <vector>

namespace cli {

/// Where the word behind some words of a command line stands.
struct Place {
    const CLI::App* mCommand;
    const CLI::Option* mValueOf = nullptr;  // the option whose value comes next
    size_t mPositionals = 0;                // words that belong to no option
    bool mOptionsEnded = false;             // by "--"
    std::string mUnexpected;                // the first word that the command does not know; empty where there is none
};

/// @param words  without the command's name
Place Walk(const CLI::App& app, std::span<const std::string> words);

/// Whether the option has a value, and is no flag; false for null.
bool TakesValue(const CLI::Option* option);

/// The names of a command's subcommands, and of its options with "--".
std::vector<std::string> CommandNames(const CLI::App& command);
std::vector<std::string> OptionNames(const CLI::App& command);

/// One sentence about a command line that the parser refused: the wrong word quoted, and an example of the command.
///
/// @param otherwise  the parser's own words, for what is not seen here
std::string DescribeUsageError(const CLI::App& app, const std::vector<std::string>& words,
                               const std::string& otherwise);

}  // namespace cli
