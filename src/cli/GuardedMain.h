// GuardedMain: the frame around the command: whatever happens inside, it ends with a sentence and an exit code.
#pragma once

namespace cli {

/// Runs `body`. An exception becomes a sentence and kExitFailed, and so does output that could not be written. A
/// standard descriptor that is closed is opened first, so that no file of the command takes its number.
int GuardedMain(int (*body)(int, char**), int argc, char** argv);

}  // namespace cli
