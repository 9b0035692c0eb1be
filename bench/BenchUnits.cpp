// Audio units as the capture graph runs them, 512-frame blocks at 48 kHz, beside the bare kernels in them; how those
// stand beside others is BenchResampler's and BenchMixing's. Sources copy their samples, as a ring does. Counter: the
// share of a core that one of it takes in real time, in percent.
#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/audio/AudioUnit.h"
#include "platform/vector/Resampler.h"

namespace {

using platform::vector::Resampler;
using platform::vector::ResamplerStage;

constexpr double kRateHz = 48000;
constexpr UInt32 kBlock = 512;
constexpr UInt32 kMostPulled = 2048;
constexpr float kSpeed = 1.0003f;

void CountFrames(benchmark::State& state)
{
    const auto frames = static_cast<double>(state.iterations() * kBlock);
    const auto inverse = benchmark::Counter::kIsRate | benchmark::Counter::kInvert;
    state.SetItemsProcessed(static_cast<int64_t>(frames));
    state.counters["core_percent"] = benchmark::Counter(frames / kRateHz / 100, inverse);
}

/// Samples without a pattern, of as many channels as anybody asks for.
const float* Samples()
{
    static const auto sSamples = [] {
        std::vector<float> samples(2 * kMostPulled);
        for (size_t i = 0; i < samples.size(); ++i) samples[i] = std::sin(static_cast<float>(i * i % 10007));
        return samples;
    }();
    return sSamples.data();
}

OSStatus CopySamples(void*, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32, UInt32, AudioBufferList* list)
{
    for (UInt32 i = 0; i < list->mNumberBuffers; ++i)
        std::memcpy(list->mBuffers[i].mData, Samples(), list->mBuffers[i].mDataByteSize);
    return 0;
}

AudioStreamBasicDescription Format(double rateHz, bool interleaved = false)
{
    const UInt32 flags =
        kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked | (interleaved ? 0 : kAudioFormatFlagIsNonInterleaved);
    const UInt32 bytes = interleaved ? 8 : 4;
    return {rateHz, kAudioFormatLinearPCM, flags, bytes, 1, bytes, 2, 32, 0};
}

template <typename T>
void Set(AudioUnit unit, UInt32 property, UInt32 scope, UInt32 element, const T& value)
{
    if (AudioUnitSetProperty(unit, property, scope, element, &value, sizeof value) != 0) std::abort();
}

void SetSource(AudioUnit unit, UInt32 bus)
{
    Set(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, bus,
        AURenderCallbackStruct{CopySamples, nullptr});
}

struct Closer {
    void operator()(AudioUnit unit) const { CloseComponent(unit); }
};
using Unit = std::unique_ptr<OpaqueAudioUnit, Closer>;

Unit Open(OSType subtype)
{
    ComponentDescription description{0, subtype, 0, 0, 0};
    AudioUnit unit = nullptr;
    if (OpenAComponent(FindNextComponent(nullptr, &description), &unit) != 0) std::abort();
    return Unit(unit);
}

Unit OpenBetween(OSType subtype, const AudioStreamBasicDescription& from, const AudioStreamBasicDescription& to)
{
    Unit unit = Open(subtype);
    Set(unit.get(), kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0, from);
    Set(unit.get(), kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0, to);
    return unit;
}

/// Renders stereo blocks until the measurement has enough of them.
void RunUnit(benchmark::State& state, AudioUnit unit)
{
    std::array<std::array<float, kBlock>, 2> output{};
    struct {
        AudioBufferList mList;
        AudioBuffer mSecond;
    } list{{2, {{1, sizeof output[0], output[0].data()}}}, {1, sizeof output[1], output[1].data()}};
    const AudioTimeStamp time{};
    for (auto _ : state) {
        AudioUnitRenderActionFlags flags = 0;
        if (AudioUnitRender(unit, &flags, &time, 0, kBlock, &list.mList) != 0) std::abort();
        benchmark::ClobberMemory();
    }
    CountFrames(state);
}

void VarispeedByUnit(benchmark::State& state, UInt32 quality)
{
    const Unit unit = OpenBetween(FourCC("vari"), Format(kRateHz), Format(kRateHz));
    Set(unit.get(), kAudioUnitProperty_RenderQuality, kAudioUnitScope_Global, 0, quality);
    SetSource(unit.get(), 0);
    AudioUnitInitialize(unit.get());
    AudioUnitSetParameter(unit.get(), 0, kAudioUnitScope_Global, 0, kSpeed, 0);
    RunUnit(state, unit.get());
}
BENCHMARK_CAPTURE(VarispeedByUnit, low, 0);
BENCHMARK_CAPTURE(VarispeedByUnit, high, 127);

void ConverterByUnit(benchmark::State& state, double fromHz)
{
    const Unit unit = OpenBetween(FourCC("conv"), Format(fromHz, true), Format(kRateHz));
    SetSource(unit.get(), 0);
    AudioUnitInitialize(unit.get());
    RunUnit(state, unit.get());
}
BENCHMARK_CAPTURE(ConverterByUnit, 44100, 44100);
BENCHMARK_CAPTURE(ConverterByUnit, 48000, 48000);
BENCHMARK_CAPTURE(ConverterByUnit, 96000, 96000);

/// The kernel inside both, fed in place.
void ResamplerAlone(benchmark::State& state, ResamplerStage stage, double ratio, double lastRatio)
{
    Resampler resampler;
    resampler.Configure(2, ratio, kBlock, stage);
    const float* const input[] = {Samples(), Samples()};
    std::array<std::array<float, kBlock>, 2> output{};
    float* const channels[] = {output[0].data(), output[1].data()};
    for (auto _ : state) {
        resampler.Process(input, channels, kBlock, lastRatio);
        benchmark::ClobberMemory();
    }
    CountFrames(state);
}
BENCHMARK_CAPTURE(ResamplerAlone, low, ResamplerStage::Low, 1, kSpeed);
BENCHMARK_CAPTURE(ResamplerAlone, high, ResamplerStage::High, 1, kSpeed);
BENCHMARK_CAPTURE(ResamplerAlone, 44100, ResamplerStage::High, 44100 / kRateHz, 44100 / kRateHz);
BENCHMARK_CAPTURE(ResamplerAlone, 96000, ResamplerStage::High, 96000 / kRateHz, 96000 / kRateHz);

/// The chain after a source: converter, varispeed at quality 0, generic output.
class Chain {
public:
    explicit Chain(double fromHz)
    {
        NewAUGraph(&mGraph);
        const AUNode output = Add("genr"), varispeed = Add("vari"), converter = Add("conv");
        AUGraphOpen(mGraph);
        const AudioUnit first = UnitOf(converter), second = UnitOf(varispeed);
        mOutput = UnitOf(output);
        Set(first, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0, Format(fromHz, true));
        for (const AudioUnit unit : {first, second, mOutput}) {
            Set(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0, Format(kRateHz));
            if (unit != first) Set(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0, Format(kRateHz));
        }
        Set(second, kAudioUnitProperty_RenderQuality, kAudioUnitScope_Global, 0, UInt32{0});
        AUGraphConnectNodeInput(mGraph, varispeed, 0, output, 0);
        AUGraphConnectNodeInput(mGraph, converter, 0, varispeed, 0);
        SetSource(first, 0);
        if (AUGraphInitialize(mGraph) != 0) std::abort();
        AudioUnitSetParameter(second, 0, kAudioUnitScope_Global, 0, kSpeed, 0);
    }
    ~Chain() { DisposeAUGraph(mGraph); }
    Chain(const Chain&) = delete;
    Chain& operator=(const Chain&) = delete;

