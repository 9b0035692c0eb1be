#include "platform/machine/simulated/SwitchedContext.h"

#include <sys/auxv.h>

#include <cstddef>
#include <cstdlib>

#if defined(__x86_64__) && defined(NDEBUG) && !defined(CORVANE_SANITIZED)

// What a call has to keep: six registers and the modes of floating point.
#define KEEP                                                                  \
    "push %rbp\n push %rbx\n push %r12\n push %r13\n push %r14\n push %r15\n" \
    "sub $8, %rsp\n stmxcsr (%rsp)\n fnstcw 4(%rsp)\n"
#define TAKE_AND_RETURN                               \
    "fldcw 4(%rsp)\n ldmxcsr (%rsp)\n add $8, %rsp\n" \
    "pop %r15\n pop %r14\n pop %r13\n pop %r12\n pop %rbx\n pop %rbp\n ret\n"

namespace platform::machine::simulated {

static_assert(offsetof(SwitchedContext, mStack) == 0 && offsetof(SwitchedContext, mBase) == 8 &&
              offsetof(SwitchedContext, mHome) == 16);

bool CanSwitch() noexcept
{
    constexpr unsigned long kBaseCanBeSet = 1 << 1;  // a bit of the kernel's: the processor has it, and it is enabled
    return getauxval(AT_HWCAP2) & kBaseCanBeSet;
}

SwitchedContext& OwnContext() noexcept
{
    thread_local SwitchedContext sOwn{};
    asm("rdfsbase %0" : "=r"(sOwn.mBase));
    return sOwn;
}

asm(".text\n .globl CorvaneSwitchContext\n .type CorvaneSwitchContext, @function\n"
    "CorvaneSwitchContext:\n" KEEP
    "mov %rsp, (%rdi)\n"
    "mov (%rsi), %rsp\n"
    "mov 8(%rsi), %rax\n"
    "wrfsbase %rax\n" TAKE_AND_RETURN ".size CorvaneSwitchContext, .-CorvaneSwitchContext\n");

// From the store of `arrived` on the stack is another's: nothing but registers until the thread is sent home.
// 202 is the call futex; 129 wakes, 128 waits, of this process alone.
asm(".text\n .globl CorvaneParkContext\n .type CorvaneParkContext, @function\n"
    "CorvaneParkContext:\n" KEEP
    "mov %rdi, %rbx\n"
    "mov %rsp, (%rbx)\n"
    "movl $1, (%rsi)\n"
    "mov %rsi, %rdi\n mov $129, %esi\n mov $1, %edx\n mov $202, %eax\n syscall\n"
    "1: cmpl $0, 16(%rbx)\n"
    "jne 2f\n"
    "lea 16(%rbx), %rdi\n mov $128, %esi\n xor %edx, %edx\n xor %r10d, %r10d\n mov $202, %eax\n syscall\n"
    "jmp 1b\n"
    "2: mov (%rbx), %rsp\n" TAKE_AND_RETURN ".size CorvaneParkContext, .-CorvaneParkContext\n");

}  // namespace platform::machine::simulated

#else

namespace platform::machine::simulated {

bool CanSwitch() noexcept
{
    return false;
}

// Nobody comes here.
SwitchedContext& OwnContext() noexcept
{
    std::abort();
}

extern "C" void CorvaneParkContext(SwitchedContext*, uint32_t*) noexcept
{
    std::abort();
}

extern "C" void CorvaneSwitchContext(SwitchedContext*, SwitchedContext*) noexcept
{
    std::abort();
}

}  // namespace platform::machine::simulated

#endif
