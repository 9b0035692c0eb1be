// The simulated machine under way: a capture graph of four sources, two applications and two inputs, each on a crystal
// of its own, 512 frames at 48 kHz; a second of its time an iteration. Beside it what such a second costs in sound
// alone: the same blocks through the same resamplers and the mix, without a machine, a tap or a ring.
// Counter: how many times faster than real time.
#include "capture/CVNMatrixedCapture.h"
#include "capture/buffers/CAAudioBufferList.h"
#include "platform/foundation/CFObjects.h"
#include "platform/kernel/IOKit.h"
#include "platform/machine/simulated/Scenario.h"
#include "platform/vector/Resampler.h"
#include "tap/Service.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <vector>

namespace {

using namespace platform::machine::simulated;
using namespace std::chrono_literals;

constexpr UInt32 kRateHz = 48'000, kFrames = 512;
constexpr unsigned kSources = 4, kTaps = 2;

void CountSpeed(benchmark::State& state)
{
    state.counters["times_real_time"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

cf::Ref<cf::String> Text(const std::string& text)
{
    return cf::Ref<cf::String>::Adopt(
        CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
}

/// A machine and a graph that run on from one measurement to the next: a process has one machine.
class Graph {
public:
    Graph()
    {
        platform::kernel::PublishService(std::make_shared<tap::Service>());
        AudioStreamBasicDescription format;
        mCapture.GetCaptureDesc(&format);
        format.mSampleRate = kRateHz;
        format.mChannelsPerFrame = 2 * kSources;
        mCapture.SetCaptureDesc(&format);
        for (unsigned i = 0; i < kTaps; ++i) AddTap(i);
        for (unsigned i = kTaps; i < kSources; ++i) AddInput(i);
        Check(mCapture.Initialize());
        Check(mCapture.Resume());
        mOutput = CAAudioBufferList::Create(&format, kFrames);
        Run(5s);
    }
    ~Graph()
    {
        CAAudioBufferList::Deallocate(mOutput);
        mCapture.Pause();
        mCapture.Uninitialize();
        platform::kernel::WithdrawServices();
    }

    void Run(std::chrono::nanoseconds length)
    {
        const std::chrono::nanoseconds end = mScenario.now() + length;
        for (;; ++mCycles) {
            const std::chrono::nanoseconds due(mCycles * kFrames * 1'000'000'000 / kRateHz);
            if (due >= end) return mScenario.runUntil(end);
            mScenario.runUntil(due);
            AudioTimeStamp time{};
            UInt32 flags = 0;
            Check(mCapture.Render(&flags, &time, 0, kFrames, mOutput));
        }
    }
    /// Whether a statement failed, or a cycle was silent after the first seconds.
    bool IsBroken() { return mStatus != 0 || mCapture.GetRenderCounts().mSilentCycles > 100; }

private:
    static double CrystalPPM(unsigned source) { return 80.0 * (source + 1) * (source % 2 ? -1 : 1); }

    void AddTap(unsigned i)
    {
        auto& output = mScenario.output("output " + std::to_string(i)).quantum(kFrames).crystal(CrystalPPM(i));
        mScenario.application("application " + std::to_string(i), pid_t(200 + i)).plays(HostTone(440), output);
        const auto uid = Text(output.UID());
        const CFTypeRef value = uid.Get();
        const auto devices = cf::Ref<cf::Array>::Adopt(CFArrayCreate(kCFAllocatorDefault, &value, 1));
        Check(mCapture.AddAudioSupportCapture(nullptr, devices.Get()));
    }
    void AddInput(unsigned i)
    {
        auto& input = mScenario.input("input " + std::to_string(i)).quantum(kFrames).crystal(CrystalPPM(i));
        input.plays(HostTone(440));
        Check(mCapture.AddInputDeviceCapture(Text(input.UID()).Get(), 0));
    }
    void Check(OSStatus status) { mStatus = mStatus ? mStatus : status; }

    Scenario mScenario;
    CVNMatrixedCapture mCapture;
    AudioBufferList* mOutput = nullptr;
    int64_t mCycles = 0;
    OSStatus mStatus = 0;
};

void SimulatedGraph(benchmark::State& state)
{
    static Graph sGraph;
    for (auto _ : state) sGraph.Run(1s);
    if (sGraph.IsBroken()) state.SkipWithError("the graph broke");
    CountSpeed(state);
}

/// One source's sound brought to another clock, a block at a time.
class Voice {
public:
    Voice() : mSamples(4 * kFrames)
    {
        for (size_t i = 0; i < mSamples.size(); ++i) mSamples[i] = 0.1f * std::sin(float(i * i % 10007));
        mResampler.Configure(2, 1, kFrames, platform::vector::ResamplerStage::Low);
    }
    void Render(UInt32 frames, double ratio)
    {
        const float* in[] = {mSamples.data(), mSamples.data() + 2 * kFrames};
        float* out[] = {mLeft, mRight};
        mResampler.Process(in, out, frames, ratio);
    }

private:
    platform::vector::Resampler mResampler;
    std::vector<float> mSamples;
    float mLeft[kFrames], mRight[kFrames];
};

/// A second of what has to be computed: a tap's blocks of 128 frames to the host clock, every source to the mix's.
void SimulatedGraphSound(benchmark::State& state)
{
    std::vector<Voice> taps(kTaps), sources(kSources);
    for (auto _ : state) {
        for (UInt32 frame = 0; frame < kRateHz; frame += 128)
            for (Voice& tap : taps) tap.Render(128, 1.0002);
        for (UInt32 frame = 0; frame < kRateHz; frame += kFrames)
            for (Voice& source : sources) source.Render(kFrames, 1.0002);
        benchmark::ClobberMemory();
    }
    CountSpeed(state);
}

BENCHMARK(SimulatedGraph)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(SimulatedGraphSound)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

}  // namespace

BENCHMARK_MAIN();
