// Agenda: what will happen outside the program, by host time, and the thread "data" on which it does.
// Why: devices, applications and the server are events of the clock. One thread runs them, so that a program
// meets its audio server's callbacks on a thread that is not its own, as it does in life.
// Events with one time run in the order in which they were entered.
#pragma once

#include <pthread.h>

#include <cstdint>
#include <functional>
#include <map>

namespace platform::machine::simulated {

class Gate;
class SimulatedThreads;

class Agenda {
public:
    using Event = std::function<void()>;

    Agenda(Gate& gate, SimulatedThreads& threads) : mGate(gate), mThreads(threads) {}

    void Start();
    void Stop();

    /// Runs `event` on the data thread at host time `nanos`, or at once where that has passed. The race detector
    /// passes it over; what of it is the program's own code says Seen.
    ///
    /// @param owner  by whom Cancel finds it; may be null
    void At(uint64_t nanos, const void* owner, Event event);
    void Cancel(const void* owner);

    uint64_t NowNanos() const;

private:
    struct Entry {
        const void* mOwner;
        Event mEvent;
    };

    static void* Run(void* self);
    bool WaitForNext(Event* event);

    Gate& mGate;
    SimulatedThreads& mThreads;
    std::multimap<uint64_t, Entry> mEntries;
    pthread_t mThread{};
    bool mStarted = false;
    bool mStop = false;
};

}  // namespace platform::machine::simulated
