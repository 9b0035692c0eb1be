// Terminal: whether a descriptor is a terminal, how wide it is, and how many of its columns a text takes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace cli {

enum class TerminalKind {
    None,
    Plain,    // TERM is "dumb" or not set: it shows escape sequences as text
    Complete  // takes escape sequences
};

TerminalKind FindTerminal(int descriptor);

/// Columns of the window now; 80 where the terminal does not say.
size_t TerminalColumns(int descriptor);

/// False while the process runs in the background of its terminal, whose user types something else there.
bool IsInForeground(int descriptor);

/// Columns that a text in UTF-8 takes: combining characters none, wide characters two.
///
/// Where terminals differ, the greater number, so that a line that fits by this count never wraps.
size_t DisplayColumns(std::string_view text);

/// The text, or the beginning of it and an ellipsis, in at most `columns`.
std::string CutToColumns(std::string_view text, size_t columns);

}  // namespace cli
