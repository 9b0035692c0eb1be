// CaptureControl: keeps a tap's captures on the right streams while applications and devices come and go.
// Why: the server says only that something changed, on a thread that must not wait; what follows from it asks the
// process table and the server, and is done on a thread of the tap's own.
// Start at Apply.
#pragma once

#include "platform/kernel/Threads.h"
#include "platform/machine/AudioServer.h"
#include "tap/Configuration.h"
#include "tap/Lane.h"
#include "tap/Membership.h"

#include <memory>
#include <span>
#include <vector>

namespace tap {

class CaptureControl final : platform::machine::ServerListener {
public:
    /// Opens a capture for each of the configuration's devices, into the lane of the same index, and captures
    /// what is playing. All of the arguments outlive this.
    CaptureControl(platform::machine::AudioServer& server, const Configuration& configuration,
                   std::span<const std::unique_ptr<Lane>> lanes, bool silenced);
    /// Nothing is captured or kept silent afterwards, and no lane is rendered into.
    ~CaptureControl();

    /// Starts following changes. @return whether the thread runs
    bool Start();

    /// Whether what is captured is kept from its output. @thread any of the client's
    void SetSilenced(bool silenced);

private:
    struct Capture {
        std::unique_ptr<platform::machine::CaptureNode> mNode;
        std::vector<uint32_t> mStreams;
    };

    void OnServerChanged() noexcept override;
    static void* Run(void* self);
    bool WaitForChange();
    void Apply();

    platform::machine::AudioServer& mServer;
    Membership mMembership;

    pthread_mutex_t mCaptureMutex;  // orders SetSilenced with the control thread; mMembership and mCaptures are its
    std::vector<Capture> mCaptures;

    pthread_mutex_t mSignalMutex;  // held for a moment only: the server's own thread takes it
    pthread_cond_t mSignal;
    bool mChanged = false, mStop = false;

    pthread_t mThread{};
    bool mStarted = false;
};

}  // namespace tap
