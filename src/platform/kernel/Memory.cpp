#include "platform/kernel/Memory.h"

#include "platform/kernel/Realtime.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Memory.h"

namespace {

constexpr mach_port_t kThisTask = 0x103;  // any number but 0, which names no task

platform::machine::Memory& CurrentMemory()
{
    return platform::machine::Machine::Current().GetMemory();
}

/// `size` in whole pages; 0 for a size beyond what can be counted.
vm_size_t WholePages(vm_size_t size)
{
    const vm_size_t page = CurrentMemory().PageBytes();
    return (size + page - 1) / page * page;
}

}  // namespace

mach_port_t mach_task_self()
{
    return kThisTask;
}

kern_return_t vm_allocate(mach_port_t task, vm_address_t* address, vm_size_t size, int flags)
{
    platform::kernel::TrapInRealtime("vm_allocate");
    *address = 0;
    if (task != kThisTask || size == 0 || !(flags & VM_FLAGS_ANYWHERE)) return KERN_INVALID_ARGUMENT;
    const vm_size_t bytes = WholePages(size);
    void* pages = bytes >= size ? CurrentMemory().Allocate(bytes) : nullptr;
    *address = reinterpret_cast<vm_address_t>(pages);
    return pages ? KERN_SUCCESS : KERN_NO_SPACE;
}

kern_return_t vm_deallocate(mach_port_t task, vm_address_t address, vm_size_t size)
{
    platform::kernel::TrapInRealtime("vm_deallocate");
    if (task != kThisTask) return KERN_INVALID_ARGUMENT;
    if (size != 0) CurrentMemory().Free(reinterpret_cast<void*>(address), WholePages(size));
    return KERN_SUCCESS;
}

namespace platform::kernel {

vm_size_t vm_page_size()
{
    return CurrentMemory().PageBytes();
}

int mprotect(void* address, size_t bytes, int protection)
{
    return CurrentMemory().Protect(address, bytes, protection & VM_PROT_READ, protection & VM_PROT_WRITE,
                                   protection & VM_PROT_EXECUTE);
}

int mlock(const void* address, size_t bytes)
{
    return CurrentMemory().Lock(const_cast<void*>(address), bytes);  // no byte of it changes
}

}  // namespace platform::kernel
