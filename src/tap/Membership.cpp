#include "tap/Membership.h"

#include "platform/machine/Machine.h"
#include "platform/machine/Processes.h"
#include "platform/process/Applications.h"

#include <algorithm>

namespace tap {

using platform::machine::Device;
using platform::machine::Machine;
using platform::machine::PlaybackStream;
using platform::machine::ServerSnapshot;

namespace {

class ProcessTable final : public Ancestry {
public:
    std::vector<pid_t> Lineage(pid_t pid) override { return platform::process::CopyLineage(pid); }
    std::optional<uint64_t> StartTime(pid_t pid) override
    {
        const auto record = Machine::Current().GetProcesses().FindBriefly(pid);
        return record ? std::optional(record->mStartTime) : std::nullopt;
    }
};

const Device* Find(const ServerSnapshot& snapshot, uint32_t device)
{
    for (const Device& output : snapshot.mOutputs)
        if (output.mID == device) return &output;
    return nullptr;
}

}  // namespace

Ancestry& MachineAncestry()
{
    static ProcessTable sTable;
    return sTable;
}

std::vector<std::vector<uint32_t>> Membership::Assign(const ServerSnapshot& snapshot)
{
    Forget(snapshot);
    std::vector<std::vector<uint32_t>> streams(mConfiguration.mDevices.size());
    std::map<uint32_t, size_t> places;
    for (const PlaybackStream& stream : snapshot.mStreams) {
        // Asked wherever it plays: once its parents are gone nobody can tell any more whose child it was.
        const bool admitted = Admits(stream.mPID);
        const auto device = DeviceOf(stream, snapshot);
        if (!admitted || !device) continue;
        streams[*device].push_back(stream.mID);
        places[stream.mID] = *device;
    }
    mPlaces = std::move(places);
    return streams;
}

bool Membership::Admits(pid_t pid)
{
    if (mConfiguration.mProcesses.empty()) return true;
    const auto started = mAncestry.StartTime(pid);
    const auto known = mDecisions.find(pid);
    if (known != mDecisions.end() && (!started || started == known->second.mStartTime)) return known->second.mAdmitted;

    const bool admitted = Decide(pid);
    if (started) mDecisions[pid] = {started, admitted};
    return admitted;
}

bool Membership::Decide(pid_t pid)
{
    const std::vector<pid_t> lineage = mAncestry.Lineage(pid);
    bool listed = false, anyListed = false;
    for (const pid_t entry : mConfiguration.mProcesses) {
        const bool related = std::find(lineage.begin(), lineage.end(), std::abs(entry)) != lineage.end();
        if (entry < 0 && related) return false;
        anyListed |= entry > 0;
        listed |= entry > 0 && related;
    }
    return listed || !anyListed;
}

// A process that has ended may still have a stream that plays out.
void Membership::Forget(const ServerSnapshot& snapshot)
{
    std::erase_if(mDecisions, [&](const auto& decision) {
        const bool plays = std::any_of(snapshot.mStreams.begin(), snapshot.mStreams.end(),
                                       [&](const PlaybackStream& stream) { return stream.mPID == decision.first; });
        return !plays && mAncestry.StartTime(decision.first) != decision.second.mStartTime;
    });
}

std::optional<size_t> Membership::DeviceOf(const PlaybackStream& stream, const ServerSnapshot& snapshot) const
{
    const auto& devices = mConfiguration.mDevices;
    for (size_t i = 0; i < devices.size(); ++i)
        for (const uint32_t output : stream.mOutputs)
            if (const Device* device = Find(snapshot, output);
                device && devices[i].mActive && device->mUID == devices[i].mUID)
                return i;
    const auto last = mPlaces.find(stream.mID);
    const bool isOnItsWay = stream.mOutputs.empty() && last != mPlaces.end() && devices[last->second].mActive &&
                            IsThere(last->second, snapshot);
    return isOnItsWay ? std::optional(last->second) : std::nullopt;
}

bool Membership::IsThere(size_t device, const ServerSnapshot& snapshot) const
{
    const std::string& uid = mConfiguration.mDevices[device].mUID;
    return std::any_of(snapshot.mOutputs.begin(), snapshot.mOutputs.end(),
                       [&](const Device& output) { return output.mUID == uid; });
}

}  // namespace tap
