// corvane-bench-record: what a recording costs a person and the machine, beside the server's own recorder.
//
// Prints four tables: the time from the start of the program to the first moment of sound in its file, and the
// processor time and wake-ups of a recording that runs, both in turns beside the server's recorder; how far apart
// tracks of one application lie; and how far apart the same clicks lie that come through an application and through a
// microphone, over many starts.
#include "support/CommandRun.h"
#include "support/PrivatePipeWire.h"
#include "support/SignalAnalysis.h"

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <thread>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using support::ChildProcess;

constexpr double kRateHz = 48000;
constexpr int kStarts = 15;
constexpr int kCosts = 3;
constexpr int kAlignments = 100;
constexpr auto kRunning = 20s;

struct Cost {
    double mProcessorPercent, mWakesASecond;
};

// A stereo 32-bit float recording of the application, by either program, ended like by a person.
void RunOurs(const std::string& file, Clock::duration length)
{
    support::CommandRun run({"record", "--force", "--source", "app:chosen", file});
    std::this_thread::sleep_for(length);
    run.Signal(SIGINT);
    run.Wait();
}
void RunPeers(const std::string& file, Clock::duration length)
{
    ChildProcess run(
        {"pw-record", "--target", "chosen", "--format", "f32", "--rate", "48000", "--channels", "2", file});
    std::this_thread::sleep_for(length);
    run.End(SIGINT);
}
using Runner = void (*)(const std::string&, Clock::duration);

// Milliseconds from the start of the program to the first moment of the application that its file holds. The
// application counts the host clock's frames, so that a sample says when it was played.
double MillisToSound(Runner run, const std::string& file)
{
    const std::chrono::duration<double> start = Clock::now().time_since_epoch();
    run(file, 700ms);
    const std::vector<float> left = support::ReadRecording(file).Channel(0);
    const auto sound = std::ranges::find_if(left, [](float sample) { return sample != 0; });
    if (sound == left.end()) return NAN;
    const double frames = double(*sound) * support::kCounterModulus - start.count() * kRateHz;
    return std::remainder(frames, double(support::kCounterModulus)) * 1e3 / kRateHz;
}

Cost CostOf(Runner run, const std::string& file)
{
    rusage before{}, after{};
    getrusage(RUSAGE_CHILDREN, &before);
    run(file, kRunning);
    getrusage(RUSAGE_CHILDREN, &after);
    const auto seconds = [](const timeval& t) { return double(t.tv_sec) + 1e-6 * double(t.tv_usec); };
    const double used =
        seconds(after.ru_utime) + seconds(after.ru_stime) - seconds(before.ru_utime) - seconds(before.ru_stime);
    const double length = std::chrono::duration<double>(kRunning).count();
    return {100 * used / length, double(after.ru_nvcsw - before.ru_nvcsw) / length};
}

// Milliseconds by which the microphone's clicks lag the application's, the furthest of a short recording; nothing where
// the server was late or a click had no partner.
std::optional<double> MillisApart(const std::string& file)
{
    support::CommandRun run(
        {"record", "--force", "--source", "app:clicks", "--source", "input:microphone", "-c", "0", "-d", "2.4", file});
    run.Wait();
    const bool whole = run.Output().find("lost: nothing") != std::string::npos;
    const support::Recording recording = support::ReadRecording(file);
    const auto lags = support::Lags(support::Clicks(recording.Channel(0)), support::Clicks(recording.Channel(2)));
    if (!whole || lags.empty()) return std::nullopt;
    const double furthest = *std::ranges::max_element(lags, {}, [](double lag) { return std::fabs(lag); });
    if (std::fabs(furthest) > kRateHz / 8) return std::nullopt;
    return furthest * 1e3 / kRateHz;
}

void PrintAlignment(support::PrivatePipeWire& server)
{
    server.SetQuantum(1024);
    auto clicks = server.Play({"--name", "clicks", "--clicks", "--from-host-time"});
    auto microphone = server.PlugMicrophone({"--name", "microphone", "--ppm", "200", "--quantum", "1024"});
    std::vector<double> apart;
    for (int i = 0; i < kAlignments; ++i)
        if (const auto millis = MillisApart(server.Folder() + "/b.wav")) apart.push_back(std::fabs(*millis));
    std::ranges::sort(apart);
    const auto within = std::ranges::count_if(apart, [](double millis) { return millis <= 1.5; });
    std::printf("\n## Alignment: clicks of an application and of a microphone, %d starts, 200 ppm, quantum 1024\n\n",
                kAlignments);
    std::printf("| What | Value |\n|---|---|\n");
    std::printf("| starts that the server was in time for | %zu |\n", apart.size());
    if (apart.empty()) return;
    std::printf("| of these within 1.5 ms | %ld |\n", static_cast<long>(within));
    std::printf("| ms apart, median and worst | %.2f, %.2f |\n", apart[apart.size() / 2], apart.back());
}

