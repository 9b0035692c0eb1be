// Printable: text of others, made safe for a terminal.
#pragma once

#include <string>

namespace utility {

/// The text with every control character replaced by '?', so that nothing in it moves or colours a terminal's cursor.
std::string Printable(std::string text);

}  // namespace utility
