// Memory: page allocation and protection under their published names, made by the current machine.
#pragma once

#include <cstddef>
#include <cstdint>

using vm_address_t = uintptr_t;
using vm_size_t = uintptr_t;
using kern_return_t = int32_t;
using mach_port_t = uint32_t;

constexpr kern_return_t KERN_SUCCESS = 0;
constexpr kern_return_t KERN_NO_SPACE = 3;
constexpr kern_return_t KERN_INVALID_ARGUMENT = 4;
constexpr int VM_FLAGS_ANYWHERE = 1;

/// This process. Another task cannot be named.
mach_port_t mach_task_self();

/// Zeroed pages; `size` is rounded up to whole pages.
/// @return KERN_NO_SPACE where there is no memory, KERN_INVALID_ARGUMENT for 0 bytes, for another task and
///         for a place of the caller's choice
kern_return_t vm_allocate(mach_port_t task, vm_address_t* address, vm_size_t size, int flags);
kern_return_t vm_deallocate(mach_port_t task, vm_address_t address, vm_size_t size);

namespace platform::kernel {

/// Bytes of a page.
vm_size_t vm_page_size();

constexpr int VM_PROT_READ = 1, VM_PROT_WRITE = 2, VM_PROT_EXECUTE = 4;

/// Asks for the protection, and settles for it without execution where that cannot be had.
/// @return 0 or an error number
int mprotect(void* address, size_t bytes, int protection);

/// Touches every page and locks what the process may lock. @return 0 or an error number
int mlock(const void* address, size_t bytes);

}  // namespace platform::kernel
