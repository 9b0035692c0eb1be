#include "cli/ListCommand.h"

#include "cli/ExitCodes.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "platform/process/Applications.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace cli {

using platform::process::Application;
using platform::process::IdentifierSource;

namespace {

const char* NameOf(IdentifierSource source)
{
    switch (source) {
        case IdentifierSource::SandboxID:
            return "sandbox id";
        case IdentifierSource::DesktopScope:
            return "desktop scope";
        case IdentifierSource::DesktopEntry:
            return "desktop entry";
        case IdentifierSource::ServerProperty:
            return "server property";
        case IdentifierSource::Executable:
            return "executable";
    }
    return "";
}

bool TellNoServer()
{
    const auto why = WhyNoServer();
    if (why) Complain(*why, kExitNoServer);
    return why.has_value();
}

}  // namespace

int ListApplications(bool json)
{
    if (TellNoServer()) return kExitNoServer;
    const std::vector<Application> applications = platform::process::CopyApplications();
    if (json) {
        nlohmann::json list = nlohmann::json::array();
        for (const Application& a : applications)
            list.push_back({{"pid", a.mPID},
                            {"name", a.mName},
                            {"identifier", a.mIdentifier},
                            {"identifier_source", NameOf(a.mIdentifierSource)},
                            {"path", a.mExecutable},
                            {"playing", a.mPlaying},
                            {"outputs", a.mOutputs},
                            {"helpers", a.mHelpers}});
        Print({{"applications", list}});
        return kExitDone;
    }
    if (applications.empty()) fmt::print("No application has a stream on the audio server.\n");
    Table table({"PID", "STATE", "NAME", "PLAYS ON", "IDENTIFIER", "EXECUTABLE"});
    for (const Application& a : applications)
        table.Add({std::to_string(a.mPID), a.mPlaying ? "playing" : "idle", a.mName,
                   a.mOutputs.empty() ? "-" : fmt::format("{}", fmt::join(a.mOutputs, ", ")), a.mIdentifier,
                   a.mExecutable});
    if (!applications.empty()) table.Print();
    return kExitDone;
}

int ListDevices(Side side, bool json)
{
    if (TellNoServer()) return kExitNoServer;
    const std::vector<Device> devices = CopyDevices(side);
    if (json) {
        nlohmann::json list = nlohmann::json::array();
        for (const Device& d : devices)
            list.push_back({{"uid", d.mUID},
                            {"name", d.mName},
                            {"rate", d.mRateHz},
                            {"channels", d.mChannels},
                            {"default", d.mIsDefault}});
        Print({{side == Side::Input ? "inputs" : "outputs", list}});
        return kExitDone;
    }
    if (devices.empty()) fmt::print("The audio server has no {} device.\n", side == Side::Input ? "input" : "output");
    Table table({" ", "UID", "RATE", "CHANNELS", "NAME"});
    for (const Device& d : devices)
        table.Add({d.mIsDefault ? "*" : " ", d.mUID, fmt::format("{:.0f} Hz", d.mRateHz),
                   fmt::format("{} ch", d.mChannels), d.mName});
    if (!devices.empty()) table.Print();
    return kExitDone;
}

}  // namespace cli
