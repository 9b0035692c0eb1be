// Devices: the scripted outputs and inputs of the simulated server. Both have a clock and channels; an output asks its
// streams for frames, an input hears its own.
// Start at Output and Input; a Scenario makes them and moves them about.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/simulated/Driver.h"
#include "platform/machine/simulated/Signal.h"

#include <chrono>
#include <string>
#include <type_traits>
#include <vector>

namespace platform::machine::simulated {

class World;
class Output;

/// What reached an output's speakers in one cycle, of one stream or of all that plays there.
struct HeardCycle {
    const Output& mOutput;
    uint64_t mHostNanos;
    uint64_t mFirstFrame;  // counted by the stream, or of all by the output
    std::span<const std::vector<float>> mChannels;
};

/// What outputs and inputs have in common. Plugged in from its making.
class ScriptedDevice {
public:
    const std::string& UID() const { return mDevice.mUID; }
    /// The server's number for it now; 0 while it is away.
    uint32_t Number() const { return mDevice.mID; }

    /// Changes how its clock runs.
    template <class T>
    void Set(T Driver::Settings::*field, std::type_identity_t<T> value)
    {
        mDriver.mSettings.*field = value;
        Changed();
    }
    /// Its sample time moves by `frames` at once; the sound goes on as it would.
    void Jump(int64_t frames) { mDriver.Jump(frames); }

protected:
    ScriptedDevice(World& world, std::string uid, std::function<void(Driver&)> onCycle);

    void Changed();
    void Leave();
    void Restart();

    friend class World;
    friend class SimulatedServer;

    World& mWorld;
    Device mDevice;
    bool mPlugged = true;
    uint64_t mLateNanos = 0;  // from plugging it in to its first cycle
    Driver mDriver;
};

/// The verbs that set a device up, before its first cycle or later; they take effect with the next cycle.
template <class Self>
class DeviceVerbs : public ScriptedDevice {
public:
    using ScriptedDevice::ScriptedDevice;

    Self& named(std::string name)
    {
        mDevice.mName = std::move(name);
        Changed();
        return Me();
    }
    Self& channels(std::vector<ChannelPosition> positions)
    {
        mDevice.mChannels = std::move(positions);
        Changed();
        return Me();
    }
    Self& rate(uint32_t hertz) { return With(&Driver::Settings::mRateHz, hertz); }
    Self& quantum(uint32_t frames) { return With(&Driver::Settings::mQuantumFrames, frames); }
    /// Its crystal is off by so many millionths; above 0: fast.
    Self& crystal(double ppm) { return With(&Driver::Settings::mCrystalPPM, ppm); }
    /// What it says of its crystal. 1 unless set: it does not know.
    Self& saidRateScalar(double scalar) { return With(&Driver::Settings::mSaidRateScalar, scalar); }
    /// Each cycle runs, and is stamped, up to `most` late.
    Self& jitter(std::chrono::nanoseconds most, uint64_t seed = 0)
    {
        return With(&Driver::Settings::mSeed, seed)
            .With(&Driver::Settings::mJitterNanos, static_cast<uint64_t>(most.count()));
    }
    /// Its first cycle comes so long after it was plugged in.
    Self& startsLate(std::chrono::nanoseconds late)
    {
        mLateNanos = static_cast<uint64_t>(late.count());
        Restart();
        return Me();
    }
    /// Is away until it is plugged in.
    Self& absent()
    {
        Leave();
        return Me();
    }

private:
    template <class T>
    Self& With(T Driver::Settings::*field, std::type_identity_t<T> value)
    {
        Set(field, value);
        return Me();
    }
    Self& Me() { return static_cast<Self&>(*this); }
};

/// A device that streams play on.
class Output final : public DeviceVerbs<Output> {
public:
    using Listener = std::function<void(const HeardCycle&)>;

    Output(World& world, std::string uid);

    /// Calls `listener` on the data thread with all that is heard in each cycle: every stream and every player of the
    /// program's, mixed. A channel that the output does not have is not heard.
    Output& heardBy(Listener listener);

private:
    friend class SimulatedServer;
    friend class SimulatedOutput;

    void Hear(std::span<const ChannelPosition> channels, std::span<const std::vector<float>> samples);
    /// Every player has been heard in the cycle that runs.
    void EndCycle();
    std::vector<std::vector<float>>& Heard();

    Listener mListener;
    std::vector<std::vector<float>> mHeard;  // of the cycle that runs, a channel each; empty before its first player
};

/// A device that hears a signal of its own, whether it is open or not.
/// As with an output, a cycle is there when its first frame happens: the earliest that a server can be.
class Input final : public DeviceVerbs<Input> {
public:
    Input(World& world, std::string uid);

    using DeviceVerbs::channels;
    /// One: mono; two: left and right; more: unpositioned.
    Input& channels(unsigned count);
    /// What it hears; silence unless told.
    Input& plays(Signal signal);

    /// Frames that it heard since its making, delivered or not.
    uint64_t HeardFrames() const { return mFrame; }

    // ---- Faults

    /// It hears on, but delivers nothing.
    void SetDelivering(bool delivering) { mDelivering = delivering; }
    /// Whether its cycles have a host time; without one they say 0.
    void SetStamped(bool stamped) { mStamped = stamped; }
    /// The next cycle comes a second time: the same frames under the same stamp.
    void RepeatNext() { mRepeat = true; }
    /// The server is late: the next cycle comes under the stamp of the one after it, just before that one.
    void DelayNext() { mDelay = true; }

private:
    using Samples = std::vector<std::vector<float>>;

    void OnCycle(const Driver::Cycle& now);
    void Deliver(const Driver::Cycle& now, const Samples& samples);

    Signal mSignal = Silence();
    uint64_t mFrame = 0;
    bool mDelivering = true;
    bool mStamped = true;
    bool mRepeat = false;
    bool mDelay = false;
    Samples mSamples;  // of the cycle that runs, a channel each
    Samples mDelayed;  // of the cycle before, where it is late
};

}  // namespace platform::machine::simulated
