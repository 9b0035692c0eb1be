#include "platform/kernel/Memory.h"

#include "platform/machine/linux/LinuxMemory.h"
#include "support/FakeMachine.h"

#include <gtest/gtest.h>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <algorithm>
#include <cstring>
#include <vector>

using platform::machine::LinuxMemory;

TEST(Memory, PagesAreWholeZeroedAndAligned)
{
    support::FakeMachine::Installed();
    const size_t page = platform::kernel::vm_page_size();
    vm_address_t address = 0;
    ASSERT_EQ(vm_allocate(mach_task_self(), &address, page + 1, VM_FLAGS_ANYWHERE), KERN_SUCCESS);
    EXPECT_EQ(address % page, 0u);
    auto* bytes = reinterpret_cast<uint8_t*>(address);
    EXPECT_TRUE(std::all_of(bytes, bytes + 2 * page, [](uint8_t byte) { return byte == 0; }));
    bytes[2 * page - 1] = 1;
    EXPECT_EQ(vm_deallocate(mach_task_self(), address, page + 1), KERN_SUCCESS);
}

TEST(Memory, SizesThatCannotBeAreRefused)
{
    support::FakeMachine::Installed();
    vm_address_t address = 1;
    for (const vm_size_t size : {vm_size_t(0), ~vm_size_t(0), ~vm_size_t(0) / 2}) {
        EXPECT_NE(vm_allocate(mach_task_self(), &address, size, VM_FLAGS_ANYWHERE), KERN_SUCCESS) << size;
        EXPECT_EQ(address, 0u);
    }
    EXPECT_NE(vm_allocate(mach_task_self() + 1, &address, 1, VM_FLAGS_ANYWHERE), KERN_SUCCESS);
}

// ---- A process with limits: each case runs in a child.

namespace {

constexpr size_t kBytes = 256 * 1024;

#ifdef CORVANE_SANITIZED  // sanitizers answer mlock themselves, and lock nothing
constexpr const char* kLocked = "all of the 256 KiB";
#else
constexpr const char* kLocked = "64 of the 256 KiB";
#endif

bool LocksWhatFits()
{
    const rlimit limit{66 * 1024, 66 * 1024};  // no whole pages
    if (setrlimit(RLIMIT_MEMLOCK, &limit) != 0) return false;
    if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) return false;

    LinuxMemory memory;
    auto* bytes = static_cast<uint8_t*>(memory.Allocate(kBytes));
    bytes[kBytes - 1] = 7;
    std::vector<unsigned char> resident(kBytes / memory.PageBytes());
    return memory.Lock(bytes, kBytes) == 0 && bytes[kBytes - 1] == 7 && mincore(bytes, kBytes, resident.data()) == 0 &&
           std::all_of(resident.begin(), resident.end(), [](unsigned char page) { return page & 1; }) &&
           memory.Describe().find(kLocked) != std::string::npos;
}

/// Has the kernel refuse executable pages from now on, as it does for a hardened service.
bool RefuseExecutablePages()
{
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_mprotect, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, PROT_EXEC, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EACCES),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{6, program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

bool DoesWithoutExecution()
{
    LinuxMemory memory;
    auto* bytes = static_cast<uint8_t*>(memory.Allocate(kBytes));
    if (!RefuseExecutablePages() || memory.Protect(bytes, kBytes, true, true, true) != 0) return false;
    bytes[0] = 7;
    return memory.Describe().find("executable pages were refused") != std::string::npos;
}

}  // namespace

TEST(LinuxMemory, LocksAsMuchAsTheLimitLeavesWithEveryPageTouched)
{
    EXPECT_EXIT(_exit(LocksWhatFits() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(LinuxMemory, IsContentWithoutExecutablePages)
{
    EXPECT_EXIT(_exit(DoesWithoutExecution() ? 0 : 1), testing::ExitedWithCode(0), "");
}