    AudioUnit mOutput = nullptr;

private:
    AUNode Add(const char (&subtype)[5])
    {
        const ComponentDescription description{0, FourCC(subtype), 0, 0, 0};
        AUNode node = 0;
        AUGraphNewNode(mGraph, &description, 0, nullptr, &node);
        return node;
    }
    AudioUnit UnitOf(AUNode node)
    {
        AudioUnit unit = nullptr;
        AUGraphGetNodeInfo(mGraph, node, nullptr, nullptr, nullptr, &unit);
        return unit;
    }

    AUGraph mGraph = nullptr;
};

void ChainOfUnits(benchmark::State& state, double fromHz)
{
    const Chain chain(fromHz);
    RunUnit(state, chain.mOutput);
}
BENCHMARK_CAPTURE(ChainOfUnits, 44100, 44100);
BENCHMARK_CAPTURE(ChainOfUnits, 48000, 48000);

/// Stereo buses into two channels, left on left and right on right.
void MixerByUnit(benchmark::State& state)
{
    const auto buses = static_cast<UInt32>(state.range(0)) / 2;
    const Unit unit = Open(FourCC("mxmx"));
    Set(unit.get(), kAudioUnitProperty_ElementCount, kAudioUnitScope_Input, 0, buses);
    for (UInt32 bus = 0; bus < buses; ++bus) SetSource(unit.get(), bus);
    AudioUnitInitialize(unit.get());
    for (UInt32 channel = 0; channel < 2 * buses; ++channel)
        AudioUnitSetParameter(unit.get(), 0, kAudioUnitScope_Global, channel << 16 | channel % 2, 1, 0);
    RunUnit(state, unit.get());
}

/// What no mixer can do without: the samples of every input fetched once, and added up.
void MixerByLoop(benchmark::State& state)
{
    const auto inputs = static_cast<size_t>(state.range(0));
    std::vector<float> fetched(inputs * kBlock);
    std::array<std::array<float, kBlock>, 2> output{};
    for (auto _ : state) {
        output = {};
        for (size_t input = 0; input < inputs; ++input) {
            float* const samples = fetched.data() + input * kBlock;
            std::memcpy(samples, Samples(), kBlock * sizeof(float));
            for (UInt32 i = 0; i < kBlock; ++i) output[input % 2][i] += samples[i];
        }
        benchmark::DoNotOptimize(output);
        benchmark::ClobberMemory();
    }
    CountFrames(state);
}
BENCHMARK(MixerByUnit)->Arg(2)->Arg(8)->Arg(32)->Arg(64);
BENCHMARK(MixerByLoop)->Arg(2)->Arg(8)->Arg(32)->Arg(64);

}  // namespace

BENCHMARK_MAIN();
