#include "tap/CaptureControl.h"

#include "platform/kernel/HostTime.h"
#include "platform/kernel/MutexGuard.h"

#include <algorithm>
#include <new>

namespace tap {

namespace kernel = platform::kernel;

CaptureControl::CaptureControl(platform::machine::AudioServer& server, Configuration configuration, LaneTable& lanes,
                               MakeLane makeLane, bool silenced)
    : mServer(server),
      mLanes(lanes),
      mMakeLane(std::move(makeLane)),
      mConfiguration(std::move(configuration)),
      mMembership(mConfiguration, MachineAncestry()),
      mSilenced(silenced)
{
    kernel::pthread_mutex_init(&mCaptureMutex, nullptr);
    kernel::pthread_mutex_init(&mSignalMutex, nullptr);
    kernel::pthread_cond_init(&mSignal, nullptr);
    for (size_t i = 0; i < mConfiguration.mDevices.size(); ++i) AddCapture(i);
    // Before the first look, so that no change falls between the two.
    server.AddListener(this);
    try {
        Apply();
    } catch (...) {
        server.RemoveListener(this);
        throw;
    }
}

CaptureControl::~CaptureControl()
{
    mServer.RemoveListener(this);
    if (mStarted) {
        {
            const kernel::MutexGuard guard(mSignalMutex);
            mStop = true;
        }
        kernel::pthread_cond_signal(&mSignal);
        kernel::pthread_join(mThread, nullptr);
    }
    mCaptures.clear();
    kernel::pthread_cond_destroy(&mSignal);
    kernel::pthread_mutex_destroy(&mSignalMutex);
    kernel::pthread_mutex_destroy(&mCaptureMutex);
}

bool CaptureControl::Start()
{
    mStarted = kernel::pthread_create(&mThread, nullptr, Run, this, "tap control") == 0;
    return mStarted;
}

void CaptureControl::OpenCapture(size_t index)
{
    Capture& capture = mCaptures[index];
    capture.mNode = mServer.OpenCapture(mConfiguration.mDevices[index].mUID, "Corvane tap", *mLanes.All()[index]);
    capture.mNode->SetSilenced(mSilenced);
    capture.mStreams.clear();
}

void CaptureControl::AddCapture(size_t index)
{
    auto lane = mMakeLane(mConfiguration.mDevices[index], index);
    mCaptures.emplace_back();
    mLanes.Add(std::move(lane));
    OpenCapture(index);
}

/// Gives a device its own lane again, a lane of its own, or at last the lane of a device that is not in the list.
bool CaptureControl::Place(const TappedDevice& device)
{
    auto& devices = mConfiguration.mDevices;
    auto place = std::ranges::find(devices, device.mUID, &TappedDevice::mUID);
    if (place == devices.end() && devices.size() < LaneTable::kMostLanes) {
        devices.push_back(device);
        try {
            AddCapture(devices.size() - 1);
        } catch (...) {  // a device without a lane must not stand where the next one's lane will be
            if (mCaptures.size() < devices.size()) devices.pop_back();
            throw;
        }
        return true;
    }
    if (place == devices.end())
        place = std::ranges::find_if(devices, [&](const TappedDevice& other) {
            return !other.mActive && other.mPreferredPair == device.mPreferredPair;
        });
    if (place == devices.end()) return false;
    *place = device;
    const auto index = size_t(place - devices.begin());
    if (!mCaptures[index].mNode) OpenCapture(index);
    return true;
}

bool CaptureControl::SetTargets(const std::vector<TappedDevice>& devices, std::vector<pid_t> processes)
{
    const kernel::MutexGuard guard(mCaptureMutex);
    mConfiguration.mProcesses = std::move(processes);
    mMembership.ForgetDecisions();
    for (TappedDevice& known : mConfiguration.mDevices)
        known.mActive = std::ranges::find(devices, known.mUID, &TappedDevice::mUID) != devices.end();
    for (size_t i = 0; i < mCaptures.size(); ++i)
        if (!mConfiguration.mDevices[i].mActive && mCaptures[i].mNode) {
            mLanes.All()[i]->SetLeft(mach_absolute_time());
            mCaptures[i] = {};
        }
    bool placed = true;
    for (const TappedDevice& device : devices) placed = Place(device) && placed;
    ApplyLocked();
    return placed;
}

void CaptureControl::SetSilenced(bool silenced)
{
    const kernel::MutexGuard guard(mCaptureMutex);
    mSilenced = silenced;
    for (Capture& capture : mCaptures)
        if (capture.mNode) capture.mNode->SetSilenced(silenced);
}

void CaptureControl::OnServerChanged() noexcept
{
    {
        const kernel::MutexGuard guard(mSignalMutex);
        mChanged = true;
    }
    kernel::pthread_cond_signal(&mSignal);
}

void* CaptureControl::Run(void* self)
{
    auto& control = *static_cast<CaptureControl*>(self);
    while (control.WaitForChange()) try {
            control.Apply();
        } catch (const std::bad_alloc&) {  // the streams stay as they are until the next change
        }
    return nullptr;
}

/// @return false when it is time to end
bool CaptureControl::WaitForChange()
{
    const kernel::MutexGuard guard(mSignalMutex);
    while (!mChanged && !mStop) kernel::pthread_cond_wait(&mSignal, &mSignalMutex);
    mChanged = false;
    return !mStop;
}

void CaptureControl::Apply()
{
    const kernel::MutexGuard guard(mCaptureMutex);
    ApplyLocked();
}

void CaptureControl::ApplyLocked()
{
    const platform::machine::ServerSnapshot snapshot = mServer.Snapshot();
    auto streams = mMembership.Assign(snapshot);
    for (size_t i = 0; i < mCaptures.size(); ++i) {
        if (!mCaptures[i].mNode || streams[i] == mCaptures[i].mStreams) continue;
        mLanes.All()[i]->SetLeft(streams[i].empty() ? mach_absolute_time() : 0);
        mCaptures[i].mNode->SetStreams(streams[i]);
        mCaptures[i].mStreams = std::move(streams[i]);
    }
}

}  // namespace tap
