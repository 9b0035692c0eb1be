// SimulatedCapture: one open capture. It takes what its streams play in a cycle and renders it to its client.
// Why the hole: a silenced stream plays on, but into a sink of ours whose cycles count the host clock; the
// capture then hears of another clock, as it does in life.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/simulated/CycleClient.h"
#include "platform/machine/simulated/Driver.h"

namespace platform::machine::simulated {

class SimulatedServer;
class Stream;

class SimulatedCapture final : public CaptureNode {
public:
    SimulatedCapture(SimulatedServer& server, Gate& gate, std::string uid, CaptureClient& client);
    ~SimulatedCapture() override;

    void SetStreams(std::span<const uint32_t> streams) override;
    void SetSilenced(bool silenced) override;

    const std::string& UID() const { return mUID; }
    bool Captures(const Stream& stream) const;
    /// Whether `stream`, which is at home on this capture's output, is to play into the hole.
    bool Silences(const Stream& stream) const { return mSilenced && Captures(stream); }
    Driver& Hole() { return mHole; }

    /// Renders what the streams have played in the cycle of `driver`, which is this capture's. Rests while none of them
    /// plays, as a server lets it.
    ///
    /// @thread data
    void Render(const Driver& driver, std::span<const std::unique_ptr<Stream>> streams);

private:
    struct Channel {
        ChannelPosition mPosition;
        std::vector<float> mSamples;
    };

    void Mix(const Driver& driver, std::span<const std::unique_ptr<Stream>> streams);
    void Add(ChannelPosition position, std::span<const float> samples);

    SimulatedServer& mServer;
    const std::string mUID;
    CycleClient<CaptureClient> mClient;
    std::vector<uint32_t> mStreams;
    bool mSilenced = false;
    bool mRests = true;
    Driver mHole;
    std::vector<Channel> mMixed;
    std::vector<CaptureCycle::Channel> mChannels;
};

}  // namespace platform::machine::simulated
