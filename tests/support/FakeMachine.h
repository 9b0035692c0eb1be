// FakeMachine: the running system's clock, memory and threads with their edges in a test's hand, beside a scripted
// audio server, process table, files and grants of scheduling. For units that ask a machine questions; what takes
// time belongs on the simulated machine.
// Start at FakeMachine::Installed.
#pragma once

#include "platform/machine/Identity.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Messenger.h"
#include "platform/machine/Processes.h"
#include "platform/machine/linux/LinuxClock.h"
#include "platform/machine/linux/LinuxFiles.h"
#include "platform/machine/linux/LinuxMemory.h"
#include "platform/machine/linux/LinuxThreads.h"
#include "support/FakeAudioServer.h"
#include "support/Faults.h"

#include <atomic>
#include <cerrno>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace support {

class FakeClock final : public platform::machine::Clock {
public:
    uint64_t NowNanos() override
    {
        if (mOnLook) mOnLook();
        return mReal.NowNanos() + mAheadNanos;
    }
    void SleepUntil(uint64_t nanos) override { mReal.SleepUntil(nanos - mAheadNanos); }

    std::atomic<uint64_t> mAheadNanos{0};
    std::function<void()> mOnLook;  // called by whoever looks at the clock; changed while no other thread does

private:
    platform::machine::LinuxClock mReal;
};

/// Calls a function at each look at the clock, while it lives.
class ClockHook {
public:
    ClockHook(FakeClock& clock, std::function<void()> onLook) : mClock(clock) { mClock.mOnLook = std::move(onLook); }
    ~ClockHook() { mClock.mOnLook = nullptr; }

private:
    FakeClock& mClock;
};

/// Real pages, which are neither protected nor locked: that is only written down.
class FakeMemory final : public platform::machine::Memory {
public:
    size_t PageBytes() override { return mReal.PageBytes(); }
    void* Allocate(size_t bytes) override;
    void Free(void* address, size_t bytes) override;
    int Protect(void*, size_t, bool read, bool write, bool execute) override;
    int Lock(void*, size_t) override;
    std::string Describe() override { return mReal.Describe(); }

    static constexpr int kProtectError = 71, kLockError = 72;
    Faults* mFaults = nullptr;
    bool mProtectFails = false;
    bool mLockFails = false;
    std::vector<std::string> mSteps;  // of Protect and Lock
    std::atomic<size_t> mBytes{0};    // allocated and not freed

private:
    bool FailsNow() { return mFaults && mFaults->FailsNow(); }
    platform::machine::LinuxMemory mReal;
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
    std::vector<pid_t> List() override
    {
        std::vector<pid_t> processes;
        for (const auto& [pid, record] : mTable) processes.push_back(pid);
        return processes;
    }
    bool MaySignal(pid_t pid) override { return pid == mSelf || mTable.contains(pid); }
    std::optional<DesktopEntry> FindDesktopEntry(const std::string& executable) override
    {
        const auto found = mEntries.find(executable);
        return found == mEntries.end() ? std::nullopt : std::optional(found->second);
    }
};

class FakeThreads final : public platform::machine::LinuxThreads {
public:
    bool mGrants = true;
    std::atomic<uint64_t> mDeadlineNanos{0};  // of the latest wait

    int WaitUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, uint64_t deadlineNanos) override
    {
        mDeadlineNanos = deadlineNanos;
        return LinuxThreads::WaitUntil(condition, mutex, deadlineNanos);
    }

    /// A handle that an earlier thread had starts without its wishes, as a thread of the system's does.
    int Create(pthread_t* thread, bool detached, const char* name, void* (*entry)(void*), void* argument) override
    {
        const std::lock_guard lock(mMutex);  // the thread may ask for itself at once
        const int error = LinuxThreads::Create(thread, detached, name, entry, argument);
        if (const auto old = mWishes.find(*thread); error == 0 && old != mWishes.end()) old->second = {};
        return error;
    }
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
    std::string mRoot;  // stands before every well-known path; at first a folder that does not exist

    std::string Resolve(const std::string& wellKnownPath) override { return mRoot + wellKnownPath; }
    std::string BundleFolder() override { return mRoot + "/bundles"; }
    std::string PreferencesFolder() override { return mRoot + "/preferences"; }
    int64_t WriteToStream(int, const void*, size_t, uint64_t) override { return -ENOSYS; }
};

class FakeIdentity final : public platform::machine::Identity {
public:
    uid_t mRealUser = 1000;
    uid_t mEffectiveUser = 1000;
    std::optional<platform::machine::MainBundle> mMainBundle;

    uid_t RealUser() override { return mRealUser; }
    uid_t EffectiveUser() override { return mEffectiveUser; }
    std::optional<platform::machine::MainBundle> GetMainBundle() override { return mMainBundle; }
};

/// Hands over at once, on the thread of the test, what the test lets arrive.
class FakeMessenger final : public platform::machine::Messenger {
public:
    std::function<void(std::string_view message)> mReceive;  // null: nobody has listened
    std::vector<std::string> mSent;
    bool mReaches = true;  // whether there is a way to others

    bool Listen(std::function<void(std::string_view message)> receive) override
    {
        if (mReaches) mReceive = std::move(receive);
        return mReaches;
    }
    int Broadcast(std::string_view message) override
    {
        if (mReaches) mSent.emplace_back(message);
        return mReaches ? 0 : ENOENT;
    }
    std::string Describe() override { return mReaches ? "" : "Nobody can be reached."; }
};

class FakeMachine final : public platform::machine::Machine {
public:
    FakeClock mClock;
    FakeMemory mMemory;
    FakeAudioServer mServer;
    FakeProcesses mProcesses;
    FakeThreads mThreads;
    FakeFiles mFiles;
    FakeMessenger mMessenger;
    FakeIdentity mIdentity;

    platform::machine::Clock& GetClock() override { return mClock; }
    platform::machine::Threads& GetThreads() override { return mThreads; }
    platform::machine::Memory& GetMemory() override { return mMemory; }
    platform::machine::Files& GetFiles() override { return mFiles; }
    platform::machine::Processes& GetProcesses() override { return mProcesses; }
    platform::machine::Messenger& GetMessenger() override { return mMessenger; }
    platform::machine::Identity& GetIdentity() override { return mIdentity; }
    platform::machine::AudioServer& GetAudioServer() override { return mServer; }

    /// The fake that this process stands on, installed by the first call, with an empty script. What is allocated
    /// stays counted.
    static FakeMachine& Installed();

private:
    void Reset();
};

}  // namespace support
