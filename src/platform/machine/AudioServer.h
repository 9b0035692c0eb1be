// AudioServer: what an audio server offers Corvane, as ports that one concrete server fills.
// Why: the tap, the audio system's table of native devices and the list of applications stand on these few
// calls, so that a simulated server can take the real one's place.
//
// Three kinds of call, by thread:
//   - control calls (Snapshot, Open*, SetStreams, ...): any thread that may block, never the server's own;
//   - Render: the server's data thread, one call at a time for one server connection;
//   - SetPlaybackFormat: the server's control thread;
//   - OnServerChanged: the server's control thread, one at a time, in order. It may take a Snapshot and
//     nothing else of the server; what follows from the change is done on a thread of the listener's.
// Start at Snapshot, then CaptureNode.
#pragma once

#include <sys/types.h>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace platform::machine {

/// Where a channel belongs. Unpositioned channels are Auxiliary0 + n, n below kAuxiliaryChannels.
enum class ChannelPosition : uint16_t {
    Unknown,
    Mono,
    FrontLeft,
    FrontRight,
    FrontCenter,
    LowFrequency,
    SideLeft,
    SideRight,
    RearLeft,
    RearRight,
    RearCenter,
    FrontLeftOfCenter,
    FrontRightOfCenter,
    TopCenter,
    TopFrontLeft,
    TopFrontCenter,
    TopFrontRight,
    TopRearLeft,
    TopRearCenter,
    TopRearRight,
    Auxiliary0 = 64,
};
constexpr unsigned kAuxiliaryChannels = 64;

/// A device: an output, that applications play on, or an input, that delivers sound of its own.
struct Device {
    uint32_t mID = 0;   // the server's number; not zero; stands for this device while it is there
    std::string mUID;   // the stable name, the same after the device came back
    std::string mName;  // for people
    double mNominalRateHz = 0;
    std::vector<ChannelPosition> mChannels;  // of an input: all different

    bool operator==(const Device&) const = default;
};

/// One stream of an application that plays, or may play, on an output device.
struct PlaybackStream {
    uint32_t mID = 0;              // the server's number, never used twice on one connection
    pid_t mPID = 0;                // the process that plays; 0 where the server does not know
    std::string mApplicationName;  // as the server was told, for people; may be empty
    std::string mApplicationID;    // identifier property, as the server was told; may be empty
    std::string mSandboxID;        // identifier that the server's access control saw; may be empty
    bool mPlaying = false;
    /// Devices the stream plays on. A silenced stream counts as playing where it would be heard otherwise.
    std::vector<uint32_t> mOutputs;
    std::vector<ChannelPosition> mChannels;

    bool operator==(const PlaybackStream&) const = default;
};

/// One consistent look at the server.
struct ServerSnapshot {
    bool mConnected = false;
    uint64_t mGeneration = 0;              // grows with every change
    std::vector<Device> mOutputs;          // in the server's order; nodes of ours are left out
    std::vector<PlaybackStream> mStreams;  // nodes of ours are left out
    std::vector<Device> mInputs;           // in the server's order; nodes of ours and monitors of outputs are left out
    uint32_t mDefaultOutput = 0;           // 0: none
    uint32_t mDefaultInput = 0;            // 0: none

    bool operator==(const ServerSnapshot&) const = default;
};

class ServerListener {
public:
    /// Something in Snapshot() changed. Only that; take a new one.
    virtual void OnServerChanged() noexcept = 0;

protected:
    ~ServerListener() = default;
};

/// What one cycle of a clock domain brings: the same frames of every channel position.
struct CaptureCycle {
    uint64_t
        mHostNanos;  // host time of the first frame, as the domain's driver stamps it, or of arrival if it does not
    int64_t mSampleTime;  // of the first frame, on the driver's own timeline, in frames at mRateHz
    double mRateScalar;   // what the driver says of its crystal (above 1: faster than nominal); a hint
    uint32_t mRateHz;     // nominal rate of the frames below; may change from one cycle to the next
    uint32_t mFrames;
    uint32_t mClockID;  // which driver; another number means another timeline
    struct Channel {
        ChannelPosition mPosition;
        const float* mSamples;  // mFrames of them, valid during the call
    };
    std::span<const Channel> mChannels;  // those positions only that something was linked to in this cycle
    bool mResumed = false;               // the first since the server let the capture rest: none was missed before it
};

