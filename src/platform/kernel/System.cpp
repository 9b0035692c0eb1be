#include "platform/kernel/System.h"

#include "platform/machine/Identity.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Processes.h"

#include <cstring>
#include <string_view>

namespace {

constexpr OSStatus kUndefinedSelector = -5551;
constexpr SInt32 kSystemVersion = 0x1058;

/// The family of this program's processor in the coding of object files; 0 for one that has no number.
constexpr int32_t ProcessorFamily()
{
#if defined(__x86_64__) || defined(__i386__)
    return 7;
#elif defined(__aarch64__) || defined(__arm__)
    return 12;
#else
    return 0;
#endif
}

}  // namespace

OSStatus Gestalt(OSType selector, SInt32* response)
{
    if (selector != gestaltSystemVersion) return kUndefinedSelector;
    *response = kSystemVersion;
    return 0;
}

namespace platform::kernel {

uid_t getuid()
{
    return machine::Machine::Current().GetIdentity().RealUser();
}

uid_t geteuid()
{
    return machine::Machine::Current().GetIdentity().EffectiveUser();
}

pid_t getpid()
{
    return machine::Machine::Current().GetProcesses().Self();
}

int sysctlbyname(const char* name, void* value, size_t* bytes)
{
    constexpr int32_t kFamily = ProcessorFamily();
    if (std::string_view(name) != "hw.cputype" || kFamily == 0 || *bytes < sizeof kFamily) return -1;
    std::memcpy(value, &kFamily, sizeof kFamily);
    *bytes = sizeof kFamily;
    return 0;
}

}  // namespace platform::kernel
