// FakeMachine: the running system's clock, memory and threads, with a scripted audio server, process table,
// files and grants of scheduling. For units that ask a machine questions; what takes time belongs on the
// simulated machine.
// Start at FakeMachine::Installed.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Processes.h"
#include "platform/machine/linux/LinuxClock.h"
#include "platform/machine/linux/LinuxFiles.h"
#include "platform/machine/linux/LinuxMemory.h"
#include "platform/machine/linux/LinuxThreads.h"

#include <cerrno>
#include <map>
#include <mutex>

namespace support {

class FakeAudioServer final : public platform::machine::AudioServer {
public:
    platform::machine::ServerSnapshot mSnapshot;

    platform::machine::ServerSnapshot Snapshot() override { return mSnapshot; }
    bool WaitUntilReady(uint64_t) override { return mSnapshot.mConnected; }
    std::string Describe() override { return "A scripted audio server."; }
    void AddListener(platform::machine::ServerListener*) override {}
    void RemoveListener(platform::machine::ServerListener*) override {}
    std::unique_ptr<platform::machine::CaptureNode> OpenCapture(const std::string&, const std::string&,
                                                                platform::machine::CaptureClient&) override
    {
        return nullptr;
    }
    uint64_t LongestCycleNanos() override { return 0; }
};

class FakeProcesses final : public platform::machine::Processes {
public:
    pid_t mSelf = 999;
    std::map<pid_t, platform::machine::ProcessRecord> mTable;
    std::map<std::string, DesktopEntry> mEntries;  // by executable

    pid_t Self() override { return mSelf; }
    std::optional<platform::machine::ProcessRecord> Find(pid_t pid) override
    {
        const auto found = mTable.find(pid);
        return found == mTable.end() ? std::nullopt : std::optional(found->second);
    }
    std::optional<DesktopEntry> FindDesktopEntry(const std::string& executable) override
    {
        const auto found = mEntries.find(executable);
        return found == mEntries.end() ? std::nullopt : std::optional(found->second);
    }
};

class FakeThreads final : public platform::machine::LinuxThreads {
public:
    bool mGrants = true;

    int Schedule(pthread_t thread, const platform::machine::SchedulingWish& wish) override
    {
        if (!mGrants && wish.mKind == platform::machine::SchedulingWish::Kind::Fixed) return EPERM;
        const std::lock_guard lock(mMutex);
        mWishes[thread] = wish;
        return 0;
    }
    platform::machine::SchedulingWish GetScheduling(pthread_t thread) override
    {
        const std::lock_guard lock(mMutex);
        return mWishes[thread];
    }

private:
    std::mutex mMutex;
    std::map<pthread_t, platform::machine::SchedulingWish> mWishes;
};

class FakeFiles final : public platform::machine::Files {
public:
    std::string mRoot;  // stands before every well-known path

    std::string Resolve(const std::string& wellKnownPath) override { return mRoot + wellKnownPath; }
    std::string BundleFolder() override { return mRoot + "/bundles"; }
};

class FakeMachine final : public platform::machine::Machine {
public:
    FakeAudioServer mServer;
    FakeProcesses mProcesses;
    FakeThreads mThreads;
    FakeFiles mFiles;

    platform::machine::Clock& GetClock() override { return mClock; }
    platform::machine::Threads& GetThreads() override { return mThreads; }
    platform::machine::Memory& GetMemory() override { return mMemory; }
    platform::machine::Files& GetFiles() override { return mFiles; }
    platform::machine::Processes& GetProcesses() override { return mProcesses; }
    platform::machine::AudioServer& GetAudioServer() override { return mServer; }

    /// The fake that this process stands on, installed by the first call, with an empty script.
    static FakeMachine& Installed()
    {
        static FakeMachine* sMachine = [] {
            auto machine = std::make_unique<FakeMachine>();
            FakeMachine* installed = machine.get();
            Install(std::move(machine));
            return installed;
        }();
        sMachine->mServer.mSnapshot = {};
        sMachine->mProcesses.mTable.clear();
        sMachine->mProcesses.mEntries.clear();
        sMachine->mThreads.mGrants = true;
        sMachine->mFiles.mRoot.clear();
        return *sMachine;
    }

private:
    platform::machine::LinuxClock mClock;
    platform::machine::LinuxMemory mMemory;
};

}  // namespace support
