// StopSignals: the signals that end a recording, and those that must not.
// Why: an interrupt, a termination and a terminal that is closed each complete the file.
// Start at CatchStopSignals.
#pragma once

#include <cstdint>

namespace cli {

/// From now on SIGINT, SIGTERM and SIGHUP are only counted. A SIGHUP that was ignored before stays ignored, so that a
/// recording can outlive its terminal. System calls that were interrupted go on.
void CatchStopSignals();

/// From now on these signals end the process again: the file is complete, and a reader of the result may stall.
void ReleaseStopSignals();

/// The number of the first signal that came, or 0.
int StopSignal();

/// Host time at which the first signal came; 0 before.
uint64_t StopSignalNanos();

/// How often the process was asked to end: 1: complete the file; above 1: leave at once.
///
/// A SIGHUP counts only as the first, since a closed terminal sends several. Signals that follow within 200 ms count
/// as one, since programs that end others often signal the process and its group.
int StopSignalCount();

/// From now on a reader that went away, a limit on sizes and a write to the terminal from its background end no
/// process and stop none: they are errors of a write, or nothing.
void IgnoreWriteSignals();

}  // namespace cli
