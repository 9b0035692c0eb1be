#include "cli/Output.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdio>

namespace cli {

namespace {

std::string Dump(const nlohmann::json& json, int indent)
{
    return json.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

int Complain(const std::string& text, int code)
{
    fmt::print(stderr, "corvane: {}\n", text);
    return code;
}

void Print(const nlohmann::json& json)
{
    fmt::print("{}\n", Dump(json, 2));
}

void PrintLine(const nlohmann::json& json)
{
    fmt::print("{}\n", Dump(json, -1));
    std::fflush(stdout);
}

}  // namespace cli
