#include "platform/machine/simulated/World.h"

#include "platform/machine/simulated/Agenda.h"
#include "platform/machine/simulated/SimulatedProcesses.h"
#include "platform/machine/simulated/Unseen.h"

#include <algorithm>
#include <utility>

namespace platform::machine::simulated {

// ---- Output

Output::Output(World& world, std::string uid)
    : mWorld(world), mDriver(world.GetAgenda(), [&world](Driver& driver) { world.mOnCycle(driver); })
{
    mDevice.mName = uid;
    mDevice.mUID = std::move(uid);
    mDevice.mNominalRateHz = mDriver.mSettings.mRateHz;
    mDevice.mChannels = {ChannelPosition::FrontLeft, ChannelPosition::FrontRight};
}

Output& Output::named(std::string name)
{
    mDevice.mName = std::move(name);
    mWorld.Changed();
    return *this;
}

Output& Output::rate(uint32_t hertz)
{
    mDevice.mNominalRateHz = mDriver.mSettings.mRateHz = hertz;
    mWorld.Changed();
    return *this;
}

Output& Output::quantum(uint32_t frames)
{
    mDriver.mSettings.mQuantumFrames = frames;
    mWorld.Changed();
    return *this;
}

Output& Output::channels(std::vector<ChannelPosition> positions)
{
    mDevice.mChannels = std::move(positions);
    mWorld.Changed();
    return *this;
}

Output& Output::crystal(double ppm)
{
    mDriver.mSettings.mCrystalPPM = ppm;
    return *this;
}

Output& Output::saidRateScalar(double scalar)
{
    mDriver.mSettings.mSaidRateScalar = scalar;
    return *this;
}

Output& Output::jitter(std::chrono::nanoseconds most)
{
    mDriver.mSettings.mJitterNanos = static_cast<uint64_t>(most.count());
    return *this;
}

Output& Output::absent()
{
    mWorld.Unplug(*this);
    return *this;
}

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

void Stream::Play(unsigned frames)
{
    mSamples.resize(mStream.mChannels.size());
    for (unsigned channel = 0; channel < mSamples.size(); ++channel) {
        mSamples[channel].resize(frames);
        mSignal(mFrame, channel, mSamples[channel]);
    }
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
    Output& added = *mOutputs.emplace_back(std::make_unique<Output>(*this, std::move(uid)));
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

void World::Plug(Output& output)
{
    output.mPlugged = true;
    if (mServerUp && !output.mDevice.mID) Bring(output);
    Changed();
}

void World::Unplug(Output& output)
{
    output.mPlugged = false;
    Take(output);
    Changed();
}

void World::Choose(Output& output)
{
    mChosen = &output;
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
    for (const auto& output : mOutputs) up && output->mPlugged ? Bring(*output) : Take(*output);
    for (const auto& stream : mStreams) stream->mStream.mID = up && stream->mStream.mPID ? NewNumber() : 0;
    Changed();
}

void World::Shift(uint64_t nanos)
{
    for (const auto& output : mOutputs) output->mDriver.Shift(nanos);
}

Output* World::Default() const
{
    if (mChosen && mChosen->Number()) return mChosen;
    const auto there = std::ranges::find_if(mOutputs, [](const auto& output) { return output->Number() != 0; });
    return there == mOutputs.end() ? nullptr : there->get();
}

Output* World::Find(const std::string& uid) const
{
    const auto found = std::ranges::find_if(mOutputs, [&](const auto& output) { return output->UID() == uid; });
    return found == mOutputs.end() || !(*found)->Number() ? nullptr : found->get();
}

Output* World::PlaceOf(const Stream& stream) const
{
    if (!stream.Number()) return nullptr;
    return stream.mWish && stream.mWish->Number() ? stream.mWish : Default();
}

void World::Bring(Output& output)
{
    output.mDevice.mID = NewNumber();
    output.mDriver.Start(output.mDevice.mID);
}

void World::Take(Output& output)
{
    output.mDevice.mID = 0;
    output.mDriver.Stop();
}

}  // namespace platform::machine::simulated
