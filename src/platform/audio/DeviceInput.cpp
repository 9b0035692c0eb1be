#include "platform/audio/DeviceInput.h"

#include "platform/audio/DeviceTimeline.h"
#include "platform/audio/NativeDevices.h"
#include "platform/audio/StampLatency.h"
#include "platform/machine/Machine.h"

#include <algorithm>
#include <cmath>

namespace platform::audio {

namespace {

constexpr const char* kNodeName = "Corvane input";

size_t LongestCycleFrames(machine::AudioServer& server, double rateHz)
{
    return size_t(std::ceil(double(server.LongestCycleNanos()) * 1e-9 * rateHz));
}

}  // namespace

DeviceInput::DeviceInput(AudioDeviceID device, DeviceInputClient& client) : mClient(client)
{
    const std::optional<NativeDevice> native = LastSeenDevice(device ? device : CopyNativeDevices().mDefaultInput);
    if (!native || !native->mIsInput) return;
    machine::AudioServer& server = machine::Machine::Current().GetAudioServer();
    mPositions = native->mDevice.mChannels;
    mSamples.resize(mPositions.size());
    mHeld.emplace(mPositions.size(), LongestCycleFrames(server, native->mDevice.mNominalRateHz));
    mTimeline = &DeviceTimeline::Open(native->mID);
    mNode = server.OpenInput(native->mDevice.mUID, kNodeName, *this);
}

DeviceInput::~DeviceInput()
{
    mNode.reset();
    if (mTimeline) mTimeline->Close();
}

void DeviceInput::Render(const machine::CaptureCycle& cycle) CORVANE_REALTIME
{
    const kernel::RealtimeScope scope;
    if (mHeld->IsHolding()) Deliver(mHeld->Release(cycle));
    if (IsRepeated(cycle)) return;
    if (ComesAfterAGap(cycle) && mHeld->Hold(cycle, cycle.mSampleTime - mNext->mDriverTime)) return;
    Deliver(cycle);
}

/// The same frames once more. Of two under one stamp, the earlier of which was not where it was expected, nobody knows.
bool DeviceInput::IsRepeated(const machine::CaptureCycle& cycle) const noexcept
{
    return mNext && mNext->mBeforeHostNanos != 0 && cycle.mHostNanos == mNext->mBeforeHostNanos &&
           cycle.mSampleTime == mNext->mBeforeDriverTime && cycle.mClockID == mNext->mClockID &&
           cycle.mRateHz == mNext->mRateHz;
}

bool DeviceInput::ComesAfterAGap(const machine::CaptureCycle& cycle) const noexcept
{
    return mNext && cycle.mClockID == mNext->mClockID && cycle.mRateHz == mNext->mRateHz && !cycle.mResumed &&
           cycle.mSampleTime > mNext->mDriverTime;
}

void DeviceInput::Deliver(const machine::CaptureCycle& cycle) noexcept
{
    int64_t sampleTime = mTimeline->Take(cycle);
    if (mNext && sampleTime < mNext->mSampleTime) {
        sampleTime = mNext->mSampleTime;
        mTimeline->FollowOn(cycle, sampleTime);
    }
    PlaceChannels(cycle);
    mClient.TakeBuffer(mTimeline->StampOf(sampleTime), cycle.mFrames, mSamples);
    const bool followed = mNext && cycle.mClockID == mNext->mClockID && cycle.mRateHz == mNext->mRateHz &&
                          cycle.mSampleTime == mNext->mDriverTime;
    mNext = {cycle.mClockID,
             cycle.mRateHz,
             cycle.mSampleTime + cycle.mFrames,
             sampleTime + cycle.mFrames,
             cycle.mSampleTime,
             followed ? cycle.mHostNanos : 0};
}

void DeviceInput::PlaceChannels(const machine::CaptureCycle& cycle) noexcept
{
    for (size_t i = 0; i < mPositions.size(); ++i) {
        const auto channel =
            std::ranges::find(cycle.mChannels, mPositions[i], &machine::CaptureCycle::Channel::mPosition);
        mSamples[i] = channel == cycle.mChannels.end() ? nullptr : channel->mSamples;
    }
}

uint64_t StampLatencyNanos()
{
    return StampLatencyNanos(machine::Machine::Current().GetAudioServer().LongestCycleNanos());
}

}  // namespace platform::audio
