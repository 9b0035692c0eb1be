// SimulatedOutput: one open output. It has its client fill the cycles of the output that it plays on.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/simulated/CycleClient.h"

namespace platform::machine::simulated {

class Output;
class SimulatedServer;

class SimulatedOutput final : public OutputNode {
public:
    /// @param uid  empty: whichever is the default
    SimulatedOutput(SimulatedServer& server, Gate& gate, std::string uid, PlaybackClient& client);
    ~SimulatedOutput() override;

    const std::string& UID() const { return mUID; }

    /// Plays the cycle that runs on `device`; nothing where its format is yet to be announced.
    ///
    /// @thread data
    void Play(Output& device);
    /// Tells the client the format of what it plays on, where that is another now.
    ///
    /// @thread control, inside one Unseen
    void Announce();

private:
    struct Format {
        uint32_t mRateHz = 0;
        std::vector<ChannelPosition> mChannels;

        bool operator==(const Format&) const = default;
    };

    SimulatedServer& mServer;
    const std::string mUID;
    CycleClient<PlaybackClient> mClient;
    Format mSeen;  // in the latest cycle
    Format mAnnounced;
    std::vector<std::vector<float>> mSamples;  // of the cycle that runs, a channel each
    std::vector<float*> mChannels;
};

}  // namespace platform::machine::simulated
