// CurrentServer: the current machine's audio server as of now.
// Why: the connection is made lazily, and whoever asks first must not be told that nothing is there only
// because the server's first answer is on its way.
#pragma once

#include "platform/machine/AudioServer.h"

namespace platform::audio {

/// One look at the server. The first in a process waits for the server, two seconds at most.
///
/// @thread any that may block
machine::ServerSnapshot LookAtServer();

}  // namespace platform::audio
