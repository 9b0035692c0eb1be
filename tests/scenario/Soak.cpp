// corvane-soak: plays random graphs for as long as it is given, and prints the worst that was heard.
//
//     corvane-soak <minutes> [<seconds of a scenario>] [<first seed>]
//
// Ends with 1 where a graph had a frame lost or doubled, a cycle silent beyond what its buffers account for, or a
// source that was not heard.
#include "scenario/GraphSweep.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

using namespace graph;

int main(int argc, char** argv)
{
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
