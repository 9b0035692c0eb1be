#include "platform/kernel/Realtime.h"

#ifdef CORVANE_TRAP_REALTIME

#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

// The sanitizers' own: they see every allocation already.
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, size_t),
                                              void (*onFree)(const volatile void*));
void __sanitizer_print_stack_trace();
}

namespace platform::kernel {

namespace {

// Initial exec: any other model may allocate at a thread's first look, which would come from the hooks.
[[gnu::tls_model("initial-exec")]] thread_local int sDepth = 0;

void Say(const char* text)
{
    if (write(STDERR_FILENO, text, std::strlen(text)) < 0) return;  // the abort that follows tells enough
}

const int sHooks =
    __sanitizer_install_malloc_and_free_hooks([](const volatile void*, size_t) { TrapInRealtime("malloc"); },
                                              [](const volatile void*) { TrapInRealtime("free"); });

}  // namespace

RealtimeScope::RealtimeScope() noexcept
{
    if (sHooks == 0) std::abort();  // a trap that hears of nothing would pass everything
    ++sDepth;
}

RealtimeScope::~RealtimeScope()
{
    --sDepth;
}

RealtimeExemption::RealtimeExemption(const char*) noexcept : mDepth(std::exchange(sDepth, 0)) {}

RealtimeExemption::~RealtimeExemption()
{
    sDepth = mDepth;
}

void TrapInRealtime(const char* call) noexcept
{
    if (sDepth == 0) return;
    sDepth = 0;  // what follows may allocate
    Say("A cycle must not call ");
    Say(call);
    Say(".\n");
    __sanitizer_print_stack_trace();
    std::abort();
}

}  // namespace platform::kernel

#endif
