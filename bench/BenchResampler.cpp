// The resampler beside the libraries a user would pick instead: stereo, 512-frame blocks, 48 kHz x 1.0003 with a moving
// ratio, and conversions to 48 kHz with a fixed one.
// Counters: residual of a sine at 1 and 15 kHz, and at 15 kHz while the ratio moves by 1e-6 a
// block (decibels below the sine); level at 20 kHz in decibels; latency in input frames.
#include <benchmark/benchmark.h>
#include <samplerate.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#ifdef CORVANE_BENCH_ZITA
#include <zita-resampler/vresampler.h>
#endif

#include "platform/vector/Resampler.h"

namespace {

using platform::vector::Resampler;
using platform::vector::ResamplerStage;

constexpr unsigned kBlock = 512;

struct Conversion {
    double mInputHz;
    double mRatio;       // input frames an output frame
    double mMoreABlock;  // by which the ratio grows while it is measured

    /// Input frames offered at a time: a block's need at any ratio used here.
    unsigned Gulp() const { return static_cast<unsigned>(kBlock * mRatio) + 8; }
};

/// A stereo signal in both layouts, so that nobody pays for the other's.
struct Source {
    template <typename Signal>
    Source(size_t frames, Signal signal) : mPlanar(frames), mInterleaved(2 * frames)
    {
        for (size_t i = 0; i < frames; ++i) {
            mPlanar[i] = static_cast<float>(signal(i));
            mInterleaved[2 * i] = mInterleaved[2 * i + 1] = mPlanar[i];
        }
    }
    std::vector<float> mPlanar;
    std::vector<float> mInterleaved;
};

class Engine {
public:
    virtual ~Engine() = default;

    /// Makes `frames` of output from the source's frames at `at` on, of which it is offered `gulp` at a time.
    /// @return frames taken from the source
    virtual size_t Convert(const Source& source, size_t at, size_t gulp, unsigned frames, double ratio) = 0;

    /// Output frame `i` of the last Convert, left channel.
    virtual float Left(size_t i) const = 0;
};

class OursEngine final : public Engine {
public:
    OursEngine(const Conversion& to, ResamplerStage stage) { mResampler.Configure(2, to.mRatio, kBlock, stage); }

    size_t Convert(const Source& source, size_t at, size_t, unsigned frames, double ratio) override
    {
        const size_t needed = mResampler.InputFramesFor(frames, ratio);
        const float* input[] = {source.mPlanar.data() + at, source.mPlanar.data() + at};
        float* output[] = {mOutput[0].data(), mOutput[1].data()};
        mResampler.Process(input, output, frames, ratio);
        return needed;
    }
    float Left(size_t i) const override { return mOutput[0][i]; }

private:
    Resampler mResampler;
    std::array<std::array<float, kBlock>, 2> mOutput{};
};

class SampleRateEngine final : public Engine {
public:
    SampleRateEngine(const Conversion&, int converter) : mState(src_new(converter, 2, nullptr)) {}
    ~SampleRateEngine() override { src_delete(mState); }

    size_t Convert(const Source& source, size_t at, size_t gulp, unsigned frames, double ratio) override
    {
        size_t taken = 0;
        for (unsigned made = 0; made < frames;) {
            SRC_DATA data{};
            data.data_in = source.mInterleaved.data() + 2 * (at + taken);
            data.input_frames = static_cast<long>(gulp);
            data.data_out = mOutput.data() + 2 * made;
            data.output_frames = frames - made;
            data.src_ratio = 1 / ratio;
            src_process(mState, &data);
            taken += data.input_frames_used;
            made += static_cast<unsigned>(data.output_frames_gen);
        }
        return taken;
    }
    float Left(size_t i) const override { return mOutput[2 * i]; }

private:
    SRC_STATE* mState;
    std::array<float, 2 * kBlock> mOutput{};
};

#ifdef CORVANE_BENCH_ZITA
class ZitaEngine final : public Engine {
public:
    ZitaEngine(const Conversion& to, int halfLength) : mNominalRatio(to.mRatio)
    {
        mResampler.setup(1 / mNominalRatio, 2, halfLength);
    }

