// Telling every process of the user of a change: 100 that listen and 20 names that dead ones left, which the first
// sender after them removes. Beside it the floor: one datagram to each of 100 sockets whose addresses are known.
// The time is the sender's own; the listeners are processes that wait for messages.
#include "platform/machine/linux/LinuxMessenger.h"

#include <benchmark/benchmark.h>

#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <vector>

namespace {

using platform::machine::BindListener;
using platform::machine::Descriptor;
using platform::machine::IfMissing;
using platform::machine::LinuxMessenger;
using platform::machine::NewListenerName;
using platform::machine::OpenMessageFolder;

constexpr int kLiving = 100;
constexpr char kMessage[] = "com.ostrel.corvane.prefschanged\0com.ostrel.corvane.prefschanged";

// Ends with this process.
void StartListener(const std::string& runtimeFolder, const int (&ready)[2])
{
    if (fork() != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    LinuxMessenger messenger(runtimeFolder);
    messenger.Listen([](std::string_view) {});
    if (write(ready[1], "", 1) != 1) _exit(1);
    for (;;) pause();
}

// A runtime folder with listeners that live, which goes with the process.
class Crowd {
public:
    Crowd()
    {
        char pattern[] = "/tmp/corvane-bench-XXXXXX";
        if (!mkdtemp(pattern)) abort();
        mRuntimeFolder = pattern;
        int ready[2];
        if (pipe(ready) != 0) abort();
        for (int each = 0; each < kLiving; ++each) StartListener(mRuntimeFolder, ready);
        char byte;
        for (int each = 0; each < kLiving; ++each)
            if (read(ready[0], &byte, 1) != 1) abort();
    }
    ~Crowd() { std::filesystem::remove_all(mRuntimeFolder); }

    const std::string& RuntimeFolder() const { return mRuntimeFolder; }
    Descriptor Folder() const { return OpenMessageFolder(mRuntimeFolder, IfMissing::Make).mFolder; }

private:
    std::string mRuntimeFolder;
};

const Crowd& TheCrowd()
{
    static const Crowd sCrowd;
    return sCrowd;
}

void Broadcast(benchmark::State& state)
{
    LinuxMessenger sender(TheCrowd().RuntimeFolder());
    const Descriptor folder = TheCrowd().Folder();
    for (auto _ : state) {
        state.PauseTiming();
        for (int dead = 0; dead < state.range(0); ++dead) BindListener(folder, NewListenerName());
        state.ResumeTiming();
        if (sender.Broadcast({kMessage, sizeof kMessage - 1}) != 0) state.SkipWithError("nobody was reached");
    }
}
BENCHMARK(Broadcast)->ArgName("dead")->Arg(20)->Arg(0);

void SendByLoop(benchmark::State& state)
{
    std::vector<sockaddr_un> addresses;
    for (const auto& each : std::filesystem::directory_iterator(TheCrowd().RuntimeFolder() + "/corvane")) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s", each.path().c_str());
        addresses.push_back(address);
    }
    const Descriptor sender(socket(AF_UNIX, SOCK_DGRAM, 0));
    for (auto _ : state)
        for (const sockaddr_un& address : addresses)
            benchmark::DoNotOptimize(sendto(sender.Get(), kMessage, sizeof kMessage - 1, MSG_DONTWAIT | MSG_NOSIGNAL,
                                            reinterpret_cast<const sockaddr*>(&address), sizeof address));
}
BENCHMARK(SendByLoop);

}  // namespace

BENCHMARK_MAIN();
