// ListCommand: what there is to record: applications and outputs, for people and as JSON.
#pragma once

namespace cli {

/// Prints a line for each application that has a stream. @return an exit code
int ListApplications(bool json);
/// Prints a line for each output device. @return an exit code
int ListOutputs(bool json);

}  // namespace cli
