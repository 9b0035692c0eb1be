// SimulatedMachine: the machine that tests and demonstrations install. Time is virtual, the world is scripted.
// Why: a whole system with its devices, faults and hours of sound runs in seconds, the same way every time.
// Start at Scenario, which installs one and speaks about it in prose; this is what it speaks to.
#pragma once

#include "platform/machine/Clock.h"
#include "platform/machine/Files.h"
#include "platform/machine/Identity.h"
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
    /// Of the user; empty: he has none.
    std::string mPreferencesFolder;

    std::string Resolve(const std::string& wellKnownPath) override { return mRoot + wellKnownPath; }
    std::string BundleFolder() override { return mBundleFolder; }
    std::string PreferencesFolder() override { return mPreferencesFolder; }
    /// No stream is part of the world.
    int64_t WriteToStream(int, const void*, size_t, uint64_t) override { return -ENOSYS; }
};

/// An ordinary user who runs the command, unless the script says otherwise before anything asks.
class SimulatedIdentity final : public Identity {
public:
    uid_t mRealUser = 1000;
    uid_t mEffectiveUser = 1000;
    std::optional<MainBundle> mMainBundle = MainBundle{"corvane", "/usr/bin/corvane"};

    uid_t RealUser() override { return mRealUser; }
    uid_t EffectiveUser() override { return mEffectiveUser; }
    std::optional<MainBundle> GetMainBundle() override { return mMainBundle; }
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
    SimulatedIdentity& GetIdentity() override { return mIdentity; }
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
    SimulatedIdentity mIdentity;
    Agenda mAgenda{mGate, mThreads};
    Trace mTrace{mGate};
    World mWorld{mAgenda, mProcesses};
    SimulatedServer mServer{mGate, mThreads, mWorld};
};

}  // namespace platform::machine::simulated
