#include "cli/RecordingPlan.h"

#include "cli/ExitCodes.h"
#include "cli/Output.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Processes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include <unistd.h>

namespace cli {

using platform::machine::Machine;
using platform::machine::ServerSnapshot;
using platform::process::Application;
using record::SourceSettings;
using record::TapTargets;

namespace {

constexpr unsigned kFallbackRateHz = 48000;

bool NamesApplications(const Source& source)
{
    return source.mKind != Source::Kind::System && source.mKind != Source::Kind::Output &&
           source.mKind != Source::Kind::Input;
}

bool FollowsDefault(const Source& source)
{
    return source.mKind == Source::Kind::System || source.mValue == "default" || source.mValue == "default_output";
}

/// The outputs on which a source is taken in.
std::vector<std::string> OutputsOf(const FollowedSource& followed, const ServerSnapshot& snapshot)
{
    if (!followed.mPinnedOutputs.empty()) return followed.mPinnedOutputs;
    std::vector<std::string> uids;
    for (const auto& output : snapshot.mOutputs)
        if (NamesApplications(followed.mSource) || output.mID == snapshot.mDefaultOutput) uids.push_back(output.mUID);
    return uids;
}

std::vector<pid_t> ProcessesNow(FollowedSource& followed, const std::vector<Application>& applications)
{
    const Source& source = followed.mSource;
    if (!NamesApplications(source)) return {};
    if (source.mKind == Source::Kind::Process) return {source.mPID};
    if (!followed.mIdentity) followed.mIdentity = Resolve(source, applications, ProcessExists).mIdentity;
    auto processes = followed.mIdentity ? ProcessesOf(*followed.mIdentity, applications) : std::vector<pid_t>{};
    if (source.mKind == Source::Kind::AllBut) {
        for (pid_t& pid : processes) pid = -pid;
        return processes;
    }
    // An empty list would mean everything. This process plays nothing.
    if (processes.empty()) processes.push_back(::getpid());
    return processes;
}

class Planner {
public:
    Planner(const RecordWish& wish, const RecordOptions& options, RecordingPlan& plan)
        : mWish(wish), mOptions(options), mPlan(plan)
    {
    }

    int Make()
    {
        mPlan.mSettings.mFile = mWish.mFile;
        mPlan.mSettings.mLive = mWish.mFile.mPath == "-";
        if (const int code = FindPinnedOutputs()) return code;
        for (const TrackWish& track : mWish.mTracks)
            if (const int code = AddTrack(track.mName, track.mSources)) return code;
        const bool apart = mWish.mChannels == 0;
        if (apart)
            for (const Source& source : mWish.mSources)
                if (const int code = AddTrack(Written(source), {source})) return code;
        if (!apart && !mWish.mSources.empty())
            if (const int code = AddTrack("mix", mWish.mSources)) return code;
        return CheckFile();
    }

private:
    int FindPinnedOutputs()
    {
        for (const std::string& name : mOptions.mFrom) {
            if (name.empty()) return Complain("--from has no name; for example --from speakers", kExitUsage);
            const DeviceMatch output = MatchDevice(mOutputs, Side::Output, name);
            if (!output.mDevice) return Complain(output.mError, kExitNotFound);
            mPinned.push_back(output.mDevice->mUID);
        }
        return kExitDone;
    }

    /// A track is as wide as its widest source where every source keeps its own, else as wide as was asked for.
    int AddTrack(const std::string& name, const std::vector<Source>& sources)
    {
        auto& settings = mPlan.mSettings;
        const size_t track = settings.mTracks.size();
        settings.mTracks.push_back({name, mWish.mChannels});
        const size_t first = settings.mSources.size();
        for (const Source& source : sources)
            if (const int code = AddSource(source, track)) return code;
        if (mWish.mChannels > 0) return kExitDone;
        unsigned widest = 0;
        for (size_t i = first; i < settings.mSources.size(); ++i)
            widest = std::max(widest, settings.mSources[i].mChannels);
        settings.mTracks[track].mChannels = widest;
        return kExitDone;
    }

