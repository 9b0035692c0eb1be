// MessageFolder: the folder in which the listeners of one user stand, each as a socket under a name of its own.
// Why: whoever may enter it belongs to the user, so what it is and whose is settled here, before anything is sent.
// Its layout: docs/formats/messages.md. Start at OpenMessageFolder.
#pragma once

#include "platform/machine/linux/Descriptor.h"

#include <string>
#include <string_view>

namespace platform::machine {

enum class IfMissing { Make, Leave };

struct OpenedMessageFolder {
    Descriptor mFolder;
    int mError = 0;    // an error number; 0 where it is open, or only not there yet
    std::string mWhy;  // with an error: a sentence for a person, without its full stop
};

std::string MessageFolderPath(const std::string& runtimeFolder);

/// The folder "corvane" in the user's runtime folder. Refused unless both are his and the inner one is a folder, not a
/// link, that nobody else may enter.
OpenedMessageFolder OpenMessageFolder(const std::string& runtimeFolder, IfMissing ifMissing);

/// A name that no listener had before: the process's number and 64 random bits.
std::string NewListenerName();
bool IsListenerName(std::string_view name);

/// A new socket of this user's alone that stands in the folder under `name`; none where it could not be made.
Descriptor BindListener(const Descriptor& folder, const std::string& name);

/// Puts `message` into the queue of the listener `name`, where there is room. A name that nobody listens at is removed.
///
/// @return 0 whatever became of it, or an error number where this process has no socket to send from
int SendToListener(const Descriptor& folder, const std::string& name, std::string_view message);

}  // namespace platform::machine
