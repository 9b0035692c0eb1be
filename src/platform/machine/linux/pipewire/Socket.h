// Socket: where the server listens, and word of its return.
#pragma once

#include "platform/machine/linux/pipewire/Loop.h"

#include <memory>
#include <string>

namespace platform::machine::pipewire {

/// Where the server's socket lies or would lie, as the environment has it.
std::string SocketPath();

/// Whether SocketPath follows from the environment; if not, it is a guess (ssh, cron and sudo leave the variables out).
bool EnvironmentNamesTheSocket();

/// Tells when a socket of that path is made anew.
class SocketWatch {
public:
    /// @param appeared called on the loop's thread
    SocketWatch(Loop& loop, std::string path, LoopSource::Action appeared);
    ~SocketWatch();
    SocketWatch(const SocketWatch&) = delete;
    SocketWatch& operator=(const SocketWatch&) = delete;

    /// Watches the folder again, which may have been made since; harmless where it is watched already.
    void Renew();

private:
    void Read();

    std::string mFolder;
    std::string mName;
    LoopSource::Action mAppeared;
    int mDescriptor;  // below 0 where the system has no watch left for us: then only the slow retry is left
    std::unique_ptr<LoopReader> mReader;
};

}  // namespace platform::machine::pipewire
