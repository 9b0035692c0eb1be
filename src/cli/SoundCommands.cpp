#include "cli/Commands.h"
#include "cli/DeviceCommands.h"
#include "cli/ListCommand.h"

#include <CLI/CLI.hpp>

namespace cli {

namespace {

void AddList(CLI::App& app, Words& words)
{
    CLI::App* list = app.add_subcommand("list", "show what can be recorded, and virtual devices");
    list->require_subcommand(1);
    for (const auto& [name, help, run] : {std::tuple{"apps", "applications that have a stream", &ListApplications},
                                          std::tuple{"outputs", "devices that applications play on",
                                                     +[](bool asJSON) { return ListDevices(Side::Output, asJSON); }},
                                          std::tuple{"inputs", "microphones and other inputs",
                                                     +[](bool asJSON) { return ListDevices(Side::Input, asJSON); }},
                                          std::tuple{"devices", "virtual devices", &ListVirtualDevices}}) {
        CLI::App* what = list->add_subcommand(name, help);
        what->add_flag("--json", words.mJSON, "as JSON, with stable fields");
        what->callback([&words, run = run] { words.mResult = run(words.mJSON); });
    }
}

void AddRecord(CLI::App& app, Words& words)
{
    RecordOptions& options = words.mRecord;
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
    record->add_option("-d,--duration", options.mTime, "stop after this time")->type_name("SECONDS");
    record->add_flag("--force", options.mReplace, "replace a file that exists");
    record->add_flag("--json", options.mJSON, "the result as JSON, with stable fields");
    record->add_flag("--verbose", options.mVerbose, "say what was had of scheduling and locked memory");
    record->add_option("FILE", options.mFile, "the file to write; - for standard output");
    record->callback([&words] { words.mResult = RunRecord(words.mRecord); });
}

}  // namespace

void AddSoundCommands(CLI::App& app, Words& words)
{
    AddList(app, words);
    AddRecord(app, words);
}

}  // namespace cli
