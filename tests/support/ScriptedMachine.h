// ScriptedMachine: the real machine with its edges in a test's hand: memory that runs out, output devices,
// files at well-known paths, and a clock that can be put forward.
// Start at Get.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/Clock.h"
#include "platform/machine/Files.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Memory.h"
#include "platform/machine/linux/LinuxMachine.h"
#include "support/Faults.h"

#include <atomic>
#include <functional>
#include <string>
#include <vector>

namespace support {

class ScriptedClock final : public platform::machine::Clock {
public:
    explicit ScriptedClock(Clock& real) : mReal(real) {}
    uint64_t NowNanos() override
    {
        if (mOnLook) mOnLook();
        return mReal.NowNanos() + mAheadNanos;
    }
    void SleepUntil(uint64_t nanos) override { mReal.SleepUntil(nanos - mAheadNanos); }

    std::atomic<uint64_t> mAheadNanos{0};
    std::function<void()> mOnLook;  // called by whoever looks at the clock; changed while no other thread does

private:
    Clock& mReal;
};

/// Calls a function at each look at the clock, while it lives.
class ClockHook {
public:
    ClockHook(ScriptedClock& clock, std::function<void()> onLook) : mClock(clock)
    {
        mClock.mOnLook = std::move(onLook);
    }
    ~ClockHook() { mClock.mOnLook = nullptr; }

private:
    ScriptedClock& mClock;
};

class ScriptedMemory final : public platform::machine::Memory {
public:
    explicit ScriptedMemory(Memory& real) : mReal(real) {}
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
    size_t mBytes = 0;                // allocated and not freed

private:
    bool FailsNow() { return mFaults && mFaults->FailsNow(); }
    Memory& mReal;
};

class ScriptedFiles final : public platform::machine::Files {
public:
    std::string Resolve(const std::string& path) override { return mRoot + path; }
    std::string BundleFolder() override { return mRoot + "/bundles"; }

    std::string mRoot = "/nonexistent";
};

class ScriptedOutputs final : public platform::machine::AudioServer {
public:
    platform::machine::ServerSnapshot Snapshot() override { return mSnapshot; }
    bool WaitUntilReady(uint64_t) override { return true; }
    std::string Describe() override { return "scripted"; }
    void AddListener(platform::machine::ServerListener*) override {}
    void RemoveListener(platform::machine::ServerListener*) override {}
    std::unique_ptr<platform::machine::CaptureNode> OpenCapture(const std::string&, const std::string&,
                                                                platform::machine::CaptureClient&) override
    {
        return nullptr;
    }
    uint64_t LongestCycleNanos() override { return 0; }

    platform::machine::ServerSnapshot mSnapshot;
};

class ScriptedMachine final : public platform::machine::Machine {
public:
    /// The machine of this process, installed by the first call, with its edges as they were at first.
    static ScriptedMachine& Get();

    ScriptedClock& GetClock() override { return mClock; }
    platform::machine::Threads& GetThreads() override { return mReal->GetThreads(); }
    ScriptedMemory& GetMemory() override { return mMemory; }
    ScriptedFiles& GetFiles() override { return mFiles; }
    platform::machine::Processes& GetProcesses() override { return mReal->GetProcesses(); }
    ScriptedOutputs& GetAudioServer() override { return mOutputs; }

private:
    std::unique_ptr<Machine> mReal = platform::machine::MakeLinuxMachine();
    ScriptedClock mClock{mReal->GetClock()};
    ScriptedMemory mMemory{mReal->GetMemory()};
    ScriptedFiles mFiles;
    ScriptedOutputs mOutputs;
};

}  // namespace support
