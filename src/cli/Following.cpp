#include "cli/Following.h"

#include "platform/machine/Machine.h"
#include "platform/machine/Processes.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <utility>

namespace cli {

using platform::machine::Machine;
using platform::machine::ServerSnapshot;
using platform::process::Application;

namespace {

bool NamesOneApplication(const FollowedSource& followed)
{
    using Kind = Source::Kind;
    const Kind kind = followed.mSource.mKind;
    return kind == Kind::Application || kind == Kind::Identifier || kind == Kind::Path || kind == Kind::Process;
}

const platform::machine::Device* FindOutput(const ServerSnapshot& snapshot, uint32_t id)
{
    const auto found = std::ranges::find(snapshot.mOutputs, id, &platform::machine::Device::mID);
    return found == snapshot.mOutputs.end() ? nullptr : &*found;
}

/// Names of the outputs on which one of the processes has a stream.
std::vector<std::string> OutputsPlayedOn(const ServerSnapshot& snapshot, const std::vector<pid_t>& processes)
{
    std::vector<std::string> names;
    for (const auto& stream : snapshot.mStreams) {
        if (std::ranges::find(processes, stream.mPID) == processes.end()) continue;
        for (const uint32_t id : stream.mOutputs)
            if (const auto* output = FindOutput(snapshot, id)) names.push_back(output->mName);
    }
    std::ranges::sort(names);
    names.erase(std::ranges::unique(names).begin(), names.end());
    return names;
}

}  // namespace

Following::Following(record::Recorder& recorder, const RecordingPlan& plan) : mRecorder(recorder)
{
    for (size_t i = 0; i < plan.mFollowed.size(); ++i) {
        const auto& settings = plan.mSettings.mSources[i];
        mSources.push_back({.mFollowed = plan.mFollowed[i], .mName = settings.mName, .mIsTap = !settings.mIsInput});
        mFollowsDefault = mFollowsDefault || (!settings.mIsInput && plan.mFollowed[i].mPinnedOutputs.empty());
    }
    Machine::Current().GetAudioServer().AddListener(this);
}

Following::~Following()
{
    Machine::Current().GetAudioServer().RemoveListener(this);
}

void Following::OnServerChanged() noexcept
{
    mChanged.store(true, std::memory_order_release);
    mRecorder.Wake();
}

std::vector<record::RecordingEvent> Following::Update()
{
    if (mChanged.exchange(false, std::memory_order_acquire)) {
        const ServerSnapshot snapshot = Machine::Current().GetAudioServer().Snapshot();
        FollowServer(snapshot);
        // A server that is away says nothing of what its applications do.
        if (snapshot.mConnected) {
            FollowDefault(snapshot);
            const auto applications = platform::process::CopyApplications();
            for (size_t i = 0; i < mSources.size(); ++i) FollowSource(i, snapshot, applications);
        }
    }
    auto happened = mRecorder.TakeEvents();
    happened.insert(happened.end(), mHappened.begin(), mHappened.end());
    mHappened.clear();
    return happened;
}

void Following::Note(const char* kind, const std::string& source, std::string text)
{
    mHappened.push_back(mRecorder.NoteEvent(kind, source, std::move(text)));
}

void Following::FollowServer(const ServerSnapshot& snapshot)
{
    if (snapshot.mConnected == mServerThere) return;
    mServerThere = snapshot.mConnected;
    mRecorder.NoteServer(mServerThere);
    if (mServerThere)
        Note("server_back", "", "the audio server is back");
    else
        Note("server_away", "", "the audio server is away; the recording goes on in silence until it is back");
}

void Following::FollowDefault(const ServerSnapshot& snapshot)
{
    const auto* output = FindOutput(snapshot, snapshot.mDefaultOutput);
    if (!output || output->mName == mDefaultOutput) return;
    const bool isFirst = mDefaultOutput.empty();
    mDefaultOutput = output->mName;
    if (!isFirst && mFollowsDefault)
        Note("default_output", "", fmt::format("the default output is now {}", mDefaultOutput));
}

void Following::FollowSource(size_t index, const ServerSnapshot& snapshot, const std::vector<Application>& applications)
{
    Standing& standing = mSources[index];
    if (!standing.mIsTap) return;
    const auto targets = FindTargets(standing.mFollowed, snapshot, applications);
    // Without an output all stays as it is until one is there.
    const int status = targets.mDeviceUIDs.empty() ? 0 : mRecorder.SetTargets(index, targets);
    if (status != std::exchange(standing.mStatus, status) && status != 0)
        Note("not_followed", standing.mName,
             fmt::format("{} cannot be followed to all outputs (status {})", standing.mName, status));
    if (!NamesOneApplication(standing.mFollowed)) return;
    const auto& identity = standing.mFollowed.mIdentity;
    auto processes = identity ? ProcessesOf(*identity, applications) : std::vector<pid_t>{};
    if (standing.mFollowed.mSource.mKind == Source::Kind::Process && ProcessExists(standing.mFollowed.mSource.mPID))
        processes.push_back(standing.mFollowed.mSource.mPID);
    NotePresence(index, std::move(processes));
    NotePlace(standing, snapshot);
}

void Following::NotePresence(size_t source, std::vector<pid_t> processes)
{
    Standing& standing = mSources[source];
    const bool runs = !processes.empty();
    if (runs != standing.mRuns) {
        const bool lives = std::ranges::any_of(standing.mProcesses, ProcessExists);
        if (!runs && lives)
            Note("stopped_playing", standing.mName, standing.mName + " has stopped playing");
        else if (!runs && standing.mFollowed.mIdentity)
            Note("ended", standing.mName, standing.mName + " has ended; it is recorded again when it is started again");
        else if (!runs)
            Note("ended", standing.mName, standing.mName + " has ended");
        else if (std::exchange(standing.mWasThere, true))
            Note("started", standing.mName, standing.mName + " plays again");
        else if (mRecorder.HeadNanos())
            Note("started", standing.mName, standing.mName + " plays now");
        standing.mRuns = runs;
        mRecorder.NotePresence(source, runs);
    }
    if (runs) standing.mProcesses = std::move(processes);
}

void Following::NotePlace(Standing& standing, const ServerSnapshot& snapshot)
{
    if (!standing.mRuns) return;
    auto playsOn = OutputsPlayedOn(snapshot, standing.mProcesses);
    // While a stream moves it is on no output.
    if (playsOn.empty() || playsOn == standing.mPlaysOn) return;
    const bool isFirst = standing.mPlaysOn.empty();
    standing.mPlaysOn = std::move(playsOn);
    if (!isFirst)
        Note("moved", standing.mName,
             fmt::format("{} plays on {} now", standing.mName, fmt::join(standing.mPlaysOn, " and ")));
}

}  // namespace cli
