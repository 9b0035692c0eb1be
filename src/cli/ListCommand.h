// ListCommand: what there is to record: applications and devices, for people and as JSON.
#pragma once

#include "cli/Devices.h"

namespace cli {

/// Prints a line for each application that has a stream. @return an exit code
int ListApplications(bool json);
/// Prints a line for each device of that side. @return an exit code
int ListDevices(Side side, bool json);

}  // namespace cli
