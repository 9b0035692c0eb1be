#include "cli/ListCommand.h"

#include "cli/ExitCodes.h"
#include "cli/Output.h"
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
                            {"helpers", a.mHelpers}});
        Print({{"applications", list}});
        return kExitDone;
    }
    if (applications.empty()) fmt::print("No application has a stream on the audio server.\n");
    for (const Application& a : applications)
        fmt::print("{:>7}  {:<7}  {:<24}  {} ({})  {}\n", a.mPID, a.mPlaying ? "playing" : "idle", Printable(a.mName),
                   Printable(a.mIdentifier), NameOf(a.mIdentifierSource), Printable(a.mExecutable));
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
    for (const Device& d : devices)
        fmt::print("{} {:<32}  {:>6.0f} Hz  {:>2} ch  {}\n", d.mIsDefault ? '*' : ' ', Printable(d.mUID), d.mRateHz,
                   d.mChannels, Printable(d.mName));
    return kExitDone;
}

}  // namespace cli
