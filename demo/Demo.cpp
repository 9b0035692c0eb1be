// corvane-demo FOLDER: shows the main job on a private audio server, and proves what it says.
//
// Several applications play; one is recorded and the others are left out. What the recording holds is measured
// from the file. The folder gets the recordings and the data of a picture.
#include "support/CommandRun.h"
#include "support/PrivatePipeWire.h"
#include "support/SignalAnalysis.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <fstream>
#include <numbers>
#include <span>
#include <string>

namespace {

using support::Recording;

constexpr unsigned kRateHz = 48000;
constexpr double kInterviewHz = 997, kMusicHz = 440, kGameHz = 2500;

int sFailures = 0;

void Prove(bool holds, const char* what, const std::string& measured)
{
    std::printf("  %-58s %-28s %s\n", what, measured.c_str(), holds ? "proved" : "FAILED");
    std::fflush(stdout);
    if (!holds) ++sFailures;
}

std::string Text(double value, const char* unit)
{
    char text[64];
    std::snprintf(text, sizeof(text), "%.2f %s", value, unit);
    return text;
}

// Of one frequency below full scale, through a Hann window.
double LevelDB(std::span<const float> samples, double frequencyHz, double rateHz)
{
    const double turn = 2 * std::numbers::pi;
    std::complex<double> sum = 0;
    double window = 0;
    for (size_t n = 0; n < samples.size(); ++n) {
        const double hann = 0.5 - 0.5 * std::cos(turn * double(n) / double(samples.size()));
        sum += hann * double(samples[n]) * std::polar(1.0, turn * frequencyHz / rateHz * double(n));
        window += hann;
    }
    return 20 * std::log10(2 * std::abs(sum) / window + 1e-12);
}

bool LostNothing(const std::string& said)
{
    return said.find("lost: nothing") != said.npos;
}

// Runs the command as a person would, and shows it.
std::string RecordOnce(std::vector<std::string> options, unsigned seconds, const std::string& file)
{
    options.insert(options.begin(), "record");
    options.insert(options.end(), {"-d", std::to_string(seconds), file});
    std::printf("\n$ corvane");
    for (const std::string& option : options) std::printf(" %s", option.c_str());
    std::printf("\n");
    options.push_back("--force");
    support::CommandRun run(options);
    const int code = run.Wait();
    std::printf("%s%s", run.Output().c_str(), run.Errors().c_str());
    if (code != 0) ++sFailures;
    return run.Output();
}

// A machine that stands still for longer than a cycle loses that cycle, and the command says so: not what is shown
// here.
std::string Record(const std::vector<std::string>& options, unsigned seconds, const std::string& file)
{
    constexpr int kTries = 3;
    std::string said = RecordOnce(options, seconds, file);
    for (int tries = 1; tries < kTries && !LostNothing(said); ++tries) {
        std::printf("The audio server was late on this machine; once more.\n");
        said = RecordOnce(options, seconds, file);
    }
    return said;
}

void ProveTone(const Recording& recording, const std::string& said, unsigned seconds)
{
    const std::vector<float> left = recording.Channel(0);
    const std::span<const float> settled = std::span(left).subspan(kRateHz, kRateHz * 2);
    const support::SineFit fit = support::FitSine(settled, kInterviewHz, kRateHz);
    Prove(recording.Frames() == size_t(seconds) * kRateHz, "the file is as long as was asked",
          std::to_string(recording.Frames()) + " frames");
    Prove(std::fabs(fit.mAmplitude - 0.5) < 1e-6, "the interview (997 Hz) is there at its own level",
          Text(20 * std::log10(fit.mAmplitude), "dB"));
    Prove(fit.mResidualDB < -140, "nothing else is: the rest lies below the tone by", Text(-fit.mResidualDB, "dB"));
    for (const double absent : {kMusicHz, kGameHz}) {
        const double level = LevelDB(settled, absent, kRateHz);
        Prove(level < -120, absent == kMusicHz ? "the music (440 Hz) is not" : "the game (2500 Hz) is not",
              Text(level, "dB"));
    }
    Prove(LostNothing(said), "nothing was lost on the way", "lost: nothing");
}

void ProveCounter(const Recording& recording)
{
    const support::CounterReport report = support::CheckCounter(recording.Channel(0));
    const size_t lost = report.mSkipped + report.mForeign;
    Prove(lost == 0 && report.mFrames > 4 * kRateHz, "every frame follows the one before, bit for bit",
          std::to_string(report.mFrames) + " frames, " + std::to_string(lost) + " lost");
}

// An application and a microphone click with the host clock; the microphone's crystal is off.
void ProveAlignment(const Recording& recording)
{
    const auto lags = support::Lags(support::Clicks(recording.Channel(0)), support::Clicks(recording.Channel(2)));
    if (lags.size() < 8) return Prove(false, "clicks are heard through both", std::to_string(lags.size()));
    const auto [earliest, latest] = std::ranges::minmax(std::span(lags).last(lags.size() / 2));
    const double worst = *std::ranges::max_element(lags, {}, [](double lag) { return std::fabs(lag); });
    Prove(std::fabs(worst) < 0.0015 * kRateHz, "the same clicks land together",
          Text(worst * 1e3 / kRateHz, "ms at most"));
    Prove(latest - earliest <= 2, "and stay so, with a crystal that is off by 200 ppm",
          Text(latest - earliest, "frames of wander"));
}

void WritePictureData(const Recording& recording, const std::string& folder)
{
    const std::vector<float> left = recording.Channel(0);
    const std::span<const float> second = std::span(left).subspan(kRateHz, kRateHz);
    std::ofstream wave(folder + "/waveform.txt"), spectrum(folder + "/spectrum.txt");
    for (size_t n = 0; n < kRateHz / 50; ++n) wave << double(n) * 1e3 / kRateHz << ' ' << second[n] << '\n';
    constexpr int kPoints = 500;
    for (int i = 0; i <= kPoints; ++i) {
        const double hertz = std::round(20 * std::pow(1000.0, double(i) / kPoints));
        spectrum << hertz << ' ' << LevelDB(second, hertz, kRateHz) << '\n';
    }
    spectrum << kInterviewHz << ' ' << LevelDB(second, kInterviewHz, kRateHz) << '\n';
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) return std::fputs("usage: corvane-demo FOLDER\n", stderr), 2;
    const std::string folder = argv[1];
    std::printf(
        "Starting an audio server of our own, on which three applications play:\n"
        "  interview (997 Hz), music (440 Hz) and game (2500 Hz)\n");
    support::PrivatePipeWire server;
    server.SetQuantum(1024);
    auto interview = server.Play({"--name", "interview", "--frequency", "997", "--amplitude", "0.5"});
    auto music = server.Play({"--name", "music", "--frequency", "440", "--amplitude", "0.8"});
    auto game = server.Play({"--name", "game", "--frequency", "2500", "--amplitude", "0.8"});

