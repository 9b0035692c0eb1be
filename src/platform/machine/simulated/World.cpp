#include "platform/machine/simulated/World.h"

#include "platform/machine/simulated/Agenda.h"
#include "platform/machine/simulated/SimulatedProcesses.h"
#include "platform/machine/simulated/Unseen.h"

#include <utility>

namespace platform::machine::simulated {

// ---- Stream, Application

Stream& Stream::channels(std::vector<ChannelPosition> positions)
{
    mStream.mChannels = std::move(positions);
    mWorld->Changed();
    return *this;
}

Stream& Stream::stopped()
{
    mWorld->SetPlaying(*this, false);
    return *this;
}

Stream& Stream::heardBy(Listener listener)
{
    mListener = std::move(listener);
    return *this;
}

void Stream::Play(const Driver::Cycle& now)
{
    Fill(mSamples, mSignal, now.FramesFrom(mFrame), mStream.mChannels.size(), now.mSettings.mQuantumFrames);
}

Stream& Application::plays(Signal signal, Output* output)
{
    Stream stream;
    stream.mWorld = &mWorld;
    stream.mSignal = std::move(signal);
    stream.mWish = output;
    stream.mStream.mPID = mPID;
    stream.mStream.mApplicationName = mName;
    stream.mStream.mApplicationID = mIdentifier;
    stream.mStream.mPlaying = true;
    stream.mStream.mChannels = {ChannelPosition::FrontLeft, ChannelPosition::FrontRight};
    return mWorld.AddStream(std::move(stream));
}

Application& Application::identifier(std::string id)
{
    mIdentifier = std::move(id);
    return *this;
}

// ---- World

Output& World::AddOutput(std::string uid)
{
    const Unseen unseen;
    Output& added = mOutputs.Add(*this, std::move(uid));
    Plug(added);
    return added;
}

Input& World::AddInput(std::string uid)
{
    const Unseen unseen;
    Input& added = mInputs.Add(*this, std::move(uid));
    Plug(added);
    return added;
}

Application& World::AddApplication(std::string name, pid_t pid, pid_t parent, std::string executable)
{
    const Unseen unseen;
    ProcessRecord record;
    record.mPID = pid;
    record.mParent = parent;
    record.mName = name;
    record.mExecutable = std::move(executable);
    mProcesses.Spawn(std::move(record));
    return *mApplications.emplace_back(std::make_unique<Application>(*this, std::move(name), pid));
}

Stream& World::AddStream(Stream stream)
{
    const Unseen unseen;
    Stream& added = *mStreams.emplace_back(std::make_unique<Stream>(std::move(stream)));
    if (mServerUp) added.mStream.mID = NewNumber();
    Changed();
    return added;
}

void World::Plug(ScriptedDevice& device)
{
    device.mPlugged = true;
    if (mServerUp && !device.mDevice.mID) Bring(device);
    Changed();
}

void World::Unplug(ScriptedDevice& device)
{
    device.mPlugged = false;
    Take(device);
    Changed();
}

void World::Choose(Output& output)
{
    mOutputs.Choose(output);
    Changed();
}

void World::Choose(Input& input)
{
    mInputs.Choose(input);
    Changed();
}

void World::Move(Stream& stream, Output* output)
{
    stream.mWish = output;
    Changed();
}

void World::SetPlaying(Stream& stream, bool playing)
{
    stream.mStream.mPlaying = playing;
    Changed();
}

void World::End(Application& application)
{
    mProcesses.Exit(application.mPID);
    for (const auto& stream : mStreams) {
        if (stream->mStream.mPID != application.mPID) continue;
        stream->mStream.mPlaying = false;
        stream->mStream.mPID = 0;
        stream->mStream.mID = 0;
    }
    Changed();
}

void World::SetServerUp(bool up)
{
    if (mServerUp == up) return;
    mServerUp = up;
    for (ScriptedDevice* device : Devices()) up && device->mPlugged ? Bring(*device) : Take(*device);
    for (const auto& stream : mStreams) stream->mStream.mID = up && stream->mStream.mPID ? NewNumber() : 0;
    Changed();
}

void World::Shift(uint64_t nanos)
{
    for (ScriptedDevice* device : Devices()) device->mDriver.Shift(nanos);
}

Output* World::PlaceOf(const Stream& stream) const
{
    if (!stream.Number()) return nullptr;
    return stream.mWish && stream.mWish->Number() ? stream.mWish : mOutputs.Default();
}

void World::Bring(ScriptedDevice& device)
{
    device.mDevice.mID = NewNumber();
    device.mDriver.Start(device.mDevice.mID, device.mLateNanos);
}

void World::Take(ScriptedDevice& device)
{
    device.mDevice.mID = 0;
    device.mDriver.Stop();
}

std::vector<ScriptedDevice*> World::Devices() const
{
    std::vector<ScriptedDevice*> devices;
    for (const auto& output : mOutputs.All()) devices.push_back(output.get());
    for (const auto& input : mInputs.All()) devices.push_back(input.get());
    return devices;
}

}  // namespace platform::machine::simulated