class CaptureClient {
public:
    /// One cycle of sound: the sum of the streams captured, a channel position at a time.
    ///
    /// Positions say what is missing: one that jumps by k frames means that k frames were not delivered. A server
    /// that is late may deliver a cycle under the stamp of the next one, which then comes under the same stamp.
    ///
    /// @thread the server's data thread
    /// @realtime yes: must not block, allocate or log
    virtual void Render(const CaptureCycle& cycle) noexcept = 0;

protected:
    ~CaptureClient() = default;
};

/// Takes the sound of chosen streams that share one output device, and so one clock.
///
/// After the destructor no Render runs and none will. What it silenced is heard again then, also when the
/// process dies.
class CaptureNode {
public:
    virtual ~CaptureNode() = default;

    /// Captures exactly these streams from now on; those that stay are not touched. Unknown numbers are
    /// passed over: the stream has just gone.
    virtual void SetStreams(std::span<const uint32_t> streams) = 0;

    /// Whether the captured streams are kept from being heard on their output. Captures either way.
    virtual void SetSilenced(bool silenced) = 0;
};

/// An open input device, which delivers its buffers as cycles while this lives.
///
/// After the destructor no Render runs and none will.
class InputNode {
public:
    virtual ~InputNode() = default;
};

/// What one cycle of an output device asks for.
struct PlaybackCycle {
    uint64_t mHostNanos;  // when the first frame will be heard, as far as the server knows
    int64_t mSampleTime;  // of the first frame, on the driver's own timeline, in frames of the format's rate
    uint32_t mFrames;
    std::span<float* const> mChannels;  // to be filled, mFrames samples each, in the format's order; null: not wanted
};

class PlaybackClient {
public:
    /// What cycles have from now on: before the first one, and where the device is another or runs at another rate.
    ///
    /// @param channels  of the device, in its order, all different
    /// @thread the server's control thread, never beside a Render; may allocate, but neither wait nor call the server
    virtual void SetPlaybackFormat(uint32_t rateHz, std::span<const ChannelPosition> channels) noexcept = 0;

    /// Fills one cycle, all that is wanted of it.
    ///
    /// @thread the server's data thread
    /// @realtime yes: must not block, allocate or log
    virtual void Render(const PlaybackCycle& cycle) noexcept = 0;

protected:
    ~PlaybackClient() = default;
};

/// A player on an output device, which is asked for its sound while this lives. It is none of the snapshot's streams.
///
/// After the destructor no call of the client runs and none will.
class OutputNode {
public:
    virtual ~OutputNode() = default;
};

class AudioServer {
public:
    virtual ~AudioServer() = default;

    virtual ServerSnapshot Snapshot() = 0;

    /// Waits until the server was reached and its first look is complete, or host time `deadlineNanos`.
    /// @return whether it is connected
    virtual bool WaitUntilReady(uint64_t deadlineNanos) = 0;

    /// One sentence for a person: which server was tried where, how it stands, what to start.
    virtual std::string Describe() = 0;

    virtual void AddListener(ServerListener* listener) = 0;
    /// After this no OnServerChanged of `listener` runs and none will.
    virtual void RemoveListener(ServerListener* listener) = 0;

    /// A capture in the clock domain of the output device `uid`, with no streams yet. Works while the
    /// device or the server is away, and takes both up when they are back. `name` is shown on the server.
    virtual std::unique_ptr<CaptureNode> OpenCapture(const std::string& uid, const std::string& name,
                                                     CaptureClient& client) = 0;

    /// The sound of the input device `uid`, all its channels. Works while the device or the server is away, and takes
    /// both up when they are back. `name` is shown on the server.
    virtual std::unique_ptr<InputNode> OpenInput(const std::string& uid, const std::string& name,
                                                 CaptureClient& client) = 0;

    /// Plays on the output device `uid`, or where that is empty on whichever is the default. Works while the device or
    /// the server is away, and takes both up when they are back: meanwhile it is not asked. `name` is shown on the
    /// server.
    virtual std::unique_ptr<OutputNode> OpenOutput(const std::string& uid, const std::string& name,
                                                   PlaybackClient& client) = 0;

    /// The longest cycle that the server's settings allow, in nanoseconds: no capture brings more at once.
    virtual uint64_t LongestCycleNanos() = 0;
};

}  // namespace platform::machine
