// WatchCommand: the devices that this process sees, and what becomes of them, as it happens.
#pragma once

namespace cli {

/// Runs until it is interrupted.
///
/// @param all  also the machine's own devices, not the virtual ones alone
int RunWatch(bool json, bool all);

}  // namespace cli
