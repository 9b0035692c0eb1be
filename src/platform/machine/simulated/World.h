// World: what the simulated audio server deals with: devices, applications, their streams, and where each
// stream plays.
// Why: the rules a desktop follows when devices come and go stand here, apart from the port. A stream plays on
// the output that it wishes for while that is there, and on the default output otherwise; the default is the
// one that was chosen while that is there, and the first one otherwise.
// Start at Application; a Scenario makes them and moves them about.
#pragma once

#include "platform/machine/simulated/Devices.h"

#include <algorithm>
#include <memory>

namespace platform::machine::simulated {

class SimulatedProcesses;
class World;

/// One stream of an application. Its frames are consumed one after another, whoever's clock asks for them.
class Stream {
public:
    using Listener = std::function<void(const HeardCycle&)>;

    Stream& channels(std::vector<ChannelPosition> positions);
    /// Is there but does not play yet.
    Stream& stopped();
    /// Calls `listener` on the data thread with all that is heard of it.
    Stream& heardBy(Listener listener);

    /// Frames that its application had to provide so far.
    uint64_t PlayedFrames() const { return mFrame; }
    /// Those of them that came out of some output's speakers.
    uint64_t HeardFrames() const { return mHeardFrames; }
    /// The server's number for it now; 0 while it is not there.
    uint32_t Number() const { return mStream.mID; }
    /// Its application's.
    const std::string& Name() const { return mStream.mApplicationName; }

private:
    friend class Application;
    friend class World;
    friend class SimulatedServer;
    friend class SimulatedCapture;

    void Play(const Driver::Cycle& now);

    World* mWorld = nullptr;
    PlaybackStream mStream;
    Signal mSignal;
    Output* mWish = nullptr;  // null: whatever is the default
    Listener mListener;
    uint64_t mFrame = 0;
    uint64_t mHeardFrames = 0;
    Output* mHome = nullptr;                   // where it is heard, or would be if it were not silenced
    Driver* mDriver = nullptr;                 // whose cycles consume it
    std::vector<std::vector<float>> mSamples;  // of the cycle that runs, a channel each
};

/// A process that may play.
class Application {
public:
    Application(World& world, std::string name, pid_t pid) : mWorld(world), mName(std::move(name)), mPID(pid) {}

    /// Begins to play `signal`, on `output` or else on the default one.
    Stream& plays(Signal signal, Output* output = nullptr);
    Stream& plays(Signal signal, Output& output) { return plays(std::move(signal), &output); }
    /// What it tells the server of itself.
    Application& identifier(std::string id);

    pid_t PID() const { return mPID; }
    const std::string& Name() const { return mName; }

private:
    friend class World;

    World& mWorld;
    std::string mName;
    std::string mIdentifier;
    pid_t mPID;
};

/// The devices of one direction, in the server's order. The default is the one that was chosen while that is there,
/// and the first one otherwise.
template <class D>
class DeviceList {
public:
    D& Add(World& world, std::string uid) { return *mAll.emplace_back(std::make_unique<D>(world, std::move(uid))); }
    void Choose(D& device) { mChosen = &device; }
    std::span<const std::unique_ptr<D>> All() const { return mAll; }

    /// Null: none is there.
    D* Default() const
    {
        if (mChosen && mChosen->Number()) return mChosen;
        return First([](const D& device) { return device.Number() != 0; });
    }
    /// Null: it is not there.
    D* Find(const std::string& uid) const
    {
        return First([&](const D& device) { return device.UID() == uid && device.Number(); });
    }

private:
    template <class Test>
    D* First(Test test) const
    {
        const auto found = std::ranges::find_if(mAll, [&](const auto& each) { return test(*each); });
        return found == mAll.end() ? nullptr : found->get();
    }

    std::vector<std::unique_ptr<D>> mAll;
    D* mChosen = nullptr;
};

class World {
public:
    World(Agenda& agenda, SimulatedProcesses& processes) : mAgenda(agenda), mProcesses(processes) {}

    std::function<void()> mOnChange;        // something changed; called by whoever changed it
    std::function<void(Driver&)> mOnCycle;  // an output's, on the data thread
    std::function<void(const Input&, const CaptureCycle&)> mOnDelivery;  // on the data thread

    Output& AddOutput(std::string uid);
    Input& AddInput(std::string uid);
    Application& AddApplication(std::string name, pid_t pid, pid_t parent, std::string executable);
    Stream& AddStream(Stream stream);

    void Plug(ScriptedDevice& device);
    void Unplug(ScriptedDevice& device);
    void Choose(Output& output);
    void Choose(Input& input);
    void Move(Stream& stream, Output* output);
    void SetPlaying(Stream& stream, bool playing);
    /// The process ends, and with it its streams.
    void End(Application& application);
    /// The server goes, or comes back with other numbers for everything.
    void SetServerUp(bool up);
    /// All clocks stood still for so long.
    void Shift(uint64_t nanos);

    void Changed() { mOnChange(); }
    bool IsServerUp() const { return mServerUp; }
    Output* PlaceOf(const Stream& stream) const;
    uint32_t NewNumber() { return mNextNumber++; }
    Agenda& GetAgenda() { return mAgenda; }
    const DeviceList<Output>& Outputs() const { return mOutputs; }
    const DeviceList<Input>& Inputs() const { return mInputs; }
    std::span<const std::unique_ptr<Stream>> Streams() const { return mStreams; }

private:
    void Bring(ScriptedDevice& device);
    void Take(ScriptedDevice& device);
    std::vector<ScriptedDevice*> Devices() const;

    Agenda& mAgenda;
    SimulatedProcesses& mProcesses;
    DeviceList<Output> mOutputs;
    DeviceList<Input> mInputs;
    std::vector<std::unique_ptr<Application>> mApplications;
    std::vector<std::unique_ptr<Stream>> mStreams;
    bool mServerUp = true;
    uint32_t mNextNumber = 31;
};

}  // namespace platform::machine::simulated
