// What it takes to decide that new streams belong to a capture, beside one look at a process.
#include "tap/Membership.h"

#include <benchmark/benchmark.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

namespace {

constexpr pid_t kSpeakers = 1;

/// Processes that do nothing until they are gone.
class Sleepers {
public:
    explicit Sleepers(int count)
    {
        for (int i = 0; i < count; ++i) {
            const pid_t pid = fork();
            if (pid == 0)
                for (;;) pause();
            mPIDs.push_back(pid);
        }
    }
    ~Sleepers()
    {
        for (const pid_t pid : mPIDs) kill(pid, SIGKILL), waitpid(pid, nullptr, 0);
    }
    std::vector<pid_t> mPIDs;
};

void OneLineage(benchmark::State& state)
{
    for (auto _ : state) benchmark::DoNotOptimize(tap::MachineAncestry().Lineage(getpid()));
}
BENCHMARK(OneLineage);

// The streams of `listed` applications are known; two more begin to play, neither of them seen before.
void JoinTwoStreams(benchmark::State& state)
{
    const auto listed = int(state.range(0));
    const Sleepers applications(listed), newcomers(2);
    tap::Configuration configuration;
    configuration.mDevices = {{"speakers", {}}};
    configuration.mProcesses = applications.mPIDs;
    platform::machine::ServerSnapshot before, after;
    before.mOutputs = {{.mID = kSpeakers, .mUID = "speakers"}};
    for (const pid_t pid : applications.mPIDs)
        before.mStreams.push_back({.mID = uint32_t(pid), .mPID = pid, .mOutputs = {kSpeakers}});
    after = before;
    for (const pid_t pid : newcomers.mPIDs)
        after.mStreams.push_back({.mID = uint32_t(pid), .mPID = pid, .mOutputs = {kSpeakers}});
    for (auto _ : state) {
        state.PauseTiming();
        tap::Membership membership(configuration, tap::MachineAncestry());
        membership.Assign(before);
        state.ResumeTiming();
        benchmark::DoNotOptimize(membership.Assign(after));
    }
}
BENCHMARK(JoinTwoStreams)->ArgName("listed")->Arg(1)->Arg(40);

}  // namespace

BENCHMARK_MAIN();
