// The ring beside memcpy and JACK's, buffer lists beside memcpy, and the host clock's conversion.
// One thread; figures are medians with --benchmark_repetitions. Each pair runs in one program, so that its ratio
// holds on any machine.
#include "capture/buffers/CAAudioBufferList.h"
#include "capture/buffers/CARingBuffer.h"
#include "utility/CAHostTimeBase.h"

#include <benchmark/benchmark.h>

#ifdef CORVANE_BENCH_JACK
#include <jack/ringbuffer.h>
#endif

#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr uint32_t kFrames = 512;
constexpr uint32_t kStereoBytes = kFrames * 2 * sizeof(float);
constexpr uint32_t kRingFrames = 8192;

struct Release {
    void operator()(AudioBufferList* list) const { CAAudioBufferList::Deallocate(list); }
};
using List = std::unique_ptr<AudioBufferList, Release>;

// `buffers` buffers of `channels` channels, kFrames long.
List MakeList(uint32_t buffers, uint32_t channels)
{
    List list(CAAudioBufferList::Create(buffers, kFrames * channels * uint32_t(sizeof(float))));
    AudioBuffer* const all = list->mBuffers;
    for (uint32_t index = 0; index < buffers; ++index) {
        all[index].mNumberChannels = channels;
        auto* const samples = static_cast<float*>(all[index].mData);
        for (uint32_t at = 0; at < kFrames * channels; ++at) samples[at] = float(at % 300) / 100 - 1.5f;
    }
    return list;
}

// Bytes of audio, each read once and written once, in blocks of kFrames.
void CountBytes(benchmark::State& state, size_t bytes)
{
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
    state.SetItemsProcessed(kFrames * state.iterations());
}

void RingByMemcpy(benchmark::State& state)
{
    std::vector<char> ring(kRingFrames * 8), in(kStereoBytes, 1), out(kStereoBytes);
    size_t at = 0;
    for (auto _ : state) {
        std::memcpy(&ring[at], in.data(), kStereoBytes);
        benchmark::ClobberMemory();
        std::memcpy(out.data(), &ring[at], kStereoBytes);
        benchmark::ClobberMemory();
        at = (at + kStereoBytes) % ring.size();
    }
    CountBytes(state, kStereoBytes);
}
BENCHMARK(RingByMemcpy);

void RingByCARingBuffer(benchmark::State& state)
{
    CARingBuffer ring;
    ring.Allocate(1, 8, kRingFrames);
    const List in = MakeList(1, 2), out = MakeList(1, 2);
    int64_t time = 0;
    for (auto _ : state) {
        ring.Store(in.get(), kFrames, time);
        benchmark::DoNotOptimize(ring.Fetch(out.get(), kFrames, time, false));
        time += kFrames;
    }
    CountBytes(state, kStereoBytes);
}
BENCHMARK(RingByCARingBuffer);

#ifdef CORVANE_BENCH_JACK
void RingByJack(benchmark::State& state)
{
    jack_ringbuffer_t* const ring = jack_ringbuffer_create(kRingFrames * 8);
    jack_ringbuffer_mlock(ring);
    std::vector<char> in(kStereoBytes, 1), out(kStereoBytes);
    for (auto _ : state) {
        benchmark::DoNotOptimize(jack_ringbuffer_write(ring, in.data(), kStereoBytes));
        benchmark::DoNotOptimize(jack_ringbuffer_read(ring, out.data(), kStereoBytes));
    }
    jack_ringbuffer_free(ring);
    CountBytes(state, kStereoBytes);
}
BENCHMARK(RingByJack);
#endif

// The floor of all that follows: as many buffers copied, from pages to pages as lists have them. Where many buffers
// begin on a page they crowd one part of the cache, and memcpy pays for that too.
void ListByMemcpy(benchmark::State& state)
{
    const auto buffers = uint32_t(state.range(0));
    const List in = MakeList(buffers, 1), out = MakeList(buffers, 1);
    const AudioBuffer* const from = in->mBuffers;
    AudioBuffer* const to = out->mBuffers;
    for (auto _ : state) {
        for (uint32_t index = 0; index < buffers; ++index)
            std::memcpy(to[index].mData, from[index].mData, from[index].mDataByteSize);
        benchmark::ClobberMemory();
    }
    CountBytes(state, buffers * kFrames * sizeof(float));
}
BENCHMARK(ListByMemcpy)->Arg(2)->Arg(6)->Arg(8);

void ListClip(benchmark::State& state)
{
    const List in = MakeList(uint32_t(state.range(0)), 1), out = MakeList(uint32_t(state.range(0)), 1);
    for (auto _ : state) {
        CAAudioBufferList::Clip(-1, 1, *in, *out);
        benchmark::ClobberMemory();
    }
    CountBytes(state, static_cast<size_t>(state.range(0)) * kFrames * sizeof(float));
}
BENCHMARK(ListClip)->Arg(2)->Arg(8);

void ListSum(benchmark::State& state)
{
    const auto buffers = uint32_t(state.range(0));
    const List a = MakeList(buffers, 1), b = MakeList(buffers, 1), out = MakeList(buffers, 1);
    for (auto _ : state) {
        CAAudioBufferList::Sum(*a, *b, *out);
        benchmark::ClobberMemory();
    }
    CountBytes(state, static_cast<size_t>(state.range(0)) * kFrames * sizeof(float));
}
BENCHMARK(ListSum)->Arg(2)->Arg(8);

void ListInterleave(benchmark::State& state)
{
    const auto channels = uint32_t(state.range(0));
    const List mono = MakeList(channels, 1), woven = MakeList(1, channels);
    for (auto _ : state) {
        CAAudioBufferList::Interleave(mono.get(), woven.get());
        benchmark::ClobberMemory();
    }
    CountBytes(state, channels * kFrames * sizeof(float));
}
BENCHMARK(ListInterleave)->Arg(2)->Arg(6)->Arg(8);

void ListDeinterleave(benchmark::State& state)
{
    const auto channels = uint32_t(state.range(0));
    const List mono = MakeList(channels, 1), woven = MakeList(1, channels);
    for (auto _ : state) {
        CAAudioBufferList::Deinterleave(woven.get(), mono.get());
        benchmark::ClobberMemory();
    }
    CountBytes(state, channels * kFrames * sizeof(float));
}
BENCHMARK(ListDeinterleave)->Arg(2)->Arg(6)->Arg(8);

void HostTimeToNanos(benchmark::State& state)
{
    uint64_t ticks = 1'000'000'000'000'007;
    for (auto _ : state) benchmark::DoNotOptimize(CAHostTimeBase::ConvertToNanos(ticks++));
}
BENCHMARK(HostTimeToNanos);

}  // namespace

BENCHMARK_MAIN();
