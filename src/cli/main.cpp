// corvane: the command. Reads the words, and hands them to one command.
#include "cli/ExitCodes.h"
#include "cli/ListCommand.h"
#include "cli/RecordCommand.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

namespace {

using namespace cli;

void AddList(CLI::App& app, bool& json, int& result)
{
    CLI::App* list = app.add_subcommand("list", "show what can be recorded");
    list->require_subcommand(1);
    for (const auto& [name, help, run] : {std::tuple{"apps", "applications that have a stream", &ListApplications},
                                          std::tuple{"outputs", "devices that applications play on",
                                                     +[](bool asJSON) { return ListDevices(Side::Output, asJSON); }},
                                          std::tuple{"inputs", "microphones and other inputs",
                                                     +[](bool asJSON) { return ListDevices(Side::Input, asJSON); }}}) {
        CLI::App* what = list->add_subcommand(name, help);
        what->add_flag("--json", json, "as JSON, with stable fields");
        what->callback([&json, &result, run = run] { result = run(json); });
    }
}

void AddRecord(CLI::App& app, RecordOptions& options, int& result)
{
    CLI::App* record = app.add_subcommand("record", "record applications, or everything that is played, to a WAV file");
    record
        ->add_option(
            "--source", options.mSources,
            "app:NAME, id:IDENTIFIER, path:EXECUTABLE, pid:N, input:NAME or system (the default); may be given again")
        ->take_all()
        ->allow_extra_args(false)
        ->type_name("SOURCE");
    record
        ->add_option("--from", options.mFrom,
                     "take only what plays on this output (see list outputs); may be given again")
        ->take_all()
        ->allow_extra_args(false)
        ->type_name("OUTPUT");
    record
        ->add_option("-c,--channels", options.mChannels,
                     "channels of the mix (default 2); 0: every source keeps its own")
        ->type_name("COUNT");
    record->add_option("-r,--rate", options.mRate, "sample rate (default: the output's)")->type_name("HZ");
    record->add_option("-f,--format", options.mFormat, "f32, s24 or s16 (default f32)")->type_name("FORMAT");
    record->add_option("-d,--duration", options.mSeconds, "stop after this time")->type_name("SECONDS");
    record->add_flag("--force", options.mReplace, "replace a file that exists");
    record->add_flag("--json", options.mJSON, "the result as JSON, with stable fields");
    record->add_flag("--verbose", options.mVerbose, "say what was had of scheduling and locked memory");
    record->add_option("FILE", options.mFile, "the file to write; - for standard output");
    record->callback([&] { result = RunRecord(options); });
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("Records what applications play, aligned to the sample.", "corvane");
    app.set_version_flag("--version", "corvane " CORVANE_VERSION);
    app.require_subcommand(1);
    bool json = false;
    int result = kExitDone;
    RecordOptions record;
    AddList(app, json, result);
    AddRecord(app, record, result);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        fmt::print(stderr,
                   "corvane: {}; see corvane --help, for example corvane record --source app:firefox -d 10 talk.wav\n",
                   error.what());
        return kExitUsage;
    }
    return result;
}
