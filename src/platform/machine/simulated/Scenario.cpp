#include "platform/machine/simulated/Scenario.h"

#include <algorithm>
#include <utility>

namespace platform::machine::simulated {

namespace {

SimulatedMachine& InstallOne()
{
    auto machine = std::make_unique<SimulatedMachine>();
    SimulatedMachine& installed = *machine;
    Machine::Install(std::move(machine));
    return installed;
}

uint64_t Nanos(nanoseconds length)
{
    return static_cast<uint64_t>(std::max<int64_t>(0, length.count()));
}

}  // namespace

// ---- Happening

Happening& Happening::Script(std::string line, std::function<void()> action)
{
    mMachine.GetAgenda().At(mNanos, nullptr, [&machine = mMachine, line = std::move(line), action = std::move(action)] {
        machine.GetTrace().Add(line);
        action();
    });
    return *this;
}

Happening& Happening::plug(ScriptedDevice& device)
{
    return Script(device.UID() + " plugged", [&world = mMachine.GetWorld(), &device] { world.Plug(device); });
}

Happening& Happening::unplug(ScriptedDevice& device)
{
    return Script(device.UID() + " unplugged", [&world = mMachine.GetWorld(), &device] { world.Unplug(device); });
}

Happening& Happening::makeDefault(Output& output)
{
    return Script(output.UID() + " is the default", [&world = mMachine.GetWorld(), &output] { world.Choose(output); });
}

Happening& Happening::makeDefault(Input& input)
{
    return Script(input.UID() + " is the default", [&world = mMachine.GetWorld(), &input] { world.Choose(input); });
}

Happening& Happening::rate(ScriptedDevice& device, uint32_t hertz)
{
    return Script(device.UID() + " at " + std::to_string(hertz) + " Hz",
                  [&device, hertz] { device.Set(&Driver::Settings::mRateHz, hertz); });
}

Happening& Happening::quantum(ScriptedDevice& device, uint32_t frames)
{
    return Script(device.UID() + " at quantum " + std::to_string(frames),
                  [&device, frames] { device.Set(&Driver::Settings::mQuantumFrames, frames); });
}

Happening& Happening::crystal(ScriptedDevice& device, double ppm)
{
    return Script(device.UID() + " off by " + std::to_string(ppm) + " ppm",
                  [&device, ppm] { device.Set(&Driver::Settings::mCrystalPPM, ppm); });
}

Happening& Happening::jump(ScriptedDevice& device, int64_t frames)
{
    return Script(device.UID() + " jumps by " + std::to_string(frames) + " frames",
                  [&device, frames] { device.Jump(frames); });
}

Happening& Happening::start(Input& input)
{
    return Script(input.UID() + " delivers again", [&input] { input.SetDelivering(true); });
}

Happening& Happening::stop(Input& input)
{
    return Script(input.UID() + " delivers nothing", [&input] { input.SetDelivering(false); });
}

Happening& Happening::stamp(Input& input)
{
    return Script(input.UID() + " has host times", [&input] { input.SetStamped(true); });
}

Happening& Happening::unstamp(Input& input)
{
    return Script(input.UID() + " has no host times", [&input] { input.SetStamped(false); });
}

Happening& Happening::repeatCycle(Input& input)
{
    return Script(input.UID() + " repeats a cycle", [&input] { input.RepeatNext(); });
}

Happening& Happening::delayCycle(Input& input)
{
    return Script(input.UID() + " delays a cycle", [&input] { input.DelayNext(); });
}

Happening& Happening::start(Stream& stream)
{
    return Script(stream.Name() + " plays",
                  [&world = mMachine.GetWorld(), &stream] { world.SetPlaying(stream, true); });
}

Happening& Happening::stop(Stream& stream)
{
    return Script(stream.Name() + " stops",
                  [&world = mMachine.GetWorld(), &stream] { world.SetPlaying(stream, false); });
}

Happening& Happening::move(Stream& stream, Output& output)
{
    return Script(stream.Name() + " moves to " + output.UID(),
                  [&world = mMachine.GetWorld(), &stream, &output] { world.Move(stream, &output); });
}

Happening& Happening::end(Application& application)
{
    return Script(application.Name() + " ends",
                  [&world = mMachine.GetWorld(), &application] { world.End(application); });
}

Happening& Happening::serverDown()
{
    return Script("server down", [&world = mMachine.GetWorld()] { world.SetServerUp(false); });
}

Happening& Happening::serverUp()
{
    return Script("server up", [&world = mMachine.GetWorld()] { world.SetServerUp(true); });
}

Happening& Happening::post(const std::string& name, const std::string& object)
{
    return message(name + '\0' + object);
}

Happening& Happening::message(std::string bytes)
{
    const std::string name = bytes.substr(0, bytes.find('\0'));
    return Script(name + " is told",
                  [&messenger = mMachine.GetMessenger(), bytes = std::move(bytes)] { messenger.Arrive(bytes); });
}

Happening& Happening::stall(const std::string& thread, nanoseconds length)
{
    const uint64_t until = mNanos + Nanos(length);
    return Script(thread + " stalls",
                  [&gate = mMachine.GetGate(), thread, until] { gate.Stall(thread.c_str(), until); });
}

Happening& Happening::stepClock(nanoseconds length)
{
    const uint64_t step = Nanos(length);
    return Script("clock steps by " + std::to_string(step) + " ns", [&machine = mMachine, step] {
        machine.GetGate().StepClock(step);
        machine.GetAudioServer().Shift(step);
    });
}

Happening& Happening::call(std::function<void()> action)
{
    mMachine.GetAgenda().At(mNanos, nullptr, std::move(action));
    return *this;
}

// ---- Scenario

Scenario::Scenario() : mMachine(InstallOne())
{
    mMachine.Start();
}

Scenario::~Scenario()
{
    mMachine.Stop();
}

Application& Scenario::application(std::string name, pid_t pid, pid_t parent, std::string executable)
{
    return mMachine.GetWorld().AddApplication(std::move(name), pid, parent, std::move(executable));
}

Happening Scenario::at(nanoseconds sinceStart)
{
    return {mMachine, kStartNanos + Nanos(sinceStart)};
}

void Scenario::lateWakeups(nanoseconds most, uint64_t seed)
{
    mMachine.GetGate().WakeLate(Nanos(most), seed);
}

void Scenario::runUntil(nanoseconds sinceStart)
{
    mMachine.GetClock().SleepUntil(kStartNanos + Nanos(sinceStart));
}

void Scenario::runFor(nanoseconds length)
{
    runUntil(now() + length);
}

nanoseconds Scenario::now() const
{
    return nanoseconds(mMachine.GetGate().NowNanos() - kStartNanos);
}

}  // namespace platform::machine::simulated
