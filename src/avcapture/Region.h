// Region: whole pages of memory, given back when it goes.
#pragma once

#include "platform/kernel/Memory.h"

namespace avcapture {

class Region {
public:
    Region() = default;
    Region(const Region&) = delete;
    Region& operator=(const Region&) = delete;
    ~Region()
    {
        if (mAddress) vm_deallocate(mach_task_self(), mAddress, mSize);
    }

    /// Allocates zeroed pages, once. @return whether there were any
    bool Allocate(vm_size_t bytes)
    {
        mSize = bytes;
        return vm_allocate(mach_task_self(), &mAddress, bytes, VM_FLAGS_ANYWHERE) == KERN_SUCCESS;
    }

    vm_address_t Address() const { return mAddress; }

private:
    vm_size_t mSize = 0;
    vm_address_t mAddress = 0;
};

}  // namespace avcapture
