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

void AddChoiceOfSources(CLI::App& record, RecordOptions& options)
{
    const auto addList = [&](const char* name, std::vector<std::string>& values, const char* help, const char* type) {
        record.add_option(name, values, help)->take_all()->allow_extra_args(false)->type_name(type);
    };
    addList("--source", options.mSources,
            "app:NAME, app-inverse:NAME (all but it), id:IDENTIFIER, path:EXECUTABLE, pid:N, device:OUTPUT, "
            "input:NAME or system (the default); may be given again",
            "SOURCE");
    addList("--track", options.mTracks, "a track of its own from these sources; may be given again", "NAME=SOURCE,...");
    addList("--from", options.mFrom, "take only what plays on this output (see list outputs); may be given again",
            "OUTPUT");
    record.add_flag("--wait", options.mWait, "wait for applications that do not play yet");
}

void AddChoiceOfFile(CLI::App& record, RecordOptions& options)
{
    record
        .add_option("-c,--channels", options.mChannels,
                    "channels of the mix (default 2); 0: every source keeps its own")
        ->type_name("COUNT");
    record.add_option("-r,--rate", options.mRate, "sample rate, as 48000 or 44.1k (default: the output's)")
        ->type_name("HZ");
    record.add_option("-f,--format", options.mFormat, "f32, s24 or s16 (default f32; of FLAC s24)")
        ->type_name("FORMAT");
    record.add_option("-t,--file-type", options.mFileType, "wav, flac or raw (default: by the name of the file)")
        ->type_name("TYPE");
    record.add_option("-d,--duration", options.mTime, "stop after this time, as 90, 10:00, 1h30m or 250ms")
        ->type_name("TIME");
    record.add_option("--max-file-time", options.mMaxFileTime, "begin another file after each such time")
        ->type_name("TIME");
    record.add_flag("--force", options.mReplace, "replace a file that exists");
    record.add_option("FILE", options.mFile, "the file to write; - for standard output");
}

void AddRecord(CLI::App& app, Words& words)
{
    RecordOptions& options = words.mRecord;
    CLI::App* record = app.add_subcommand("record", "record applications, or everything that is played, to a file");
    AddChoiceOfSources(*record, options);
    AddChoiceOfFile(*record, options);
    record->add_flag("--json", options.mJSON, "the result as JSON, with stable fields");
    record->add_option("--progress", options.mProgress, "json: levels and losses as JSON lines while it records")
        ->type_name("MODE");
    record->add_flag("--verbose", options.mVerbose, "say which scheduling and locked memory were granted");
    record->callback([&words] { words.mResult = RunRecord(words.mRecord); });
}

}  // namespace

void AddSoundCommands(CLI::App& app, Words& words)
{
    AddList(app, words);
    AddRecord(app, words);
}

}  // namespace cli
