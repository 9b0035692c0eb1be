// ServerControl: a connection to the test's server that waits for it and changes it as a user would.
#pragma once

#include "platform/machine/linux/pipewire/Context.h"
#include "platform/machine/linux/pipewire/Loop.h"
#include "platform/machine/linux/pipewire/Registry.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>

namespace support {

class ServerControl {
public:
    using Registry = platform::machine::pipewire::Registry;

    ServerControl();
    ~ServerControl();

    /// Runs `action` while nothing changes.
    void With(const std::function<void(Registry&)>& action);

    /// Returns when `condition` holds of the server's state; throws, naming `what`, after ten seconds.
    void WaitUntil(const std::string& what, const std::function<bool(Registry&)>& condition);

private:
    void NoteChange();

    std::mutex mMutex;
    std::condition_variable mCondition;
    uint64_t mChanges = 0;
    platform::machine::pipewire::Loop mLoop;
    platform::machine::pipewire::Context mContext{mLoop};
    Registry mRegistry{[this] { NoteChange(); }};
    pw_core* mCore = nullptr;
};

}  // namespace support
