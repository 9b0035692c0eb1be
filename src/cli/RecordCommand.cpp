#include "cli/RecordCommand.h"

#include "cli/Devices.h"
#include "cli/ExitCodes.h"
#include "cli/Output.h"
#include "cli/Progress.h"
#include "cli/RecordWords.h"
#include "cli/Recorder.h"
#include "cli/Sources.h"
#include "cli/StopSignals.h"
#include "platform/machine/AudioServer.h"
#include "platform/machine/Files.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Memory.h"
#include "platform/machine/Processes.h"
#include "platform/machine/Threads.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>

namespace cli {

using platform::machine::Machine;

namespace {

constexpr uint64_t kMeterNanos = 200'000'000;
constexpr double kFallbackRateHz = 48000;

// Statuses of a session that cannot start.
constexpr int kNoDeviceToTap = -200;
constexpr int kNoTapService = -204;

// A reader that went away and a limit on sizes are write errors like any other.
void TakeWriteErrorsAsSuch()
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

bool ProcessExists(pid_t pid)
{
    return Machine::Current().GetProcesses().Find(pid).has_value();
}

std::string TellWhatIsThere(const std::string& wanted, const std::vector<std::string>& names)
{
    std::string text;
    for (const std::string& there : ClosestFirst(wanted, names)) text += "\n  " + there;
    return text;
}

// A track each.
int ResolveInput(const Source& source, RecordingWish& wish)
{
    const std::vector<Device> inputs = CopyDevices(Side::Input);
    if (const Device* input = FindInput(inputs, source.mValue)) {
        wish.mTracks.push_back({.mWords = Written(source),
                                .mInputUID = input->mUID,
                                .mIsInput = true,
                                .mChannels = wish.mKeepsChannels ? input->mChannels : 2});
        return kExitDone;
    }
    std::vector<std::string> names;
    for (const Device& there : inputs) names.push_back("input:" + there.mUID);
    return Complain(names.empty() ? "the audio server has no input device; connect one"
                                  : fmt::format("'{}' is no input, or more than one. These are there:{}",
                                                Written(source), TellWhatIsThere(Written(source), names)),
                    kExitNotFound);
}

// One track of all the applications, of everything where "system" is among them; in a recording that keeps channels a
// track each, in the order in which they were given.
int ResolveTracks(const std::vector<Source>& sources, RecordingWish& wish)
{
    std::optional<std::vector<platform::process::Application>> applications;  // looked for where one is asked for
    std::optional<size_t> mixed;                                              // the track of all the applications
    for (const Source& source : sources) {
        if (source.mKind == Source::Kind::Input) {
            if (const int code = ResolveInput(source, wish)) return code;
            continue;
        }
        if (!applications) applications = platform::process::CopyApplications();
        const Resolution resolution = Resolve(source, *applications, ProcessExists);
        if (!resolution.mError.empty()) return Complain(resolution.mError, kExitNotFound);
        if (wish.mKeepsChannels || !mixed) {
            mixed = wish.mTracks.size();
            wish.mTracks.emplace_back().mProcesses = resolution.mProcesses;
            wish.mTracks.back().mWords = Written(source);
            continue;
        }
        Track& track = wish.mTracks[*mixed];
        const bool everything = track.mProcesses.empty() || resolution.mProcesses.empty();
        track.mWords += " and " + Written(source);
        track.mProcesses.insert(track.mProcesses.end(), resolution.mProcesses.begin(), resolution.mProcesses.end());
        if (everything) track.mProcesses.clear();
    }
    if (sources.empty()) wish.mTracks = {{.mWords = "system"}};
    return kExitDone;
}

int ResolveOutputs(const std::vector<std::string>& from, const std::vector<Device>& outputs, RecordingWish& wish)
{
    for (const std::string& name : from) {
        if (const Device* output = FindDevice(outputs, name)) {
            wish.mDeviceUIDs.push_back(output->mUID);
            continue;
        }
        std::vector<std::string> names;
        for (const Device& output : outputs) names.push_back(output.mUID);
        return Complain(
            fmt::format("'{}' is no output, or more than one. These are there:{}", name, TellWhatIsThere(name, names)),
            kExitNotFound);
    }
    return kExitDone;
}

unsigned DefaultRate(const std::vector<Device>& outputs, const RecordingWish& wish)
{
    double rate = 0;
    for (const Device& output : outputs) {
        const auto& wanted = wish.mDeviceUIDs;
        const bool counts =
            wanted.empty() ? output.mIsDefault : std::find(wanted.begin(), wanted.end(), output.mUID) != wanted.end();
        if (counts) rate = std::max(rate, output.mRateHz);
    }
    return unsigned(rate > 0 ? rate : kFallbackRateHz);
}

int TellFileError(const std::string& path, int error)
{
    if (error == EEXIST) {
        return Complain(fmt::format("'{}' exists; give another name, or --force to replace it", path), kExitUsage);
    }
    return Complain(fmt::format("cannot write '{}': {}", path, std::strerror(error)), kExitFailed);
}

int TellStartError(int status)
{
    if (status == kNoDeviceToTap) {
        return Complain("the audio server has no output device to take sound from; connect or create one",
                        kExitNoServer);
    }
    if (status == kNoTapService)
        return Complain(fmt::format("the tap's bundle is missing from '{}'; install Corvane again",
                                    Machine::Current().GetFiles().BundleFolder()),
                        kExitFailed);
    return Complain(fmt::format("the tap could not be started (status {})", status), kExitFailed);
}

void TellWhatWasHad()
{
    Machine& machine = Machine::Current();
    for (const std::string& line : {machine.GetAudioServer().Describe(), machine.GetThreads().DescribeScheduling(),
                                    machine.GetMemory().Describe()})
        fmt::print(stderr, "{}\n", line);
}

// Runs until a signal, the end of the time asked for, or a write error. @return how it ended
RecordingState Watch(Recorder& recorder, Progress& progress)
{
    RecordingState state;
    do {
        recorder.WaitFor(kMeterNanos);
        state = recorder.TakeState();
        progress.Show(state, Machine::Current().GetAudioServer().Snapshot().mConnected);
    } while (!state.mFinished && StopSignal() == 0);
    return state;
}

int Record(const RecordingWish& wish, const RecordOptions& options)
{
    const bool existed = std::filesystem::exists(wish.mPath);
    Recorder recorder(wish);
    if (const int error = recorder.OpenFile()) return TellFileError(wish.mPath, error);
    CatchStopSignals();
    TakeWriteErrorsAsSuch();
    if (const int status = recorder.Start()) {
        std::error_code ignored;  // the complaint about the tap matters more than an empty file left behind
        if (!existed && wish.mPath != "-") std::filesystem::remove(wish.mPath, ignored);
        return TellStartError(status);
    }
    if (options.mVerbose) TellWhatWasHad();
    Progress progress(wish);
    Watch(recorder, progress);
    const int error = recorder.Finish();
    const RecordingState state = recorder.TakeState();
    progress.Finish(state);
    TellResult(wish, options, state, progress);
    return error == 0 ? kExitDone : TellFileError(wish.mPath, error);
}

}  // namespace

int RunRecord(const RecordOptions& options)
{
    RecordingWish wish;
    std::vector<Source> sources;
    if (const std::string wrong = ReadWords(options, wish, sources); !wrong.empty()) return Complain(wrong, kExitUsage);
    if (wish.mPath != "-" && !wish.mReplace && std::filesystem::exists(wish.mPath))
        return TellFileError(wish.mPath, EEXIST);
    if (const auto why = WhyNoServer()) return Complain(*why, kExitNoServer);
    const std::vector<Device> outputs = CopyDevices(Side::Output);
    if (const int code = ResolveOutputs(options.mFrom, outputs, wish)) return code;
    if (const int code = ResolveTracks(sources, wish)) return code;
    if (const std::string wrong = CountKeptChannels(wish); !wrong.empty()) return Complain(wrong, kExitUsage);
    if (wish.mRateHz == 0) wish.mRateHz = DefaultRate(outputs, wish);
    FixFrames(options, wish);
    return Record(wish, options);
}

}  // namespace cli
