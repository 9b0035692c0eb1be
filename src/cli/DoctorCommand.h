// DoctorCommand: what is wrong with the settings and the machine, and what to do about it.
#pragma once

namespace cli {

/// Prints a line a check. @return kExitDone, or the exit code of the first thing that is wrong
int RunDoctor(bool json);

}  // namespace cli
