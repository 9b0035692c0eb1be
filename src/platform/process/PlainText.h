// PlainText: text that others chose, made fit for a terminal and for strings that must be UTF-8.
// Why: a process may call itself anything, an escape sequence for instance.
#pragma once

#include <string>
#include <string_view>

namespace platform::process {

/// `text` with every control character, and every byte that is not UTF-8, replaced by U+FFFD.
std::string PlainText(std::string_view text);

}  // namespace platform::process
