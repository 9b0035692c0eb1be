// System: what a process may ask about itself and the system under it.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

#include <sys/types.h>
#include <cstddef>

constexpr OSType gestaltSystemVersion = FourCC("sysv");

/// The system version in its published coding; 0x1058 here, which says that the interfaces are those of 10.5.
OSStatus Gestalt(OSType selector, SInt32* response);

namespace platform::kernel {

pid_t getpid();
/// The real and the effective user of this process.
uid_t getuid();
uid_t geteuid();

/// "hw.cputype", a 32-bit integer. @return 0, or -1 for any other name, too little room and an unknown processor
int sysctlbyname(const char* name, void* value, size_t* bytes);

}  // namespace platform::kernel
