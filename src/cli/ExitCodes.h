// ExitCodes: how the command ends, for scripts. Documented in the man page; stable.
#pragma once

namespace cli {

enum ExitCode {
    kExitDone = 0,
    kExitFailed = 1,    // the file could not be made or written, or the tap failed
    kExitUsage = 2,     // a word of the command line, or a file that exists
    kExitNoServer = 3,  // the audio server, or any output device, is not there
    kExitNoSource = 4,  // a source or an output matches nothing, or too much
};

}  // namespace cli
