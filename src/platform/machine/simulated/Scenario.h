// Scenario: a simulated machine and what happens to it, told in prose. One a process.
//
//     Scenario s;
//     auto& speakers = s.output("speakers").rate(48'000).quantum(1024).crystal(+300);
//     auto& mic = s.input("mic").rate(44'100).quantum(512).crystal(-200).startsLate(137ms).plays(HostTone(1000));
//     auto& music = s.application("game", 200).plays(Counter(), speakers);
//     speakers.heardBy([](const HeardCycle& cycle) { ... all that plays there, mixed ... });
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
    Happening& plug(ScriptedDevice& device);
    /// The streams of an output play on the default one until it is back.
    Happening& unplug(ScriptedDevice& device);
    Happening& makeDefault(Output& output);
    Happening& makeDefault(Input& input);
    Happening& rate(ScriptedDevice& device, uint32_t hertz);
    Happening& quantum(ScriptedDevice& device, uint32_t frames);
    Happening& crystal(ScriptedDevice& device, double ppm);
    /// Its sample time moves by `frames` at once; the sound goes on as it would.
    Happening& jump(ScriptedDevice& device, int64_t frames);

    /// Delivers again, its sample time further by what it did not deliver.
    Happening& start(Input& input);
    /// Hears on, but delivers nothing.
    Happening& stop(Input& input);
    /// Its cycles have a host time again.
    Happening& stamp(Input& input);
    /// The host time of its cycles is 0.
    Happening& unstamp(Input& input);
    /// Its next cycle comes a second time: the same frames under the same stamp.
    Happening& repeatCycle(Input& input);
    /// The server is late: the next cycle comes under the stamp of the one after it, just before that one.
    Happening& delayCycle(Input& input);

    Happening& start(Stream& stream);
    Happening& stop(Stream& stream);
    Happening& move(Stream& stream, Output& output);
    /// The process dies, and its streams are gone.
    Happening& end(Application& application);

    Happening& serverDown();
    /// Devices and streams have other numbers, devices the same UIDs.
    Happening& serverUp();

    /// Another process tells of a change by a distributed notification.
    Happening& post(const std::string& name, const std::string& object);
    /// Another process sends any bytes as one.
    Happening& message(std::string bytes);

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
    /// An input device that is there from now on; the first one is the default.
    Input& input(std::string uid) { return mMachine.GetWorld().AddInput(std::move(uid)); }
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
