#include "platform/machine/simulated/SimulatedServer.h"

#include "platform/machine/simulated/Gate.h"
#include "platform/machine/simulated/SimulatedCapture.h"
#include "platform/machine/simulated/SimulatedInput.h"
#include "platform/machine/simulated/SimulatedOutput.h"
#include "platform/machine/simulated/SimulatedThreads.h"
#include "platform/machine/simulated/World.h"

#include <algorithm>
#include <utility>

namespace platform::machine::simulated {

SimulatedServer::SimulatedServer(Gate& gate, SimulatedThreads& threads, World& world)
    : mGate(gate), mThreads(threads), mWorld(world)
{
    mWorld.mOnChange = [this] { OnWorldChanged(); };
    mWorld.mOnCycle = [this](Driver& driver) { OnCycle(driver); };
    mWorld.mOnDelivery = [this](const Input& device, const CaptureCycle& cycle) { OnDelivery(device, cycle); };
}

SimulatedServer::~SimulatedServer() = default;

void SimulatedServer::Start()
{
    mStarted = mThreads.CreatePunctual(&mControl, "control", RunControl, this) == 0;
}

void SimulatedServer::Stop()
{
    if (!mStarted) return;
    {
        const Unseen unseen;
        mStop = true;
    }
    mGate.WakeAll(&mControl);
    mThreads.Join(mControl, nullptr);
    mStarted = false;
}

// ---- Looks at the server

ServerSnapshot SimulatedServer::Snapshot()
{
    const Unseen unseen;
    ServerSnapshot snapshot;
    snapshot.mGeneration = mGeneration;
    snapshot.mConnected = mWorld.IsServerUp();
    ListDevices(mWorld.Outputs(), snapshot.mOutputs, snapshot.mDefaultOutput);
    ListDevices(mWorld.Inputs(), snapshot.mInputs, snapshot.mDefaultInput);
    for (const auto& stream : mWorld.Streams())
        if (stream->Number()) snapshot.mStreams.push_back(stream->mStream);
    return snapshot;
}

template <class D>
void SimulatedServer::ListDevices(const DeviceList<D>& from, std::vector<Device>& devices, uint32_t& defaultDevice)
{
    for (const auto& device : from.All())
        if (device->Number()) devices.push_back(device->mDevice);
    if (const D* chosen = from.Default()) defaultDevice = chosen->Number();
}

bool SimulatedServer::WaitUntilReady(uint64_t deadlineNanos)
{
    const Unseen unseen;
    while (!mWorld.IsServerUp() && mGate.NowNanos() < deadlineNanos) mGate.Block(WaitFor::Work, &mWorld, deadlineNanos);
    return mWorld.IsServerUp();
}

std::string SimulatedServer::Describe()
{
    const Unseen unseen;
    return mWorld.IsServerUp() ? "connected to the simulated server"
                               : "the simulated server is away: script its return";
}

// ---- Listeners

void SimulatedServer::AddListener(ServerListener* listener)
{
    auto listening = std::make_shared<Listening>();
    listening->mListener = listener;
    listening->mAdded.store(1, std::memory_order_release);
    const Unseen unseen;
    mListeners.push_back(std::move(listening));
}

void SimulatedServer::RemoveListener(ServerListener* listener)
{
    std::shared_ptr<Listening> listening;
    {
        const Unseen unseen;
        const auto found = std::ranges::find(mListeners, listener, [](const auto& each) { return each->mListener; });
        if (found == mListeners.end()) return;
        listening = *found;
        mListeners.erase(found);
        while (mTelling == listening.get()) mGate.Block(WaitFor::Work, &mTelling);
    }
    static_cast<void>(listening->mTold.load(std::memory_order_acquire));
}

void* SimulatedServer::RunControl(void* self)
{
    auto& server = *static_cast<SimulatedServer*>(self);
    while (server.WaitForWork()) {
        server.Announce();
        server.Tell();
    }
    return nullptr;
}

/// @return false when it is time to end
bool SimulatedServer::WaitForWork()
{
    const Unseen unseen;
    while (!mStop && !mAnnouncing && mToldGeneration == mGeneration) mGate.Block(WaitFor::Work, &mControl);
    return !mStop;
}

void SimulatedServer::Tell()
{
    if (!HasChanged()) return;
    for (const auto& listening : CopyListeners()) {
        {
            const Unseen unseen;
            if (std::ranges::find(mListeners, listening) == mListeners.end()) continue;
            mTelling = listening.get();
        }
        static_cast<void>(listening->mAdded.load(std::memory_order_acquire));
        listening->mListener->OnServerChanged();
        listening->mTold.store(1, std::memory_order_release);
        const Unseen unseen;
        mTelling = nullptr;
        mGate.WakeAll(&mTelling);
    }
}

/// Whether the listeners are to be told; they are then.
bool SimulatedServer::HasChanged()
{
    const Unseen unseen;
    return std::exchange(mToldGeneration, mGeneration) != mGeneration;
}

std::vector<std::shared_ptr<SimulatedServer::Listening>> SimulatedServer::CopyListeners()
{
    const Unseen unseen;
    return mListeners;
}

void SimulatedServer::OnWorldChanged()
{
    Settle();
    ++mGeneration;
    mGate.WakeAll(&mControl);
    mGate.WakeAll(&mWorld);
}

void SimulatedServer::Shift(uint64_t nanos)
{
    mWorld.Shift(nanos);
    for (SimulatedCapture* capture : mCaptures) capture->Hole().Shift(nanos);
}

// ---- Outputs

std::unique_ptr<OutputNode> SimulatedServer::OpenOutput(const std::string& uid, const std::string&,
                                                        PlaybackClient& client)
{
    return std::make_unique<SimulatedOutput>(*this, mGate, uid, client);
}

void SimulatedServer::WantAnnouncement()
{
    mAnnouncing = true;
    mGate.WakeAll(&mControl);
}

void SimulatedServer::Announce()
{
    const Unseen unseen;
    mAnnouncing = false;
    // Announcing never blocks, so that no output comes or goes meanwhile.
    for (SimulatedOutput* output : mOutputs) output->Announce();
}

Output* SimulatedServer::PlaceOf(const SimulatedOutput& output) const
{
    return output.UID().empty() ? mWorld.Outputs().Default() : mWorld.Outputs().Find(output.UID());
}

/// What all play on the output of that driver goes out together.
void SimulatedServer::PlayOutputs(const Driver& driver)
{
    const auto all = mWorld.Outputs().All();
    const auto device = std::ranges::find_if(all, [&](const auto& each) { return &each->mDriver == &driver; });
    if (device == all.end()) return;
    for (SimulatedOutput* output : mOutputs)
        if (PlaceOf(*output) == device->get()) output->Play(**device);
    (*device)->EndCycle();
}

// ---- Captures

std::unique_ptr<CaptureNode> SimulatedServer::OpenCapture(const std::string& uid, const std::string&,
                                                          CaptureClient& client)
{
    return std::make_unique<SimulatedCapture>(*this, mGate, uid, client);
}

std::unique_ptr<InputNode> SimulatedServer::OpenInput(const std::string& uid, const std::string&, CaptureClient& client)
{
    return std::make_unique<SimulatedInput>(*this, mGate, uid, client);
}

void SimulatedServer::Add(SimulatedCapture* capture)
{
    mCaptures.push_back(capture);
}

void SimulatedServer::Remove(SimulatedCapture* capture)
{
    std::erase(mCaptures, capture);
    Settle();
}

void SimulatedServer::Settle()
{
    PlaceStreams();
    RunHoles();
}

/// A stream at home on an output plays into the hole of the first capture of that output that silences it.
void SimulatedServer::PlaceStreams()
{
    for (const auto& stream : mWorld.Streams()) {
        Output* home = stream->mHome = mWorld.PlaceOf(*stream);
        stream->mDriver = home ? &home->mDriver : nullptr;
        stream->mStream.mOutputs.clear();
        if (!home) continue;
        stream->mStream.mOutputs.push_back(home->Number());
        const auto silencer = std::ranges::find_if(mCaptures, [&](const auto* capture) {
            return capture->UID() == home->UID() && capture->Silences(*stream);
        });
        if (silencer != mCaptures.end()) stream->mDriver = &(*silencer)->Hole();
    }
}

/// A hole has a clock while something plays into it.
void SimulatedServer::RunHoles()
{
    for (SimulatedCapture* capture : mCaptures) {
        Driver& hole = capture->Hole();
        const Output* home = mWorld.Outputs().Find(capture->UID());
        const bool needed =
            std::ranges::any_of(mWorld.Streams(), [&](const auto& each) { return each->mDriver == &hole; });
        if (!needed) {
            hole.Stop();
            continue;
        }
        hole.mSettings.mRateHz = home->mDriver.mSettings.mRateHz;
        hole.mSettings.mQuantumFrames = home->mDriver.mSettings.mQuantumFrames;
        if (!hole.IsRunning()) hole.Start(mWorld.NewNumber());
    }
}

Driver* SimulatedServer::DriverOf(const SimulatedCapture& capture) const
{
    const Output* home = mWorld.Outputs().Find(capture.UID());
    if (!home) return nullptr;
    for (const auto& stream : mWorld.Streams()) {
        if (stream->mHome == home && stream->mDriver != &home->mDriver && capture.Captures(*stream))
            return stream->mDriver;
    }
    return const_cast<Driver*>(&home->mDriver);
}

// ---- Cycles

void SimulatedServer::OnCycle(Driver& driver)
{
    PlayStreams(driver);
    PlayOutputs(driver);
    // Rendering never blocks, so that no capture comes or goes meanwhile.
    for (SimulatedCapture* capture : mCaptures)
        if (DriverOf(*capture) == &driver) capture->Render(driver, mWorld.Streams());
}

void SimulatedServer::PlayStreams(Driver& driver)
{
    for (const auto& stream : mWorld.Streams()) {
        if (stream->mDriver != &driver || !stream->mStream.mPlaying) continue;
        stream->Play(driver.Now());
        LetHear(*stream, driver);
        stream->mFrame += driver.Now().mSettings.mQuantumFrames;
    }
}

void SimulatedServer::LetHear(Stream& stream, const Driver& driver)
{
    if (&driver != &stream.mHome->mDriver) return;
    stream.mHeardFrames += driver.Now().mSettings.mQuantumFrames;
    stream.mHome->Hear(stream.mStream.mChannels, stream.mSamples);
    if (stream.mListener) stream.mListener({*stream.mHome, driver.Now().mHostNanos, stream.mFrame, stream.mSamples});
}

void SimulatedServer::OnDelivery(const Input& device, const CaptureCycle& cycle)
{
    for (SimulatedInput* input : mInputs)
        if (input->UID() == device.UID()) input->Client().Render(cycle);
}

}  // namespace platform::machine::simulated
