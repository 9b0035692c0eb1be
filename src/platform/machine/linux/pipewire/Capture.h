// Capture: one open capture of streams.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/linux/pipewire/CaptureCycles.h"
#include "platform/machine/linux/pipewire/OpenNode.h"
#include "platform/machine/linux/pipewire/Silencer.h"

#include <optional>
#include <string>
#include <vector>

namespace platform::machine::pipewire {

class Capture final : public CaptureNode, private OpenNode {
public:
    Capture(const Surroundings& surroundings, std::string uid, std::string name, CaptureClient& client);
    ~Capture() override;

    void SetStreams(std::span<const uint32_t> streams) override;
    void SetSilenced(bool silenced) override;

private:
    void Update() override;
    void Detach() override;
    std::vector<ChannelPosition> LikelyChannels() const;
    std::vector<LinkedPort> WantedPorts() const;

    CaptureCycles mCycles;
    std::vector<uint32_t> mStreams;
    bool mWantsSilence = false;
    std::optional<Silencer> mSilencer;
};

}  // namespace platform::machine::pipewire
