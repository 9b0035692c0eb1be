// Output: how the command speaks to a person, and to a program that reads its JSON.
#pragma once

#include "utility/Printable.h"

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace cli {

/// One line on standard error, with the command's name before it. @return `code`, for a return at once
int Complain(const std::string& text, int code);

/// On standard output. What other programs wrote may hold anything: bad bytes are replaced.
void Print(const nlohmann::json& json);
/// The same in one line, for a stream of events.
void PrintLine(const nlohmann::json& json);

using utility::Printable;

}  // namespace cli
