#include "support/ScriptedMachine.h"

namespace support {

void* ScriptedMemory::Allocate(size_t bytes)
{
    void* const address = FailsNow() ? nullptr : mReal.Allocate(bytes);
    if (address) mBytes += bytes;
    return address;
}

void ScriptedMemory::Free(void* address, size_t bytes)
{
    mBytes -= bytes;
    mReal.Free(address, bytes);
}

int ScriptedMemory::Protect(void*, size_t, bool read, bool write, bool execute)
{
    mSteps.push_back(std::string("protect ") + (read ? "r" : "") + (write ? "w" : "") + (execute ? "x" : ""));
    return FailsNow() || mProtectFails ? kProtectError : 0;
}

int ScriptedMemory::Lock(void*, size_t)
{
    mSteps.push_back("lock");
    return FailsNow() || mLockFails ? kLockError : 0;
}

ScriptedMachine& ScriptedMachine::Get()
{
    static ScriptedMachine* const sMachine = [] {
        auto machine = std::make_unique<ScriptedMachine>();
        ScriptedMachine* const installed = machine.get();
        platform::machine::Machine::Install(std::move(machine));
        return installed;
    }();
    return *sMachine;
}

}  // namespace support
