#include "cli/RecordCommand.h"

#include "cli/ExitCodes.h"
#include "cli/Following.h"
#include "cli/Output.h"
#include "cli/RecordWords.h"
#include "cli/RecordingPlan.h"
#include "cli/StopSignals.h"
#include "platform/machine/AudioServer.h"
#include "platform/machine/Files.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Memory.h"
#include "platform/machine/Threads.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <csignal>

namespace cli {

using platform::machine::Machine;

namespace {

constexpr uint64_t kLookNanos = 200'000'000;

// Statuses of a session that cannot start.
constexpr int kNoDeviceToTap = -200;
constexpr int kNoTapService = -204;

int ComplainAboutFile(const std::string& path, int error)
{
    return Complain(record::DescribeFileError(path, error), error == EEXIST ? kExitUsage : kExitFailed);
}

int ComplainAboutStart(int status)
{
    if (status == kNoDeviceToTap)
        return Complain("The audio server has no output device to take sound from. Connect or create one.",
                        kExitNoServer);
    if (status == kNoTapService)
        return Complain(fmt::format("The tap's bundle is missing from '{}'. Install Corvane again.",
                                    Machine::Current().GetFiles().BundleFolder()),
                        kExitFailed);
    return Complain(fmt::format("The recording could not be started (status {}).", status), kExitFailed);
}

void TellTemporary(record::Recorder& recorder, const RecordingPlan& plan)
{
    const auto result = recorder.Result();
    nlohmann::ordered_json json{{"file", plan.mSettings.mFile.mPath},
                                {"rate", plan.mSettings.mFile.mRateHz},
                                {"channels", plan.mSettings.mFile.mChannels},
                                {"frames", result.mState.mFrames},
                                {"frames_lost", result.mState.mFramesLost}};
    for (const auto& silence : result.mSilences)
        json["silences"].push_back({{"source", plan.mSettings.mSources[silence.mSource].mName},
                                    {"cause", NameOf(silence.mCause)},
                                    {"start", silence.mStart},
                                    {"frames", silence.mFrames}});
    for (const auto& event : result.mEvents)
        json["events"].push_back({{"frame", event.mFrame}, {"kind", event.mKind}, {"text", event.mText}});
    if (const auto head = recorder.HeadNanos()) json["head_ms"] = double(*head) / 1e6;
    fmt::print("{}\n", json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
}

/// Until the recording has ended, by itself or because a signal came.
void WatchOver(record::Recorder& recorder, Following& following)
{
    bool ended = false, stopped = false;
    while (!ended) {
        ended = recorder.WaitFor(kLookNanos);
        for (const auto& event : following.Update()) Complain(event.mText, 0);
        recorder.TakeState();
        if (StopSignal() != 0 && !std::exchange(stopped, true)) recorder.Stop();
    }
}

int Record(const RecordingPlan& plan, const RecordOptions&)
{
    const std::string& path = plan.mSettings.mFile.mPath;
    record::Recorder recorder(plan.mSettings);
    CatchStopSignals();
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    if (const int error = recorder.Check()) return ComplainAboutFile(path, error);
    if (const int status = recorder.Start()) return ComplainAboutStart(status);
    if (const int error = recorder.OpenFile()) return ComplainAboutFile(path, error);
    {
        Following following(recorder, plan);
        WatchOver(recorder, following);
    }
    const int error = recorder.Finish();
    TellTemporary(recorder, plan);
    return error == 0 ? kExitDone : ComplainAboutFile(path, error);
}

}  // namespace

int RunRecord(const RecordOptions& options)
{
    RecordWish wish;
    if (const std::string wrong = ReadWords(options, wish); !wrong.empty()) return Complain(wrong, kExitUsage);
    if (const auto why = WhyNoServer()) return Complain(*why, kExitNoServer);
    RecordingPlan plan;
    if (const int code = MakePlan(wish, options, plan)) return code;
    return Record(plan, options);
}

}  // namespace cli
