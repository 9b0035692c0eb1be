// Context: what connections and nodes of one server object share, its data thread among them.
#pragma once

#include "platform/machine/linux/pipewire/Loop.h"

#include <string>

struct pw_context;
struct spa_thread_utils;

namespace platform::machine::pipewire {

class Context {
public:
    /// Sets itself up for real-time data threads where the library is configured for that, plainly otherwise.
    explicit Context(Loop& loop);
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    /// Null where the library could not be set up at all.
    pw_context* Get() const { return mContext; }

    Loop& GetLoop() const { return mLoop; }

    /// Asks the library's broker for a fixed priority of the calling thread. @return whether it took the request
    bool RequestPriority(int priority) const;

    /// What could not be had, as the rest of a sentence; empty where all could.
    const std::string& Shortcoming() const { return mShortcoming; }

private:
    bool TryConfiguration(const char* file);
    void GoWithoutConfiguration();

    Loop& mLoop;
    pw_context* mContext = nullptr;
    spa_thread_utils* mThreadUtils = nullptr;  // null where the library has no broker
    std::string mShortcoming;
};

}  // namespace platform::machine::pipewire
