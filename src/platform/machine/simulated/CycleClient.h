// CycleClient: the client of a capture, an input or an output, as the data thread meets it.
// Why: the order that a server gives to its client's threads is these two stores and loads and nothing else, so that
// the race detector finds what a client takes for granted.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/simulated/Gate.h"
#include "platform/machine/simulated/Unseen.h"

#include <atomic>

namespace platform::machine::simulated {

/// @tparam Client  a CaptureClient or a PlaybackClient
template <class Client>
class CycleClient {
public:
    CycleClient(Gate& gate, Client& client) : mGate(gate), mClient(client) { Controlled(); }

    /// A control call was made: the renders after it see what was done before.
    void Controlled() { mControlled.store(1, std::memory_order_release); }
    /// No render comes any more: what they did is seen from here on.
    void Ended() { static_cast<void>(mRendered.load(std::memory_order_acquire)); }

    /// @thread data, inside one Unseen
    template <class Cycle>
    void Render(const Cycle& cycle)
    {
        const Seen seen;
        static_cast<void>(mControlled.load(std::memory_order_acquire));
        mGate.ForbidBlocking(true);
        mClient.Render(cycle);
        mGate.ForbidBlocking(false);
        mRendered.store(1, std::memory_order_release);
    }

    /// Announces a format to a PlaybackClient: no render runs, and those after it see what it did.
    ///
    /// @thread control, inside one Unseen
    void Announce(uint32_t rateHz, std::span<const ChannelPosition> channels)
    {
        const Seen seen;
        static_cast<void>(mControlled.load(std::memory_order_acquire));
        static_cast<void>(mRendered.load(std::memory_order_acquire));
        mGate.ForbidBlocking(true);
        mClient.SetPlaybackFormat(rateHz, channels);
        mGate.ForbidBlocking(false);
        mControlled.store(1, std::memory_order_release);
    }

private:
    Gate& mGate;
    Client& mClient;
    std::atomic<uint32_t> mControlled{0};  // stored by control calls (release), read before a render (acquire)
    std::atomic<uint32_t> mRendered{0};    // stored after a render (release), read by the destructor (acquire)
};

}  // namespace platform::machine::simulated
