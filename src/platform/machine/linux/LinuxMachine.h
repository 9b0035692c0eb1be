// LinuxMachine: the real machine. PipeWire for sound, /proc for processes, POSIX for the rest.
#pragma once

#include "platform/machine/Machine.h"

#include <memory>

namespace platform::machine {

/// The machine that every process stands on unless another was installed. Connects to nothing yet: the
/// audio server is reached when GetAudioServer is first called.
std::unique_ptr<Machine> MakeLinuxMachine();

}  // namespace platform::machine
