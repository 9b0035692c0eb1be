// StopSignals: ending at the wish of a person or of the session.
#pragma once

namespace cli {

/// From now on an interrupt or a termination is only noted, for StopSignal.
void CatchStopSignals();

/// The number of the signal that came, or 0.
int StopSignal();

}  // namespace cli
