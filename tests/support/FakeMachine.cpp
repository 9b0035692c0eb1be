#include "support/FakeMachine.h"

namespace support {

void* FakeMemory::Allocate(size_t bytes)
{
    void* const address = FailsNow() ? nullptr : mReal.Allocate(bytes);
    if (address) mBytes += bytes;
    return address;
}

void FakeMemory::Free(void* address, size_t bytes)
{
    mBytes -= bytes;
    mReal.Free(address, bytes);
}

int FakeMemory::Protect(void*, size_t, bool read, bool write, bool execute)
{
    mSteps.push_back(std::string("protect ") + (read ? "r" : "") + (write ? "w" : "") + (execute ? "x" : ""));
    return FailsNow() || mProtectFails ? kProtectError : 0;
}

int FakeMemory::Lock(void*, size_t)
{
    mSteps.push_back("lock");
    return FailsNow() || mLockFails ? kLockError : 0;
}

FakeMachine& FakeMachine::Installed()
{
    static FakeMachine* const sMachine = [] {
        auto machine = std::make_unique<FakeMachine>();
        FakeMachine* const installed = machine.get();
        Install(std::move(machine));
        return installed;
    }();
    sMachine->Reset();
    return *sMachine;
}

void FakeMachine::Reset()
{
    mClock.mAheadNanos = 0;
    mClock.mOnLook = nullptr;
    mMemory.mFaults = nullptr;
    mMemory.mProtectFails = mMemory.mLockFails = false;
    mMemory.mSteps.clear();
    mServer.Change({});
    mProcesses.mTable.clear();
    mProcesses.mEntries.clear();
    mThreads.mGrants = true;
    mFiles.mRoot = "/nonexistent";
    mMessenger.mSent.clear();
    mMessenger.mReaches = true;
    mIdentity = {};
}

}  // namespace support