    size_t Convert(const Source& source, size_t at, size_t gulp, unsigned frames, double ratio) override
    {
        mResampler.set_rratio(mNominalRatio / ratio);
        mResampler.out_count = frames;
        mResampler.out_data = mOutput.data();
        size_t taken = 0;
        while (mResampler.out_count > 0) {
            mResampler.inp_count = static_cast<unsigned>(gulp);
            mResampler.inp_data = const_cast<float*>(source.mInterleaved.data()) + 2 * (at + taken);
            mResampler.process();
            taken += gulp - mResampler.inp_count;
        }
        return taken;
    }
    float Left(size_t i) const override { return mOutput[2 * i]; }

private:
    const double mNominalRatio;
    VResampler mResampler;
    std::array<float, 2 * kBlock> mOutput{};
};
#endif

/// What `samples` hold beside a sine whose phase goes as `phase`, of any level, offset and slow drift of both.
template <typename Phase>
double ResidualDB(const float* samples, size_t count, Phase phase)
{
    constexpr int kTerms = 5;
    const auto basis = [&](size_t i) {
        const double s = std::sin(phase(i)), c = std::cos(phase(i)), t = static_cast<double>(i) / count - 0.5;
        return std::array<double, kTerms>{s, c, t * s, t * c, 1};
    };
    double m[kTerms][kTerms + 1] = {};
    for (size_t i = 0; i < count; ++i) {
        const auto b = basis(i);
        for (int row = 0; row < kTerms; ++row) {
            for (int column = 0; column < kTerms; ++column) m[row][column] += b[row] * b[column];
            m[row][kTerms] += b[row] * samples[i];
        }
    }
    for (int pivot = 0; pivot < kTerms; ++pivot) {  // positive definite: no exchange of rows needed
        for (int row = 0; row < kTerms; ++row) {
            const double factor = row == pivot ? 0 : m[row][pivot] / m[pivot][pivot];
            for (int column = pivot; column <= kTerms; ++column) m[row][column] -= factor * m[pivot][column];
        }
    }
    double residual = 0, power = 0;
    for (size_t i = 0; i < count; ++i) {
        const auto b = basis(i);
        double fit = 0;
        for (int term = 0; term < kTerms; ++term) fit += b[term] * m[term][kTerms] / m[term][term];
        residual += (samples[i] - fit) * (samples[i] - fit);
        power += fit * fit;
    }
    return 10 * std::log10(residual / power);
}

double Median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

/// Residual of a sine, at the median of pieces of eight blocks, the ratio growing by `step` a block.
double DistortionDB(Engine& engine, const Conversion& to, double hz, double step)
{
    constexpr unsigned kBlocks = 240, kSkipped = 40, kPiece = 8;
    const double radians = 2 * std::numbers::pi * hz / to.mInputHz;
    const Source source((kBlocks + 4) * to.Gulp(),
                        [&](size_t i) { return 0.5 * std::sin(std::fmod(radians * i, 2 * std::numbers::pi)); });
    std::vector<float> output;
    size_t at = 0;
    for (unsigned block = 0; block < kBlocks; ++block) {
        at += engine.Convert(source, at, to.Gulp(), kBlock, to.mRatio + block * step);
        for (unsigned i = 0; i < kBlock; ++i) output.push_back(engine.Left(i));
    }
    std::vector<double> residuals;
    for (unsigned block = kSkipped; block < kBlocks; block += kPiece) {
        const double ratio = to.mRatio + (block - 1.0) * step;  // where the ramp stands at the piece's beginning
        residuals.push_back(ResidualDB(output.data() + block * kBlock, kPiece * kBlock, [&](size_t i) {
            const double frames = static_cast<double>(i);
            return radians * frames * (ratio + frames * step / (2 * kBlock));
        }));
    }
    return Median(residuals);
}

/// How much of a sine at half of full scale comes out.
double LevelDB(Engine& engine, const Conversion& to, double hz)
{
    constexpr unsigned kBlocks = 60, kSkipped = 10;
    const double radians = 2 * std::numbers::pi * hz / to.mInputHz;
    const Source source((kBlocks + 4) * to.Gulp(), [&](size_t i) { return 0.5 * std::sin(radians * i); });
    double power = 0;
    size_t at = 0;
    for (unsigned block = 0; block < kBlocks; ++block) {
        at += engine.Convert(source, at, to.Gulp(), kBlock, to.mRatio);
        for (unsigned i = 0; i < kBlock && block >= kSkipped; ++i) power += engine.Left(i) * engine.Left(i);
    }
    return 10 * std::log10(power / ((kBlocks - kSkipped) * kBlock) / 0.125);
}

/// Input frames that had to be there beyond an impulse before its peak came out.
double LatencyFrames(Engine& engine, const Conversion& to)
{
    constexpr size_t kImpulse = 2000, kFrames = 4000;
    const Source source(kFrames + 2 * to.Gulp(), [](size_t i) { return i == kImpulse ? 1.0 : 0.0; });
    const double ratio = to.mMoreABlock > 0 ? 1.0 : to.mRatio;
    float most = 0;
    size_t latency = 0;
    for (size_t at = 0; at < kFrames;) {
        at += engine.Convert(source, at, 1, 1, ratio);
        if (std::abs(engine.Left(0)) <= most) continue;
        most = std::abs(engine.Left(0));
        latency = at - 1 - kImpulse;
    }
    return static_cast<double>(latency);
}

template <typename MakeEngine>
void Run(benchmark::State& state, const Conversion& to, MakeEngine make)
{
    const Source source(1 << 14, [](size_t i) { return std::sin(static_cast<double>(i * i % 10007)); });
    const std::unique_ptr<Engine> engine = make();
    size_t at = 0;
    double block = 0;
    for (auto _ : state) {
        at += engine->Convert(source, at, to.Gulp(), kBlock, to.mRatio + std::fmod(block++, 200) * to.mMoreABlock);
        if (at > source.mPlanar.size() - 4 * to.Gulp()) at = 0;
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kBlock));
    state.counters["dB_1kHz"] = DistortionDB(*make(), to, 1000, 0);
    state.counters["dB_15kHz"] = DistortionDB(*make(), to, 15000, 0);
    if (to.mMoreABlock > 0) state.counters["dB_moving"] = DistortionDB(*make(), to, 15000, to.mMoreABlock);
    state.counters["level_20kHz"] = LevelDB(*make(), to, 20000);
    state.counters["latency"] = LatencyFrames(*make(), to);
}

