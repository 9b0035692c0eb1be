#include "cli/RecordCommand.h"

#include "cli/ExitCodes.h"
#include "cli/Following.h"
#include "cli/LiveLine.h"
#include "cli/Messages.h"
#include "cli/Output.h"
#include "cli/RecordWords.h"
#include "cli/RecordingPlan.h"
#include "cli/RecordingReport.h"
#include "cli/StopSignals.h"
#include "platform/kernel/HostTime.h"
#include "platform/machine/AudioServer.h"
#include "platform/machine/Files.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Memory.h"
#include "platform/machine/Threads.h"

#include <fmt/format.h>

#include <cerrno>
#include <string>
#include <vector>

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

int ComplainAboutStart(int status, const std::string& why)
{
    if (!why.empty()) return Complain(why, kExitFailed);
    if (status == kNoDeviceToTap)
        return Complain("The audio server has no output device to take sound from. Connect or create one.",
                        kExitNoServer);
    if (status == kNoTapService)
        return Complain(
            fmt::format("No tap could be loaded from '{}'. Install Corvane again, or raise the limit of open "
                        "files (ulimit -n).",
                        Machine::Current().GetFiles().BundleFolder()),
            kExitFailed);
    return Complain(fmt::format("The recording could not be started (status {}).", status), kExitFailed);
}

std::vector<std::string> DescribeMachine()
{
    Machine& machine = Machine::Current();
    return {machine.GetAudioServer().Describe(), machine.GetThreads().DescribeScheduling(),
            machine.GetMemory().Describe()};
}

/// A recording, from its start to its result.
class Session {
public:
    Session(const RecordingPlan& plan, const RecordWish& wish, const RecordOptions& options)
        : mPlan(plan),
          mFile(plan.mSettings.mFile),
          mOptions(options),
          mMessages(Messages::Standard()),
          mRecorder(plan.mSettings),
          mLiveLine(mMessages, {mFile.mRateHz, BytesPerFrame()})
    {
        if (wish.mReportsLevels) mMessages.SetStyle(Messages::Style::JSONLines);
    }

    int Run()
    {
        CatchStopSignals();
        IgnoreWriteSignals();
        if (const int error = mRecorder.Check()) return ComplainAboutFile(mFile.mPath, error);
        if (const int status = mRecorder.Start()) return ComplainAboutStart(status, mRecorder.WhyNotStarted());
        // An older file is not touched before its successor has sound to begin with.
        {
            Following following(mRecorder, mPlan);
            following.Update();  // how all stands at the start is no event
            if (const int error = mRecorder.OpenFile()) return ComplainAboutFile(mFile.mPath, error);
            if (mOptions.mVerbose)
                for (const std::string& line : DescribeMachine()) mMessages.TellLine(line);
            WatchOver(following);
        }
        return Finish();
    }

private:
    unsigned BytesPerFrame() const
    {
        return mFile.mType == record::FileType::Flac ? 0 : mFile.mChannels * record::BytesPerSample(mFile.mFormat);
    }

    /// Until the recording has ended, by itself or because it was asked to.
    void WatchOver(Following& following)
    {
        constexpr uint64_t kLongestEndNanos = 5'000'000'000;
        for (bool ended = false; !ended;) {
            ended = mRecorder.WaitFor(kLookNanos);
            for (const auto& event : following.Update()) TellEvent(event, mFile.mRateHz, mMessages);
            if (!ended) mLiveLine.Show(mRecorder.TakeState());
            TellStart();
            if (StopSignalCount() > 0) mRecorder.Stop(StopSignalNanos());
            const auto end = mRecorder.EndNanos();
            const bool tooLong = end && mach_absolute_time() > *end + kLongestEndNanos;
            if (StopSignalCount() > 1 || tooLong) mRecorder.Interrupt();
            if (StopSignalCount() > 1) return;
        }
    }

    void TellStart()
    {
        const auto head = mRecorder.HeadNanos();
        if (!mOptions.mVerbose || mToldStart || !head) return;
        mToldStart = true;
        mMessages.TellLine(DescribeStart(*head + mRecorder.StartNanos() - mOptions.mStartNanos));
    }

    int Finish()
    {
        const int error = mRecorder.Finish();
        ReleaseStopSignals();
        auto result = mRecorder.Result();
        mLiveLine.Note(result.mState);
        mLiveLine.Clear();
        result.mState.mPeaks = mLiveLine.Peaks();
        if (error != 0) ComplainAboutFile(mFile.mPath, error);
        TellResult(mFile, result, mOptions.mJSON, mMessages);
        return FlushOutput(error == 0 ? kExitDone : kExitFailed);
    }

    const RecordingPlan& mPlan;
    const record::FileSettings& mFile;
    const RecordOptions& mOptions;
    Messages& mMessages;
    record::Recorder mRecorder;
    LiveLine mLiveLine;
    bool mToldStart = false;
};

}  // namespace

int RunRecord(const RecordOptions& options)
{
    RecordWish wish;
    if (const std::string wrong = ReadWords(options, wish); !wrong.empty()) return Complain(wrong, kExitUsage);
    if (const auto why = WhyNoServer()) return Complain(*why, kExitNoServer);
    RecordingPlan plan;
    if (const int code = MakePlan(wish, options, plan)) return code;
    return Session(plan, wish, options).Run();
}

}  // namespace cli
