#include "platform/machine/linux/LinuxMachine.h"

#include "platform/machine/AudioServer.h"
#include "platform/machine/linux/LinuxClock.h"
#include "platform/machine/linux/LinuxFiles.h"
#include "platform/machine/linux/LinuxIdentity.h"
#include "platform/machine/linux/LinuxMemory.h"
#include "platform/machine/linux/LinuxMessenger.h"
#include "platform/machine/linux/LinuxProcesses.h"
#include "platform/machine/linux/LinuxThreads.h"
#include "platform/machine/linux/pipewire/PipeWireServer.h"

#include <mutex>

namespace platform::machine {

namespace {

class LinuxMachine final : public Machine {
public:
    Clock& GetClock() override { return mClock; }
    Threads& GetThreads() override { return mThreads; }
    Memory& GetMemory() override { return mMemory; }
    Files& GetFiles() override { return mFiles; }
    Processes& GetProcesses() override { return mProcesses; }
    Messenger& GetMessenger() override { return mMessenger; }
    Identity& GetIdentity() override { return mIdentity; }

    AudioServer& GetAudioServer() override
    {
        std::call_once(mServerOnce, [this] { mServer = MakePipeWireServer(&mThreads); });
        return *mServer;
    }

private:
    LinuxClock mClock;
    LinuxThreads mThreads;
    LinuxMemory mMemory;
    LinuxFiles mFiles;
    LinuxProcesses mProcesses;
    LinuxMessenger mMessenger;
    LinuxIdentity mIdentity{mProcesses};
    std::once_flag mServerOnce;
    std::unique_ptr<AudioServer> mServer;
};

}  // namespace

std::unique_ptr<Machine> MakeLinuxMachine()
{
    return std::make_unique<LinuxMachine>();
}

}  // namespace platform::machine
