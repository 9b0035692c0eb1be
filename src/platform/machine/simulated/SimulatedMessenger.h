// SimulatedMessenger: the Messenger port of the one process that there is; what others send is scripted.
// What arrives is handed over on the thread "messenger" at the time at which it is sent.
#pragma once

#include "platform/machine/Messenger.h"

#include <pthread.h>

#include <deque>
#include <vector>

namespace platform::machine::simulated {

class Gate;
class SimulatedThreads;

class SimulatedMessenger final : public Messenger {
public:
    SimulatedMessenger(Gate& gate, SimulatedThreads& threads) : mGate(gate), mThreads(threads) {}

    bool Listen(std::function<void(std::string_view message)> receive) override;
    int Broadcast(std::string_view message) override;
    std::string Describe() override { return "Changes are told by script."; }

    /// Ends the listening: the program's last message has been handed over.
    void Stop();

    /// Another process sends. Nobody hears it who does not listen yet.
    ///
    /// @thread data
    void Arrive(std::string message);

    /// What this process sent, in order.
    std::vector<std::string> Sent() const;

private:
    static void* Run(void* self);
    bool WaitForNext(std::string* message);

    Gate& mGate;
    SimulatedThreads& mThreads;
    std::function<void(std::string_view message)> mReceive;
    std::deque<std::string> mArrived;
    std::vector<std::string> mSent;
    pthread_t mThread{};
    bool mListening = false;
    bool mStop = false;
};

}  // namespace platform::machine::simulated
