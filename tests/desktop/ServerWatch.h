// ServerWatch: waits for what the audio server port shows, by its own announcements.
#pragma once

#include "platform/machine/AudioServer.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>

namespace desktop {

using platform::machine::AudioServer;
using platform::machine::Device;
using platform::machine::PlaybackStream;
using platform::machine::ServerSnapshot;

inline const Device* FindOutput(const ServerSnapshot& snapshot, const std::string& uid)
{
    for (const Device& device : snapshot.mOutputs)
        if (device.mUID == uid) return &device;
    return nullptr;
}

inline const Device* FindInput(const ServerSnapshot& snapshot, const std::string& uid)
{
    for (const Device& device : snapshot.mInputs)
        if (device.mUID == uid) return &device;
    return nullptr;
}

inline const PlaybackStream* FindStream(const ServerSnapshot& snapshot, const std::string& applicationName)
{
    for (const PlaybackStream& stream : snapshot.mStreams)
        if (stream.mApplicationName == applicationName) return &stream;
    return nullptr;
}

inline bool PlaysOn(const ServerSnapshot& snapshot, const std::string& applicationName, const std::string& uid)
{
    const PlaybackStream* stream = FindStream(snapshot, applicationName);
    const Device* device = FindOutput(snapshot, uid);
    return stream != nullptr && device != nullptr && stream->mOutputs == std::vector<uint32_t>{device->mID};
}

class ServerWatch final : public platform::machine::ServerListener {
public:
    explicit ServerWatch(AudioServer& server) : mServer(server) { mServer.AddListener(this); }
    ~ServerWatch() { mServer.RemoveListener(this); }

    /// Whether `condition` holds of a snapshot within ten seconds.
    bool Sees(const std::function<bool(const ServerSnapshot&)>& condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        for (;;) {
            uint64_t seen = 0;
            {
                const std::lock_guard guard(mMutex);
                seen = mChanges;
            }
            if (condition(mServer.Snapshot())) return true;
            std::unique_lock guard(mMutex);
            if (!mCondition.wait_until(guard, deadline, [&] { return mChanges != seen; })) return false;
        }
    }

    void OnServerChanged() noexcept override
    {
        const std::lock_guard guard(mMutex);
        ++mChanges;
        mCondition.notify_all();
    }

private:
    AudioServer& mServer;
    std::mutex mMutex;
    std::condition_variable mCondition;
    uint64_t mChanges = 0;
};

}  // namespace desktop