    int AddSource(const Source& source, size_t track)
    {
        SourceSettings settings{.mName = Written(source), .mTrack = track};
        FollowedSource followed{source, {}, mPinned};
        const int code = source.mKind == Source::Kind::Input    ? AddInput(source, settings)
                         : source.mKind == Source::Kind::Output ? AddOutput(source, followed)
                                                                : AddApplications(source, followed);
        if (code != kExitDone) return code;
        if (!settings.mIsInput) settings.mTargets = FindTargets(followed, mSnapshot, mApplications);
        mPlan.mSettings.mSources.push_back(std::move(settings));
        mPlan.mFollowed.push_back(std::move(followed));
        return kExitDone;
    }

    int AddInput(const Source& source, SourceSettings& settings) const
    {
        const DeviceMatch input = MatchDevice(mInputs, Side::Input, source.mValue);
        if (!input.mDevice) return Complain(input.mError, kExitNotFound);
        settings.mIsInput = true;
        settings.mInputUID = input.mDevice->mUID;
        settings.mChannels = input.mDevice->mChannels;
        return kExitDone;
    }

    int AddOutput(const Source& source, FollowedSource& followed) const
    {
        if (FollowsDefault(source)) return kExitDone;
        const DeviceMatch output = MatchDevice(mOutputs, Side::Output, source.mValue);
        if (!output.mDevice) return Complain(output.mError, kExitNotFound);
        followed.mPinnedOutputs = {output.mDevice->mUID};
        return kExitDone;
    }

    int AddApplications(const Source& source, FollowedSource& followed) const
    {
        const Resolution resolution = Resolve(source, mApplications, ProcessExists);
        followed.mIdentity = resolution.mIdentity;
        if (resolution.mError.empty()) return kExitDone;
        const bool mayCome = mOptions.mWait && source.mKind != Source::Kind::Process;
        if (mayCome) return kExitDone;
        return Complain(resolution.mError, kExitNotFound);
    }

    int CheckFile()
    {
        auto& settings = mPlan.mSettings;
        settings.mFile.mTracksAreApart = settings.mTracks.size() > 1;
        settings.mFile.mChannels = 0;
        for (const auto& track : settings.mTracks) settings.mFile.mChannels += track.mChannels;
        if (settings.mFile.mChannels > kMostChannels)
            return Complain(fmt::format("The tracks have {} channels together, and a file takes {}. Leave some out, or "
                                        "mix them, for example with -c 2.",
                                        settings.mFile.mChannels, kMostChannels),
                            kExitUsage);
        if (settings.mFile.mRateHz == 0) settings.mFile.mRateHz = RateOfOutputs();
        const double rateHz = settings.mFile.mRateHz;
        const auto framesOf = [&](double seconds) { return uint64_t(std::max(1.0, std::round(seconds * rateHz))); };
        if (mWish.mSeconds) settings.mFrames = framesOf(*mWish.mSeconds);
        if (mWish.mMaxSeconds) settings.mFile.mMostFrames = framesOf(*mWish.mMaxSeconds);
        const std::string wrong = record::DescribeWrongSettings(settings.mFile);
        return wrong.empty() ? kExitDone : Complain(wrong, kExitUsage);
    }

    unsigned RateOfOutputs() const
    {
        double rate = 0;
        for (const Device& output : mOutputs) {
            const bool pinned = std::ranges::find(mPinned, output.mUID) != mPinned.end();
            if (mPinned.empty() ? output.mIsDefault : pinned) rate = std::max(rate, output.mRateHz);
        }
        return rate > 0 ? unsigned(rate) : kFallbackRateHz;
    }

    const RecordWish& mWish;
    const RecordOptions& mOptions;
    RecordingPlan& mPlan;
    const ServerSnapshot mSnapshot = Machine::Current().GetAudioServer().Snapshot();
    const std::vector<Device> mOutputs = CopyDevices(Side::Output), mInputs = CopyDevices(Side::Input);
    const std::vector<Application> mApplications = platform::process::CopyApplications();
    std::vector<std::string> mPinned;
};

}  // namespace

bool ProcessExists(pid_t pid)
{
    return Machine::Current().GetProcesses().Find(pid).has_value();
}

int MakePlan(const RecordWish& wish, const RecordOptions& options, RecordingPlan& plan)
{
    return Planner(wish, options, plan).Make();
}

TapTargets FindTargets(FollowedSource& followed, const ServerSnapshot& snapshot,
                       const std::vector<Application>& applications)
{
    return {OutputsOf(followed, snapshot), ProcessesNow(followed, applications)};
}

}  // namespace cli
