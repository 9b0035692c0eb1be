#include "platform/machine/Machine.h"

#include "platform/machine/linux/LinuxMachine.h"

#include <atomic>
#include <cassert>
#include <mutex>

namespace platform::machine {

namespace {

std::atomic<Machine*> sCurrent{nullptr};  // stored once (release), read by all (acquire); never destroyed
std::once_flag sOnce;

}  // namespace

Machine& Machine::Current()
{
    if (Machine* current = sCurrent.load(std::memory_order_acquire)) return *current;
    std::call_once(sOnce, [] { sCurrent.store(MakeLinuxMachine().release(), std::memory_order_release); });
    return *sCurrent.load(std::memory_order_acquire);
}

void Machine::Install(std::unique_ptr<Machine> machine)
{
    bool installed = false;
    std::call_once(sOnce, [&] {
        sCurrent.store(machine.release(), std::memory_order_release);
        installed = true;
    });
    assert(installed && "a machine is installed once, before anything asks for the current one");
    (void)installed;
}

}  // namespace platform::machine
