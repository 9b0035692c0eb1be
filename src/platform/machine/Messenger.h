// Messenger: short messages from one process of a user to all his others.
// Why: a change of a shared file is told by name; no daemon stands between.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace platform::machine {

constexpr size_t kMessageMaxBytes = 4096;

class Messenger {
public:
    virtual ~Messenger() = default;

    /// Hands every message that arrives from now on to `receive`, one at a time, on a thread of the messenger's.
    /// Once a process. What arrives comes from any process of the user: any bytes.
    ///
    /// @return whether messages can arrive; Describe says why not
    virtual bool Listen(std::function<void(std::string_view message)> receive) = 0;

    /// Sends to all others who listen; this process knows already. Never waits: a dead listener is forgotten, and one
    /// that has not read what it was sent before gets nothing more.
    ///
    /// @param message  1 .. kMessageMaxBytes bytes
    /// @return         0, or an error number where it could not be sent for a reason of this process's own
    /// @thread         any that may block, for a moment
    virtual int Broadcast(std::string_view message) = 0;

    /// One sentence for a person: where messages go, or why they cannot.
    virtual std::string Describe() = 0;
};

}  // namespace platform::machine
