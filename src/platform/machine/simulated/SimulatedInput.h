// SimulatedInput: one open input. It hands its device's deliveries to its client, as long as the device is there.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/simulated/CycleClient.h"

namespace platform::machine::simulated {

class SimulatedServer;

class SimulatedInput final : public InputNode {
public:
    SimulatedInput(SimulatedServer& server, Gate& gate, std::string uid, CaptureClient& client);
    ~SimulatedInput() override;

    const std::string& UID() const { return mUID; }
    CycleClient<CaptureClient>& Client() { return mClient; }

private:
    SimulatedServer& mServer;
    const std::string mUID;
    CycleClient<CaptureClient> mClient;
};

}  // namespace platform::machine::simulated
