#include "cli/Commands.h"
#include "cli/DeviceCommands.h"
#include "cli/DoctorCommand.h"
#include "cli/ExitCodes.h"
#include "cli/Output.h"
#include "cli/RouteCommand.h"
#include "cli/WatchCommand.h"

#include <CLI/CLI.hpp>

namespace cli {

namespace {

void AddDeviceOptions(CLI::App& command, DeviceOptions& options)
{
    command
        .add_option("--source", options.mSources,
                    "app:NAME, id:IDENTIFIER, path:EXECUTABLE, input:NAME or system; may be given again")
        ->take_all()
        ->allow_extra_args(false)
        ->type_name("SOURCE");
    command
        .add_option("--from", options.mFrom,
                    "what plays on this output, on the default one (default) or on all; may be given again")
        ->take_all()
        ->allow_extra_args(false)
        ->type_name("OUTPUT");
    command.add_option("-c,--channels", options.mChannels, "1 or 2 (at first 2); 0: every source keeps its own")
        ->type_name("COUNT");
    command.add_option("-r,--rate", options.mRate, "sample rate (at first the output's)")->type_name("HZ");
}

CLI::App* AddCommand(CLI::App& app, Words& words, const char* name, const char* help, std::function<int()> run)
{
    CLI::App* command = app.add_subcommand(name, help);
    command->callback([&words, run = std::move(run)] { words.mResult = run(); });
    return command;
}

void AddChanges(CLI::App& app, Words& words)
{
    CLI::App* add = AddCommand(app, words, "add", "make a virtual device, an input with the sound of the sources",
                               [&words] { return AddDevice(words.mName, words.mDevice, words.mJSON); });
    add->add_option("NAME", words.mName, "of the device; programs show it behind \"Corvane: \"")->required();
    AddDeviceOptions(*add, words.mDevice);
    add->add_flag("--json", words.mJSON, "the device as JSON, with stable fields");

    CLI::App* set = AddCommand(app, words, "set", "change what a device captures, and how",
                               [&words] { return SetDevice(words.mName, words.mDevice); });
    set->add_option("DEVICE", words.mName, "name, number or UID")->required();
    AddDeviceOptions(*set, words.mDevice);

    CLI::App* rename = AddCommand(app, words, "rename", "give a device another name",
                                  [&words] { return RenameDevice(words.mName, words.mOther); });
    rename->add_option("DEVICE", words.mName, "name, number or UID")->required();
    rename->add_option("NAME", words.mOther, "the new name")->required();

    CLI::App* remove =
        AddCommand(app, words, "remove", "remove devices", [&words] { return RemoveDevices(words.mNames); });
    remove->add_option("DEVICE", words.mNames, "name, number or UID")->required();

    for (const bool enabled : {true, false}) {
        CLI::App* command =
            AddCommand(app, words, enabled ? "enable" : "disable",
                       enabled ? "bring disabled devices back" : "hide devices until they are enabled again",
                       [&words, enabled] { return EnableDevices(words.mNames, words.mAll, enabled); });
        command->add_option("DEVICE", words.mNames, "name, number or UID");
        command->add_flag("--all", words.mAll, "the switch of all devices");
    }
}

void AddLooks(CLI::App& app, Words& words)
{
    CLI::App* show = AddCommand(app, words, "show", "everything about a device",
                                [&words] { return ShowDevice(words.mName, words.mJSON); });
    show->add_option("DEVICE", words.mName, "name, number or UID")->required();
    CLI::App* doctor = AddCommand(app, words, "doctor", "check settings, plug-in and audio server, and say what to do",
                                  [&words] { return RunDoctor(words.mJSON); });
    CLI::App* watch = AddCommand(app, words, "watch", "report virtual devices as they appear, change and disappear",
                                 [&words] { return RunWatch(words.mJSON, words.mAll); });
    watch->add_flag("--all", words.mAll, "also the machine's own devices");
    for (CLI::App* command : {show, doctor, watch})
        command->add_flag("--json", words.mJSON, "as JSON, with stable fields");
}

int RunRoute(const Words& words)
{
    if (words.mName.empty()) return ListRoutes(words.mJSON);
    if (words.mOther.empty() == words.mClear) return RouteApplication(words.mName, words.mOther);
    return Complain("name an output, or give --clear; for example corvane route app:firefox default", kExitUsage);
}

void AddRoute(CLI::App& app, Words& words)
{
    CLI::App* route = AddCommand(app, words, "route",
                                 "choose the output for the own sound of an application that records from a virtual "
                                 "device; without arguments, show the choices",
                                 [&words] { return RunRoute(words); });
    route->add_option("APPLICATION", words.mName, "app:NAME, id:IDENTIFIER or path:EXECUTABLE");
    route->add_option("OUTPUT", words.mOther, "as listed, or default");
    route->add_flag("--clear", words.mClear, "forget the choice for this application");
    route->add_flag("--json", words.mJSON, "as JSON, with stable fields");
}

}  // namespace

void AddDeviceCommands(CLI::App& app, Words& words)
{
    AddChanges(app, words);
    AddLooks(app, words);
    AddRoute(app, words);
}

}  // namespace cli
