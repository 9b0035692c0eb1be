#include "platform/machine/simulated/SimulatedMachine.h"

namespace platform::machine::simulated {

void SimulatedClock::SleepUntil(uint64_t nanos)
{
    while (mGate.NowNanos() < nanos) mGate.Block(WaitFor::Time, nullptr, nanos);
}

SimulatedMachine::SimulatedMachine()
{
    mProcesses.Spawn({.mPID = 1, .mName = "init"});
    mProcesses.Spawn({.mPID = SimulatedProcesses::kSelf,
                      .mParent = 1,
                      .mName = mIdentity.mMainBundle->mIdentifier,
                      .mExecutable = mIdentity.mMainBundle->mPath});
}

void SimulatedMachine::Start()
{
    mAgenda.Start();
    mServer.Start();
}

void SimulatedMachine::Stop()
{
    mMessenger.Stop();
    mServer.Stop();
    mAgenda.Stop();
}

}  // namespace platform::machine::simulated
