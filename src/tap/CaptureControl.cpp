#include "tap/CaptureControl.h"

#include "platform/kernel/MutexGuard.h"

namespace tap {

namespace kernel = platform::kernel;

CaptureControl::CaptureControl(platform::machine::AudioServer& server, const Configuration& configuration,
                               std::span<const std::unique_ptr<Lane>> lanes, bool silenced)
    : mServer(server), mMembership(configuration, MachineAncestry())
{
    kernel::pthread_mutex_init(&mCaptureMutex, nullptr);
    kernel::pthread_mutex_init(&mSignalMutex, nullptr);
    kernel::pthread_cond_init(&mSignal, nullptr);
    for (size_t i = 0; i < lanes.size(); ++i)
        mCaptures.push_back({server.OpenCapture(configuration.mDevices[i].mUID, "Corvane tap", *lanes[i]), {}});
    SetSilenced(silenced);
    // Before the first look, so that no change falls between the two.
    server.AddListener(this);
    Apply();
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

void CaptureControl::SetSilenced(bool silenced)
{
    const kernel::MutexGuard guard(mCaptureMutex);
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
    while (control.WaitForChange()) control.Apply();
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
    const platform::machine::ServerSnapshot snapshot = mServer.Snapshot();
    const kernel::MutexGuard guard(mCaptureMutex);
    auto streams = mMembership.Assign(snapshot);
    for (size_t i = 0; i < mCaptures.size(); ++i) {
        if (streams[i] == mCaptures[i].mStreams) continue;
        mCaptures[i].mNode->SetStreams(streams[i]);
        mCaptures[i].mStreams = std::move(streams[i]);
    }
}

}  // namespace tap
