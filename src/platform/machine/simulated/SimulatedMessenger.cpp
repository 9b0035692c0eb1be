#include "platform/machine/simulated/SimulatedMessenger.h"

#include "platform/machine/simulated/Gate.h"
#include "platform/machine/simulated/SimulatedThreads.h"
#include "platform/machine/simulated/Unseen.h"

#include <cerrno>
#include <utility>

namespace platform::machine::simulated {

bool SimulatedMessenger::Listen(std::function<void(std::string_view message)> receive)
{
    mReceive = std::move(receive);
    const bool listening = mThreads.CreatePunctual(&mThread, "messenger", Run, this) == 0;
    const Unseen unseen;
    return mListening = listening;
}

int SimulatedMessenger::Broadcast(std::string_view message)
{
    if (message.empty() || message.size() > kMessageMaxBytes) return EMSGSIZE;
    const Unseen unseen;
    mSent.emplace_back(message);
    return 0;
}

void SimulatedMessenger::Stop()
{
    {
        const Unseen unseen;
        if (!mListening) return;
        mStop = true;
        mListening = false;
    }
    mGate.WakeAll(this);
    mThreads.Join(mThread, nullptr);
}

void SimulatedMessenger::Arrive(std::string message)
{
    if (!mListening) return;
    mArrived.push_back(std::move(message));
    mGate.WakeAll(this);
}

std::vector<std::string> SimulatedMessenger::Sent() const
{
    const Unseen unseen;
    return mSent;
}

void* SimulatedMessenger::Run(void* self)
{
    auto& messenger = *static_cast<SimulatedMessenger*>(self);
    std::string message;
    while (messenger.WaitForNext(&message)) messenger.mReceive(message);
    return nullptr;
}

/// @return false when it is time to end
bool SimulatedMessenger::WaitForNext(std::string* message)
{
    const Unseen unseen;
    while (!mStop && mArrived.empty()) mGate.Block(WaitFor::Work, this);
    if (mArrived.empty()) return false;
    *message = std::move(mArrived.front());
    mArrived.pop_front();
    return true;
}

}  // namespace platform::machine::simulated
