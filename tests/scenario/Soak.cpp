// corvane-soak: plays random graphs for as long as it is given, and prints the worst that was heard.
//
//     corvane-soak <minutes> [<seconds of a scenario>] [<first seed>]
//     corvane-soak hours <simulated hours> [<seed>]    one graph, with crystals 300 ppm off to either side
//
// Ends with 1 where a graph had a frame lost or doubled, a cycle silent beyond what its buffers account for, or a
// source that was not heard.
#include "scenario/GraphSweep.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace graph;

namespace {

int PlayHours(long hours, uint64_t seed)
{
    const auto tell = [hour = 0](const Outcome& outcome) mutable {
        std::printf("hour %d: %s", ++hour, outcome.Line().c_str());
        std::fflush(stdout);
    };
    SweepSetting setting{.mSeed = seed, .mLength = std::chrono::hours(hours), .mCrystalPPM = 300};
    setting.mEachHour = tell;
    const Outcome outcome = PlaySeed(setting);
    std::printf("end: %s", outcome.Line().c_str());
    return outcome.IsWhole() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc > 2 && std::strcmp(argv[1], "hours") == 0)
        return PlayHours(std::atol(argv[2]), argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 1);
    const double minutes = argc > 1 ? std::atof(argv[1]) : 10;
    const nanoseconds length = std::chrono::seconds(argc > 2 ? std::atol(argv[2]) : 300);
    uint64_t seed = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 1;
    const auto start = std::chrono::steady_clock::now();
    const auto seconds = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };

    Outcome worst[2];  // devices stamped on time; up to a millisecond late
    unsigned played = 0, broken = 0;
    for (; seconds() < minutes * 60; ++played, ++seed) {
        const bool late = played % 2;
        const Outcome outcome = PlaySeedForked({.mSeed = seed, .mLength = length, .mLateStamps = late ? 1ms : 0ms});
        worst[late] = played < 2 ? outcome : (worst[late].Worsen(outcome), worst[late]);
        if (outcome.IsWhole()) continue;
        ++broken;
        std::printf("seed %lu, stamps %s: %s", seed, late ? "late" : "on time", outcome.Line().c_str());
    }
    std::printf("%u graphs of four sources, %.1f simulated hours, %.0f times real time; %u broken\n", played,
                played * std::chrono::duration<double>(length).count() / 3600,
                played * std::chrono::duration<double>(length).count() / seconds(), broken);
    std::printf("worst, stamps on time:       %sworst, up to 1 ms late: %s", worst[0].Line().c_str(),
                worst[1].Line().c_str());
    return broken ? 1 : 0;
}