    std::printf("\n$ corvane list apps\n");
    support::CommandRun list({"list", "apps"});
    sFailures += list.Wait() != 0;
    std::printf("%s", list.Output().c_str());

    const std::string said = Record({"--source", "app:interview"}, 4, folder + "/interview.wav");
    const Recording tone = support::ReadRecording(folder + "/interview.wav");
    ProveTone(tone, said, 4);
    WritePictureData(tone, folder);

    std::printf("\nTwo more applications now play counters: each sample says which frame it is.\n");
    auto chosen = server.Play({"--name", "chosen", "--counter"});
    auto other = server.Play({"--name", "other", "--counter"});
    Record({"--source", "app:chosen"}, 6, folder + "/counter.wav");
    ProveCounter(support::ReadRecording(folder + "/counter.wav"));

    std::printf(
        "\nA game now clicks at every half second, and a microphone with a clock of its own hears the same clicks.\n");
    auto clicks = server.Play({"--name", "clicks", "--clicks", "--from-host-time"});
    auto microphone = server.PlugMicrophone({"--name", "microphone", "--ppm", "200", "--quantum", "1024"});
    Record({"--source", "app:clicks", "--source", "input:microphone", "-c", "0"}, 16, folder + "/clicks.wav");
    ProveAlignment(support::ReadRecording(folder + "/clicks.wav"));
    return sFailures == 0 ? 0 : 1;
}
