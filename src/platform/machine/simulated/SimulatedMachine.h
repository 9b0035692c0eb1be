// SimulatedMachine: the machine that tests and demonstrations install. Time is virtual, the world is scripted.
// Why: a whole system with its devices, faults and hours of sound runs in seconds, the same way every time.
// Start at Scenario, which installs one and speaks about it in prose; this is what it speaks to.
#pragma once

#include "platform/machine/Clock.h"
#include "platform/machine/Files.h"
#include "platform/machine/Machine.h"
#include "platform/machine/simulated/Agenda.h"
#include "platform/machine/simulated/Gate.h"
#include "platform/machine/simulated/SimulatedMemory.h"
#include "platform/machine/simulated/SimulatedMessenger.h"
#include "platform/machine/simulated/SimulatedProcesses.h"
#include "platform/machine/simulated/SimulatedServer.h"
#include "platform/machine/simulated/SimulatedThreads.h"
#include "platform/machine/simulated/Trace.h"
#include "platform/machine/simulated/World.h"

namespace platform::machine::simulated {

class SimulatedClock final : public Clock {
public:
    explicit SimulatedClock(Gate& gate) : mGate(gate) {}

    uint64_t NowNanos() override { return mGate.NowNanos(); }
    void SleepUntil(uint64_t nanos) override;

private:
    Gate& mGate;
};

class SimulatedFiles final : public Files {
public:
    /// The folder that stands for "/"; empty: the real one.
    std::string mRoot;
    std::string mBundleFolder;

    std::string Resolve(const std::string& wellKnownPath) override { return mRoot + wellKnownPath; }
    std::string BundleFolder() override { return mBundleFolder; }
};

class SimulatedMachine final : public Machine {
public:
    /// The caller becomes the thread "main".
    SimulatedMachine();

    Clock& GetClock() override { return mClock; }
    SimulatedThreads& GetThreads() override { return mThreads; }
    SimulatedMemory& GetMemory() override { return mMemory; }
    SimulatedFiles& GetFiles() override { return mFiles; }
    SimulatedProcesses& GetProcesses() override { return mProcesses; }
    SimulatedMessenger& GetMessenger() override { return mMessenger; }
    SimulatedServer& GetAudioServer() override { return mServer; }

    Gate& GetGate() { return mGate; }
    Agenda& GetAgenda() { return mAgenda; }
    World& GetWorld() { return mWorld; }
    Trace& GetTrace() { return mTrace; }

    /// Starts and ends the machine's own threads, "data" and "control"; "messenger" starts when somebody listens.
    void Start();
    void Stop();

private:
    Gate mGate;
    SimulatedClock mClock{mGate};
    SimulatedThreads mThreads{mGate};
    SimulatedMemory mMemory;
    SimulatedFiles mFiles;
    SimulatedProcesses mProcesses;
    SimulatedMessenger mMessenger{mGate, mThreads};
    Agenda mAgenda{mGate, mThreads};
    Trace mTrace{mGate};
    World mWorld{mAgenda, mProcesses};
    SimulatedServer mServer{mGate, mThreads, mWorld};
};

}  // namespace platform::machine::simulated
