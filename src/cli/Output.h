// Output: how the command speaks to a person, and to a program that reads its JSON.
#pragma once

#include "utility/Printable.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>

namespace cli {

/// One line on standard error, with the command's name before it. @return `code`, for a return at once
int Complain(const std::string& text, int code);

/// On standard output; what it refuses is reported by FlushOutput.
void PrintText(std::string_view text);
/// On standard output. What other programs wrote may hold anything: bad bytes are replaced.
void Print(const nlohmann::json& json);
/// The same in one line, for a stream of events.
void PrintLine(const nlohmann::json& json);
/// As Print writes it, without the end of the line.
std::string ToText(const nlohmann::json& json);

/// Writes out what standard output still holds.
///
/// @return `code`, or kExitFailed after a sentence where standard output did not take everything
int FlushOutput(int code);

using utility::Printable;

}  // namespace cli
