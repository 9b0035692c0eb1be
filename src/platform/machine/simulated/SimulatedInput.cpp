#include "platform/machine/simulated/SimulatedInput.h"

#include "platform/machine/simulated/SimulatedServer.h"

namespace platform::machine::simulated {

SimulatedInput::SimulatedInput(SimulatedServer& server, Gate& gate, std::string uid, CaptureClient& client)
    : mServer(server), mUID(std::move(uid)), mClient(gate, client)
{
    const Unseen unseen;
    mServer.Add(this);
}

SimulatedInput::~SimulatedInput()
{
    mClient.Ended();
    const Unseen unseen;
    mServer.Remove(this);
}

}  // namespace platform::machine::simulated
