// Scenario: a simulated machine and what happens to it, told in prose. One a process.
//
//     Scenario s;
//     auto& speakers = s.output("speakers").rate(48'000).quantum(1024).crystal(+300);
//     auto& music = s.application("game", 200).plays(Counter(), speakers);
//     s.at(2s).unplug(speakers);
//     s.at(3s).plug(speakers);
//     s.at(4s).stall("tap pacer", 50ms);
//     ... make the system under test, by its ordinary calls ...
//     s.runUntil(10s);
//
// Times count from the start of the scenario. The thread that made it is "main": it directs. What is scripted
// happens on the thread "data" as soon as main and every other thread waits; each such event is a line of the
// trace. Everything blocking goes through the platform; a thread that blocks in another way (a standard mutex, a
// pipe) stops time for all.
#pragma once

#include "platform/machine/simulated/SimulatedMachine.h"

#include <chrono>
#include <functional>
#include <string>

namespace platform::machine::simulated {

using std::chrono::nanoseconds;

/// What can happen at one moment; several can be chained.
class Happening {
public:
    Happening& plug(Output& output);
    /// Its streams play on the default output until it is back.
    Happening& unplug(Output& output);
    Happening& makeDefault(Output& output);
    Happening& rate(Output& output, uint32_t hertz);
    Happening& quantum(Output& output, uint32_t frames);
    Happening& crystal(Output& output, double ppm);

    Happening& start(Stream& stream);
    Happening& stop(Stream& stream);
    Happening& move(Stream& stream, Output& output);
    /// The process dies, and its streams are gone.
    Happening& end(Application& application);

    Happening& serverDown();
    /// Devices and streams have other numbers, devices the same UIDs.
    Happening& serverUp();

    /// The threads of that name do not get the turn for so long.
    Happening& stall(const std::string& thread, nanoseconds length);
    /// The host clock moves forward at once, as after the machine slept: devices stood still meanwhile, and
    /// every deadline that was passed over is late.
    Happening& stepClock(nanoseconds length);

    /// Anything else. Runs on the thread "data", unseen by the race detector, and must not block.
    Happening& call(std::function<void()> action);

private:
    friend class Scenario;
    Happening(SimulatedMachine& machine, uint64_t nanos) : mMachine(machine), mNanos(nanos) {}
    Happening& Script(std::string line, std::function<void()> action);

    SimulatedMachine& mMachine;
    uint64_t mNanos;
};

class Scenario {
public:
    /// Installs a simulated machine as the current one.
    Scenario();
    /// Ends the machine's own threads. The machine stays the current one.
    ~Scenario();
    Scenario(const Scenario&) = delete;
    Scenario& operator=(const Scenario&) = delete;

    /// An output device that is there from now on; the first one is the default.
    Output& output(std::string uid) { return mMachine.GetWorld().AddOutput(std::move(uid)); }
    /// A process that runs from now on.
    Application& application(std::string name, pid_t pid, pid_t parent = 1, std::string executable = {});

    Happening at(nanoseconds sinceStart);
    /// Every deadline of the program's threads wakes them up to `most` late.
    void lateWakeups(nanoseconds most, uint64_t seed);

    /// Lets everything run until then, or for so long.
    void runUntil(nanoseconds sinceStart);
    void runFor(nanoseconds length);

    nanoseconds now() const;
    Trace& trace() { return mMachine.GetTrace(); }
    SimulatedMachine& machine() { return mMachine; }

private:
    SimulatedMachine& mMachine;
};

}  // namespace platform::machine::simulated
