// ExitCodes: how the command ends, for scripts. Documented in the man page; stable.
#pragma once

namespace cli {

enum ExitCode {
    kExitDone = 0,
    kExitFailed = 1,        // something could not be made or written, or the tap failed
    kExitUsage = 2,         // a word of the command line, or a file or a name that is taken
    kExitNoServer = 3,      // the audio server, or any output device, is not there
    kExitNotFound = 4,      // a source, an output or a device matches nothing, or too much
    kExitHeld = 5,          // another process holds the device
    kExitPreferences = 6,   // the file of the shared preferences cannot be used
    kExitNotPermitted = 7,  // this user may not
};

}  // namespace cli
