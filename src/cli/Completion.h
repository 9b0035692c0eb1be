// Completion: what a shell offers when TAB is pressed, one candidate a line.
// Why: names come from other programs and may hold anything that a shell would run. The command chooses the candidates
// and prints them raw; the scripts in packaging/completion only filter and quote them, and never evaluate them.
// Start at PrintCandidates.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace cli {

/// Prints what may stand in place of the last word, with a description behind a tab where one helps. An empty line
/// stands for file names. Names with control characters are left out, so that a line is one candidate.
///
/// @param words  of the command line, without the command's name; the last is the one that is being written
/// @return       an exit code
int PrintCandidates(const CLI::App& app, const std::vector<std::string>& words);

}  // namespace cli
