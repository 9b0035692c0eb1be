// CaptureCycles: what the ports of a capturing filter hold, cycle by cycle, in the port's words.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/linux/pipewire/Filter.h"

#include <array>

namespace platform::machine::pipewire {

class CaptureCycles final : public FilterClient {
public:
    explicit CaptureCycles(CaptureClient& client) : mClient(client) {}

private:
    void Process(const spa_io_clock& clock, std::span<FilterPort* const> ports, bool resumed) CORVANE_REALTIME override;

    CaptureClient& mClient;
    // The data thread's.
    std::array<CaptureCycle::Channel, kPositions> mChannels{};
    uint64_t mLastPosition = 0;
};

}  // namespace platform::machine::pipewire
