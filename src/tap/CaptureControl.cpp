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

void CaptureControl::AddCapture(size_t index)
{
    const TappedDevice& device = mConfiguration.mDevices[index];
    Lane& lane = mLanes.Add(mMakeLane(device, index));
    mCaptures.push_back({mServer.OpenCapture(device.mUID, "Corvane tap", lane), {}});
    mCaptures.back().mNode->SetSilenced(mSilenced);
}

bool CaptureControl::SetTargets(const std::vector<TappedDevice>& devices, std::vector<pid_t> processes)
{
    const kernel::MutexGuard guard(mCaptureMutex);
    std::vector<TappedDevice> known = mConfiguration.mDevices;
    for (TappedDevice& device : known) device.mActive = false;
    for (const TappedDevice& device : devices) {
        const auto same = std::ranges::find(known, device.mUID, &TappedDevice::mUID);
        if (same != known.end())
            same->mActive = true;
        else
            known.push_back(device);
    }
    if (known.size() > LaneTable::kMostLanes) return false;
    mConfiguration.mDevices = std::move(known);
    mConfiguration.mProcesses = std::move(processes);
    mMembership.ForgetDecisions();
    while (mCaptures.size() < mConfiguration.mDevices.size()) AddCapture(mCaptures.size());
    ApplyLocked();
    return true;
}

void CaptureControl::SetSilenced(bool silenced)
{
    const kernel::MutexGuard guard(mCaptureMutex);
    mSilenced = silenced;
    for (Capture& capture : mCaptures) capture.mNode->SetSilenced(silenced);
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
        if (streams[i] == mCaptures[i].mStreams) continue;
        mLanes.All()[i]->SetLeft(streams[i].empty() ? mach_absolute_time() : 0);
        mCaptures[i].mNode->SetStreams(streams[i]);
        mCaptures[i].mStreams = std::move(streams[i]);
    }
}

}  // namespace tap
