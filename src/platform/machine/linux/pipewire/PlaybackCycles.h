// PlaybackCycles: what the ports of a playing filter ask for, cycle by cycle, in the port's words.
// Why the format is announced apart: at which rate a graph runs shows in its cycles only, and whoever converts to it
// has to get ready where it may allocate. Until it is, silence is played.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/linux/pipewire/Filter.h"

#include <atomic>
#include <vector>

namespace platform::machine::pipewire {

class PlaybackCycles final : public FilterClient {
public:
    /// @param changed  signalled by the data thread where Announce has something new to say
    PlaybackCycles(LoopEvent& changed, PlaybackClient& client) : mChanged(changed), mClient(client) {}

    /// Gives the client its format where that has changed. Under the loop's lock.
    ///
    /// @param filter  the one that calls Process
    void Announce(const Filter& filter, const std::vector<ChannelPosition>& channels);

private:
    void Process(const spa_io_clock& clock, std::span<FilterPort* const> ports, bool resumed) CORVANE_REALTIME override;
    bool IsAnnounced(uint32_t rateHz) noexcept;
    bool Place(FilterPort& port, float* samples, uint32_t frames) noexcept;

    LoopEvent& mChanged;
    PlaybackClient& mClient;
    std::atomic<uint32_t> mSeenHz{0};       // stored by the data thread, read by the loop's; no order needed
    std::atomic<uint32_t> mAnnouncedHz{0};  // stored by Announce (release), read by the data thread (acquire); 0: none
    // Announce's while nothing is announced, otherwise the data thread's.
    std::vector<ChannelPosition> mChannels;
    std::vector<float*> mSamples;
};

}  // namespace platform::machine::pipewire