template <typename AnEngine, typename... Arguments>
void Register(const std::string& name, const Conversion& to, Arguments... arguments)
{
    const auto make = [=]() -> std::unique_ptr<Engine> { return std::make_unique<AnEngine>(to, arguments...); };
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) { Run(state, to, make); });
}

}  // namespace

int main(int count, char** words)
{
    const std::pair<std::string, Conversion> conversions[] = {
        {"Resampler", {48000, 1.0003, 1e-6}}, {"From44100", {44100, 44100 / 48000.0, 0}}, {"From96000", {96000, 2, 0}}};
    for (const auto& [name, to] : conversions) {
        Register<OursEngine>(name + "/corvane_low", to, ResamplerStage::Low);
        Register<OursEngine>(name + "/corvane_high", to, ResamplerStage::High);
        Register<SampleRateEngine>(name + "/libsamplerate_fastest", to, int{SRC_SINC_FASTEST});
        Register<SampleRateEngine>(name + "/libsamplerate_medium", to, int{SRC_SINC_MEDIUM_QUALITY});
        Register<SampleRateEngine>(name + "/libsamplerate_best", to, int{SRC_SINC_BEST_QUALITY});
#ifdef CORVANE_BENCH_ZITA
        for (const int half : {16, 32, 64}) Register<ZitaEngine>(name + "/zita_vr_" + std::to_string(half), to, half);
#endif
    }
    benchmark::Initialize(&count, words);
    if (benchmark::ReportUnrecognizedArguments(count, words)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
