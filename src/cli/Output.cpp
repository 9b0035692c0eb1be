#include "cli/Output.h"

#include "cli/ExitCodes.h"
#include "cli/Messages.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace cli {

namespace {

bool sReported = false;  // that output failed
int sOutputError = 0;    // the first of standard output, which keeps no error number itself

std::string Dump(const nlohmann::json& json, int indent)
{
    return json.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

int Complain(const std::string& text, int code)
{
    Messages::Standard().Tell(text);
    return code;
}

void PrintText(std::string_view text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) < text.size() && sOutputError == 0) sOutputError = errno;
}

void Print(const nlohmann::json& json)
{
    PrintText(ToText(json) + '\n');
}

void PrintLine(const nlohmann::json& json)
{
    PrintText(Dump(json, -1) + '\n');
    if (std::fflush(stdout) != 0 && sOutputError == 0) sOutputError = errno;
}

std::string ToText(const nlohmann::json& json)
{
    return Dump(json, 2);
}

int FlushOutput(int code)
{
    if (std::fflush(stdout) != 0 && sOutputError == 0) sOutputError = errno;
    if (sOutputError == 0 && std::ferror(stdout) == 0) return code;
    const int failed = code == kExitDone ? int(kExitFailed) : code;
    if (std::exchange(sReported, true)) return failed;
    const std::string why = sOutputError ? std::string(": ") + std::strerror(sOutputError) : "";
    return Complain("standard output cannot be written" + why, failed);
}

}  // namespace cli
