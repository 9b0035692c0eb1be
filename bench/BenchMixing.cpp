// The mixer's kernel beside the loop that one would write first, over 512-frame blocks: sparse (input c into output
// c mod M, as the default matrix is), dense, and with every gain moving. The loop, too, is compiled for lanes of eight
// where there are any. Channels lie 64 bytes more than 2 KiB apart for both.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "platform/vector/VectorKernels.h"

namespace {

using platform::vector::Crosspoint;

constexpr size_t kFrames = 512;
struct alignas(64) Channel {
    std::array<float, kFrames + 16> mSamples;
};

struct Channels {
    explicit Channels(size_t count) : mChannels(count)
    {
        for (Channel& channel : mChannels) {
            for (float& sample : channel.mSamples) sample = static_cast<float>(std::sin(++mSeed));
            mPointers.push_back(channel.mSamples.data());
        }
    }
    std::vector<Channel> mChannels;
    std::vector<float*> mPointers;
    double mSeed = 0;
};

enum Kind { kSparse, kDense, kMoving };

/// Inputs, outputs, and the gains of a matrix: a list for the kernel, a table [output][input] for the loop.
struct Mixing {
    Mixing(const benchmark::State& state, Kind kind)
        : mInputs(static_cast<size_t>(state.range(0))), mOutputs(static_cast<size_t>(state.range(1)))
    {
        const size_t inputs = mInputs.mPointers.size(), outputs = mOutputs.mPointers.size();
        for (uint32_t output = 0; output < outputs; ++output) {
            for (uint32_t input = 0; input < inputs; ++input) {
                const bool used = kind != kSparse || input % outputs == output;
                mTable.push_back(used ? 0.5f : 0);
                if (used) mList.push_back({input, output, 0.5f, kind == kMoving ? 0.6f : 0.5f});
            }
        }
    }
    Channels mInputs, mOutputs;
    std::vector<Crosspoint> mList;
    std::vector<float> mTable;
};

void MixByMixMatrix(benchmark::State& state, Kind kind)
{
    Mixing mixing(state, kind);
    const std::vector<const float*> inputs(mixing.mInputs.mPointers.begin(), mixing.mInputs.mPointers.end());
    for (auto _ : state) {
        platform::vector::MixMatrix(mixing.mList.data(), mixing.mList.size(), inputs.data(),
                                    mixing.mOutputs.mPointers.data(),
                                    static_cast<unsigned>(mixing.mOutputs.mPointers.size()), kFrames);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kFrames));
}

#if defined(__x86_64__)
[[gnu::target_clones("avx2", "default")]]
#endif
void Loop(Mixing& mixing)
{
    const float* gain = mixing.mTable.data();
    for (float* const output : mixing.mOutputs.mPointers) {
        std::fill_n(output, kFrames, 0.0f);
        for (const float* const input : mixing.mInputs.mPointers) {
            const float volume = *gain++;
            if (volume == 0) continue;
            for (size_t frame = 0; frame < kFrames; ++frame) output[frame] += volume * input[frame];
        }
    }
}

void MixByLoop(benchmark::State& state, Kind kind)
{
    Mixing mixing(state, kind);
    for (auto _ : state) {
        Loop(mixing);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kFrames));
}

void Shapes(benchmark::internal::Benchmark* mixing)
{
    for (const auto& [inputs, outputs] : {std::pair{8, 2}, {32, 2}, {64, 2}, {8, 8}, {64, 8}})
        mixing->Args({inputs, outputs});
}

BENCHMARK_CAPTURE(MixByMixMatrix, sparse, kSparse)->Apply(Shapes);
BENCHMARK_CAPTURE(MixByLoop, sparse, kSparse)->Apply(Shapes);
BENCHMARK_CAPTURE(MixByMixMatrix, dense, kDense)->Apply(Shapes);
BENCHMARK_CAPTURE(MixByLoop, dense, kDense)->Apply(Shapes);
BENCHMARK_CAPTURE(MixByMixMatrix, moving, kMoving)->Apply(Shapes);

}  // namespace

BENCHMARK_MAIN();
