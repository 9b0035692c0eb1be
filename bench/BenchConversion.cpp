// The tap consumer's copy out of the shared ring, in each of the session's formats, beside a plain memcpy of
// the same floats. Ours loads every sample atomically, since the ring's writer may lap it.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "avcapture/SampleConversion.h"

namespace {

std::vector<float> MakeRing(size_t samples)
{
    std::vector<float> ring(samples);
    for (size_t i = 0; i < samples; ++i) ring[i] = static_cast<float>(std::sin(static_cast<double>(i)));
    return ring;
}

void CountSamples(benchmark::State& state, size_t samples)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * samples * sizeof(float)));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * samples / 2));  // stereo frames
}

void Memcpy(benchmark::State& state)
{
    const auto samples = static_cast<size_t>(state.range(0)) * 2;
    const auto ring = MakeRing(samples);
    std::vector<float> out(samples);
    for (auto _ : state) {
        std::memcpy(out.data(), ring.data(), samples * sizeof(float));
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    CountSamples(state, samples);
}

void Convert(benchmark::State& state, uint32_t outputType)
{
    const auto samples = static_cast<size_t>(state.range(0)) * 2;
    const auto ring = MakeRing(samples);
    std::vector<float> out(samples);
    for (auto _ : state) {
        avcapture::ConvertSamples(outputType, ring.data(), false, out.data(), samples);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    CountSamples(state, samples);
}

// Stereo blocks: the tap's 128 frames, and 4 KiB.
BENCHMARK(Memcpy)->ArgName("frames")->Arg(128)->Arg(512);
BENCHMARK_CAPTURE(Convert, fl32, avcapture::kOutputFloat)->ArgName("frames")->Arg(128)->Arg(512);
BENCHMARK_CAPTURE(Convert, sowt, avcapture::kOutputInt16Little)->ArgName("frames")->Arg(128)->Arg(512);
BENCHMARK_CAPTURE(Convert, twos, avcapture::kOutputInt16Big)->ArgName("frames")->Arg(128)->Arg(512);

}  // namespace

BENCHMARK_MAIN();
