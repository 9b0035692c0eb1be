// CaptureControl: keeps a tap's captures on the right streams while applications and devices come and go.
// Why: the server says only that something changed, on a thread that must not wait. What follows from it asks the
// process table and the server, and is done on a thread of the tap's own.
// Start at Apply.
#pragma once

#include "platform/kernel/Threads.h"
#include "platform/machine/AudioServer.h"
#include "tap/Configuration.h"
#include "tap/LaneTable.h"
#include "tap/Membership.h"

#include <functional>
#include <memory>
#include <vector>

namespace tap {

class CaptureControl final : platform::machine::ServerListener {
public:
    /// Makes the lane of a device, which will be the lane of this index.
    using MakeLane = std::function<std::unique_ptr<Lane>(const TappedDevice& device, size_t index)>;

    /// Opens a capture for each of the configuration's devices, into a lane of its own, and captures what is playing.
    /// Server and lanes outlive this.
    CaptureControl(platform::machine::AudioServer& server, Configuration configuration, LaneTable& lanes,
                   MakeLane makeLane, bool silenced);
    /// Nothing is captured or kept silent afterwards, and no lane is rendered into.
    ~CaptureControl();

    /// Starts following changes. @return whether the thread runs
    bool Start();

    /// Whether what is captured is kept from its output. @thread any of the client's
    void SetSilenced(bool silenced);

    /// Captures these processes on these devices from now on. What is in both lists goes on without a gap. A device
    /// that comes back to the list has the lane that it had, unless another device needed it.
    ///
    /// @return  false where a tap has no lane left for one of the devices, which is then not captured
    /// @thread  any of the client's
    bool SetTargets(const std::vector<TappedDevice>& devices, std::vector<pid_t> processes);

private:
    struct Capture {
        std::unique_ptr<platform::machine::CaptureNode> mNode;  // null while the device is inactive
        std::vector<uint32_t> mStreams;
    };

    void OnServerChanged() noexcept override;
    static void* Run(void* self);
    bool WaitForChange();
    bool Place(const TappedDevice& device);
    void OpenCapture(size_t index);
    void AddCapture(size_t index);
    void Apply();
    void ApplyLocked();

    platform::machine::AudioServer& mServer;
    LaneTable& mLanes;
    const MakeLane mMakeLane;

    pthread_mutex_t mCaptureMutex;  // orders the client's calls with the control thread; held for all up to mCaptures
    // Its devices are those that the tap came to know, in the order of their lanes; those of old are inactive.
    Configuration mConfiguration;
    Membership mMembership;
    bool mSilenced;
    std::vector<Capture> mCaptures;

    pthread_mutex_t mSignalMutex;  // held for a moment only: the server's own thread takes it
    pthread_cond_t mSignal;
    bool mChanged = false, mStop = false;

    pthread_t mThread{};
    bool mStarted = false;
};

}  // namespace tap
