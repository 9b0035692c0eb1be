// Capture: one open capture, which outlives the server's connections and rebuilds itself on each of them.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/linux/pipewire/CaptureFilter.h"
#include "platform/machine/linux/pipewire/CaptureLinks.h"
#include "platform/machine/linux/pipewire/Registry.h"
#include "platform/machine/linux/pipewire/Silencer.h"

#include <optional>
#include <string>
#include <vector>

namespace platform::machine::pipewire {

class Captures;

class Capture final : public CaptureNode {
public:
    struct Surroundings {
        Loop& mLoop;
        Context& mContext;
        Registry& mRegistry;
        Captures& mCaptures;
        LoopEvent& mChanged;
    };

    Capture(const Surroundings& surroundings, std::string uid, std::string name, CaptureClient& client);
    ~Capture() override;

    void SetStreams(std::span<const uint32_t> streams) override;
    void SetSilenced(bool silenced) override;

    /// Brings node, links and silencing in line with the mirror. Under the loop's lock, as the next.
    void Update();
    /// Lets go of everything on the server, which is gone.
    void Detach();

private:
    void RenewFilter();
    std::vector<ChannelPosition> LikelyChannels() const;

    Surroundings mAround;
    std::string mUID;
    std::string mName;
    CaptureClient& mClient;
    std::vector<uint32_t> mStreams;
    bool mWantsSilence = false;
    // In the order of making: links end before the node that they lead to.
    std::optional<CaptureFilter> mFilter;
    std::optional<CaptureLinks> mLinks;
    std::optional<Silencer> mSilencer;
};

/// The open captures of one server object.
class Captures {
public:
    void Add(Capture* capture) { mCaptures.push_back(capture); }
    void Remove(Capture* capture) { std::erase(mCaptures, capture); }

    /// Brings all in line with the mirror while the server is there, and lets all go otherwise.
    void SetConnected(bool connected);
    bool IsConnected() const { return mConnected; }
    void Update();

private:
    bool mConnected = false;
    std::vector<Capture*> mCaptures;
};

}  // namespace platform::machine::pipewire
