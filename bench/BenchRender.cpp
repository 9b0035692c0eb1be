// A whole cycle of the capture graph: stereo sources stored, aligned, converted, brought to speed, mixed, limited. 512
// frames at 48 kHz; the sources' crystals are off by 200 ppm. Counter: the
// share of a core that it takes in real time, in percent; under 2 with 8 sources is what is asked.
#include "capture/CVNMatrixedCapture.h"
#include "capture/buffers/CAAudioBufferList.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <vector>

namespace {

constexpr double kRateHz = 48000;
constexpr UInt32 kBlock = 512;
constexpr double kScalar = 1.0002;

class Source final : public OSLAudio_InputCapture {
public:
    explicit Source(double rateHz) : mRateHz(rateHz), mSamples(2 * 2048)
    {
        for (size_t i = 0; i < mSamples.size(); ++i) mSamples[i] = 0.1f * std::sin(float(i * i % 10007));
    }
    OSStatus Initialize() override { return mInitialized = true, 0; }
    OSStatus Uninitialize() override { return 0; }
    OSStatus Start() override { return 0; }
    OSStatus Pause() override { return 0; }
    OSStatus SetRenderCallback(AURenderCallback callback, void* refCon) override
    {
        mCallback = callback;
        mRefCon = refCon;
        return 0;
    }
    OSStatus GetAudioDesc(AudioStreamBasicDescription* desc) override
    {
        *desc = {mRateHz, kAudioFormatLinearPCM, kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked, 8, 1, 8, 2, 32, 0};
        return 0;
    }
    OSStatus TranslateTime(const AudioTimeStamp* in, AudioTimeStamp* out) noexcept override
    {
        out->mSampleTime = double(in->mHostTime) * 1e-9 * mRateHz;
        return 0;
    }
    double GetRateScalar() noexcept override { return kScalar; }

    /// Delivers what a cycle of the mix takes, frame for frame.
    void Push()
    {
        mDue += kBlock * mRateHz / kRateHz / kScalar;
        const auto frames = UInt32(mDue);
        mDue -= frames;
        AudioBufferList list{1, {{2, frames * 8, mSamples.data()}}};
        AudioTimeStamp time{};
        time.mSampleTime = mSampleTime;
        time.mHostTime = 1 + uint64_t(mSampleTime / mRateHz * 1e9);
        UInt32 flags = 0;
        mCallback(mRefCon, &flags, &time, 0, frames, &list);
        mSampleTime += frames;
    }

private:
    const double mRateHz;
    std::vector<float> mSamples;
    AURenderCallback mCallback = nullptr;
    void* mRefCon = nullptr;
    double mDue = 0, mSampleTime = 0;
};

void Cycle(benchmark::State& state, double rateHz)
{
    CVNMatrixedCapture capture;
    AudioStreamBasicDescription format;
    capture.GetCaptureDesc(&format);
    format.mSampleRate = kRateHz;
    capture.SetCaptureDesc(&format);
    std::vector<Source*> sources;
    for (int64_t i = 0; i < state.range(0); ++i) {
        auto source = std::make_unique<Source>(rateHz);
        sources.push_back(source.get());
        if (capture.AddInput(std::move(source), 2) != 0) return state.SkipWithError("no input");
    }
    if (capture.Initialize() != 0 || capture.Resume() != 0) return state.SkipWithError("no graph");
    AudioBufferList* data = CAAudioBufferList::Create(&format, kBlock);
    const AudioTimeStamp time{};
    UInt32 flags = 0;
    const auto cycle = [&] {
        for (Source* source : sources) source->Push();
        capture.Render(&flags, &time, 0, kBlock, data);
    };
    for (int i = 0; i < 16; ++i) cycle();  // alignment, and frames in hand
    const uint32_t silentBefore = capture.GetRenderCounts().mSilentCycles;
    for (auto _ : state) cycle();
    if (capture.GetRenderCounts().mSilentCycles > silentBefore + 2) state.SkipWithError("cycles were silent");
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kBlock));
    const auto inverse = benchmark::Counter::kIsRate | benchmark::Counter::kInvert;
    state.counters["core_percent"] = benchmark::Counter(double(state.iterations()) * kBlock / kRateHz / 100, inverse);
    CAAudioBufferList::Deallocate(data);
    capture.Pause();
    capture.Uninitialize();
}

void Render48000(benchmark::State& state)
{
    Cycle(state, 48000);
}
void Render44100(benchmark::State& state)
{
    Cycle(state, 44100);
}

BENCHMARK(Render48000)->Arg(1)->Arg(2)->Arg(8)->Arg(32);
BENCHMARK(Render44100)->Arg(1)->Arg(2)->Arg(8)->Arg(32);

}  // namespace

BENCHMARK_MAIN();