// Frames by which the furthest of three tracks of one application, the last of them the whole system, lies from the
// first; nothing where the server was late.
std::optional<double> FramesApart(const std::string& file)
{
    support::CommandRun run({"record", "--force", "--source", "app:alone", "--source", "app:alone", "--source",
                             "system", "-c", "0", "-d", "0.3", file});
    run.Wait();
    if (run.Output().find("lost: nothing") == std::string::npos) return std::nullopt;
    const support::Recording recording = support::ReadRecording(file);
    const std::vector<float> first = recording.Channel(0);
    double furthest = 0;
    for (const unsigned channel : {2u, 4u}) {
        const std::vector<float> other = recording.Channel(channel);
        for (size_t n = 0; n < first.size(); ++n) {
            const double apart = double(other[n] - first[n]) * support::kCounterModulus;
            furthest = std::max(furthest, std::fabs(std::remainder(apart, double(support::kCounterModulus))));
        }
    }
    return furthest;
}

void PrintTapAlignment(support::PrivatePipeWire& server)
{
    server.SetQuantum(1024);
    auto alone = server.Play({"--name", "alone", "--counter", "--from-host-time"});
    std::vector<double> apart;
    for (int i = 0; i < kAlignments; ++i)
        if (const auto frames = FramesApart(server.Folder() + "/c.wav")) apart.push_back(*frames);
    std::ranges::sort(apart);
    std::printf("\n## Alignment: two tracks of one application, and the system, %d starts, quantum 1024\n\n",
                kAlignments);
    std::printf("| What | Value |\n|---|---|\n");
    std::printf("| starts that the server was in time for | %zu |\n", apart.size());
    if (apart.empty()) return;
    const auto within = std::ranges::count_if(apart, [](double frames) { return frames <= 1; });
    std::printf("| of these within 1 frame, at every sample | %ld |\n", static_cast<long>(within));
    std::printf("| frames apart, median and worst | %.2f, %.2f |\n", apart[apart.size() / 2], apart.back());
}

double Median(std::vector<double> values)
{
    std::ranges::sort(values);
    return values[values.size() / 2];
}

}  // namespace

int main()
{
    support::PrivatePipeWire server;
    server.SetQuantum(256);
    auto chosen = server.Play({"--name", "chosen", "--counter", "--from-host-time"});
    std::this_thread::sleep_for(1s);
    const std::string file = server.Folder() + "/a.wav";
    std::vector<double> ours, peers;
    for (int i = 0; i < kStarts; ++i) {
        ours.push_back(MillisToSound(RunOurs, file));
        peers.push_back(MillisToSound(RunPeers, file));
    }
    std::printf("## Recording: from the start of the program to the first sound, %d starts in turns, quantum 256\n\n",
                kStarts);
    std::printf("| What | ms, median | Ratio |\n|---|---|---|\n");
    std::printf("| corvane record | %.1f | 1.00 |\n| pw-record | %.1f | %.2f |\n\n", Median(ours), Median(peers),
                Median(peers) / Median(ours));

    server.SetQuantum(512);
    std::printf("## Recording: one that runs, one stereo application, quantum 512, start and end included\n\n");
    std::printf("| What | %% of a core | wake-ups a second |\n|---|---|---|\n");
    for (const auto& [name, run] : {std::pair("corvane record", Runner(RunOurs)), {"pw-record", Runner(RunPeers)}}) {
        std::vector<double> processor, wakes;
        for (int i = 0; i < kCosts; ++i) {
            const Cost cost = CostOf(run, file);
            processor.push_back(cost.mProcessorPercent);
            wakes.push_back(cost.mWakesASecond);
        }
        std::printf("| %s | %.2f | %.0f |\n", name, Median(processor), Median(wakes));
    }
    chosen.End(SIGTERM);
    PrintTapAlignment(server);
    PrintAlignment(server);
    return 0;
}
