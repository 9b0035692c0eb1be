// "corvane record" and "corvane list" on a private PipeWire, as a person would use them.
#include "support/CommandRun.h"
#include "support/PrivatePipeWire.h"
#include "support/SignalAnalysis.h"
#include "support/SpeakerProbe.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <signal.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>

namespace desktop {
namespace {

using support::CheckCounter;
using support::ChildProcess;
using support::CommandRun;
using support::CounterReport;
using support::PrivatePipeWire;
using support::ReadRecording;
using support::Recording;
using support::WaitForSize;

constexpr unsigned kRateHz = 48000;
constexpr size_t kFrameBytes = 2 * sizeof(float);
#ifdef CORVANE_SANITIZED
constexpr unsigned kLongSeconds = 10;
#else
constexpr unsigned kLongSeconds = 60;
#endif

class RecordTest : public ::testing::Test {
protected:
    ChildProcess PlayCounter(const std::string& name, std::vector<std::string> more = {})
    {
        more.insert(more.end(), {"--name", name, "--counter"});
        return mPipeWire.Play(more);
    }
    std::string File(const char* name = "a.wav") const { return mPipeWire.Folder() + "/" + name; }

    PrivatePipeWire mPipeWire;
};

std::vector<float> Negated(std::vector<float> samples)
{
    for (float& sample : samples) sample = -sample;
    return samples;
}

// Whether the left channel counts up and the right one down, frame for frame, for that long.
bool IsUnbroken(const Recording& recording, size_t atLeastFrames)
{
    const CounterReport left = CheckCounter(recording.Channel(0));
    const CounterReport right = CheckCounter(Negated(recording.Channel(1)));
    return left.mBreaks == 0 && right.mBreaks == 0 && left.mLeadingSilence == right.mLeadingSilence &&
           left.mFrames >= atLeastFrames;
}

// The share of frames whose successor is the next count, to within `tolerance`: what a machine that stood still for a
// cycle cost, and the phase that is being paid back after it, are the rest.
double ShareThatFollows(const std::vector<float>& samples, double tolerance = 0)
{
    size_t follows = 0;
    for (size_t n = 1; n < samples.size(); ++n)
        follows += std::fabs(double(samples[n] - samples[n - 1]) * support::kCounterModulus - 1) <= tolerance;
    return double(follows) / double(samples.size());
}

// The purest 50 ms from `from` on.
support::SineFit PurestPiece(const std::vector<float>& samples, double frequencyHz, size_t from)
{
    support::SineFit best{.mAmplitude = 0, .mResidualDB = 0};
    for (size_t n = from; n + kRateHz / 20 <= samples.size(); n += kRateHz / 80) {
        const auto fit = support::FitSine(std::span(samples).subspan(n, kRateHz / 20), frequencyHz, kRateHz);
        if (fit.mResidualDB < best.mResidualDB) best = fit;
    }
    return best;
}

// A machine that stands still for longer than a cycle costs the server one, recorder or not. The run over the whole
// time says whether it was unbroken; on such a machine most of it has to follow bit for bit all the same.
constexpr double kMost = 0.5;
constexpr int kTries = 3;

TEST_F(RecordTest, TakesEveryFrameOfOneApplicationBitForBitAndNoneOfAnother)
{
    mPipeWire.SetQuantum(1024);
    auto chosen = PlayCounter("chosen");
    auto other = PlayCounter("other");
    const unsigned seconds = kLongSeconds;
    CommandRun run({"record", "--json", "--source", "app:chosen", "-d", std::to_string(seconds), File()});
    ASSERT_EQ(run.Wait(), 0) << run.Errors();
    const auto result = nlohmann::json::parse(run.Output());
    EXPECT_EQ(result["frames"], seconds * kRateHz);
    EXPECT_EQ(result["frames_lost"], 0);
    EXPECT_EQ(result["frames_dropped"], 0);
    const Recording recording = ReadRecording(File());
    EXPECT_EQ(recording.mRateHz, int(kRateHz));
    ASSERT_EQ(recording.Frames(), size_t(seconds) * kRateHz);
    const bool unbroken = IsUnbroken(recording, recording.Frames() - kRateHz);
    const double share = ShareThatFollows(recording.Channel(0));
    std::printf("%u seconds: %s, %.2f %% bit for bit\n", seconds, unbroken ? "unbroken" : "the server missed cycles",
                100 * share);
    EXPECT_GT(share, kMost);
}

TEST_F(RecordTest, LeavesNoResidueBesideAPureTone)
{
    auto tone = mPipeWire.Play({"--name", "tone", "--frequency", "997", "--amplitude", "0.5"});
    auto other = mPipeWire.Play({"--name", "other", "--frequency", "440", "--amplitude", "0.9"});
    CommandRun run({"record", "--source", "app:tone", "-d", "4", File()});
    ASSERT_EQ(run.Wait(), 0) << run.Errors();
    const Recording recording = ReadRecording(File());
    for (unsigned channel : {0u, 1u}) {
        const std::vector<float> samples = recording.Channel(channel);
        const auto fit = PurestPiece(samples, 997, kRateHz / 2);
        std::printf("residue: %.1f dB\n", fit.mResidualDB);
        EXPECT_NEAR(fit.mAmplitude, 0.5, 1e-3);
        EXPECT_LT(fit.mResidualDB, -100)
            << "-140 and below on a machine that keeps up; a phase being paid back has more";
        EXPECT_LT(support::LevelDB(samples, 440, kRateHz), -60);
    }
}

TEST_F(RecordTest, KeepsTheDialogueOfAFilm)
{
    const std::string surround = "FL FR FC LFE RL RR";
    mPipeWire.LoadSink("surround", surround);
    auto film =
        mPipeWire.Play({"--name", "film", "--positions", surround, "--target", "surround", "--amplitude", "0.25"});
    CommandRun run({"record", "--source", "app:film", "--from", "surround", "-d", "2", File()});
    ASSERT_EQ(run.Wait(), 0) << run.Errors();
    const Recording recording = ReadRecording(File());
    for (unsigned channel : {0u, 1u}) {
        const std::vector<float> samples = recording.Channel(channel);
        const auto fit = PurestPiece(samples, 440, kRateHz / 2);
        EXPECT_NEAR(fit.mAmplitude, 0.25 * (1 + 2 * 0.70710678), 1e-3) << "its side, the centre and its surround";
    }
}

TEST_F(RecordTest, FollowsAProcessesDescendantsAndChoosesByOutput)
{
    auto browser = PlayCounter("browser", {"--child"});
    CommandRun byParent({"record", "--source", "pid:" + std::to_string(browser.ID()), "-d", "2", File("a.wav")});
    ASSERT_EQ(byParent.Wait(), 0) << byParent.Errors();
    EXPECT_GT(ShareThatFollows(ReadRecording(File("a.wav")).Channel(0), 0.05), kMost);

    auto elsewhere = PlayCounter("elsewhere", {"--target", "headset"});
    CommandRun fromHeadset({"record", "--from", "headset", "-d", "2", File("b.wav")});
    ASSERT_EQ(fromHeadset.Wait(), 0) << fromHeadset.Errors();
    EXPECT_GT(ShareThatFollows(ReadRecording(File("b.wav")).Channel(0), 0.05), kMost);

    CommandRun everything(
        {"record", "--source", "system", "--from", "speakers", "--from", "headset", "-d", "1", File("c.wav")});
    EXPECT_EQ(everything.Wait(), 0) << everything.Errors();
    EXPECT_GT(CheckCounter(ReadRecording(File("c.wav")).Channel(0)).mBreaks, 0u) << "a sum of two counters is none";
}

// A change of quantum moves the server's frames against its clock by the difference of the two, which is paid back at
// 500 ppm at the most: every step of the counter is then almost one. A lost, doubled or silent frame is far from that.
TEST_F(RecordTest, ChangesOfQuantumCostNoFrame)
{
    auto chosen = PlayCounter("chosen");
    bool follows = false;
    for (int i = 0; i < kTries && !follows; ++i) {
        mPipeWire.SetQuantum(1024);
        std::filesystem::remove(File());
        CommandRun run({"record", "--source", "app:chosen", "-d", "6", File()});
        unsigned seconds = 0;
        for (const unsigned quantum : {2048u, 4096u, 1024u}) {
            WaitForSize(File(), size_t(++seconds) * kRateHz * kFrameBytes);
            mPipeWire.SetQuantum(quantum);
        }
        ASSERT_EQ(run.Wait(), 0) << run.Errors();
        const std::vector<float> left = ReadRecording(File()).Channel(0);
        EXPECT_LT(CheckCounter(left).mLeadingSilence, kRateHz);
        follows = ShareThatFollows(left, 0.05) > kMost;
    }
    EXPECT_TRUE(follows);
}

// Whether the counter at the speakers goes on while the recorder is stopped by a signal: unbroken, or on a machine that
// breaks it anyhow, no more broken than while the recorder runs. An application that were held up would be silent.
bool PlaysOnWhileStopped(CommandRun& run, support::SpeakerProbe& speakers)
{
    const size_t before = CheckCounter(speakers.Next(2 * kRateHz)).mBreaks;
    run.Signal(SIGSTOP);
    const size_t stopped = CheckCounter(speakers.Next(2 * kRateHz)).mBreaks;
    run.Signal(SIGCONT);
    return stopped == 0 || (before > 0 && stopped < std::min<size_t>(2 * before, kRateHz / 2));
}

TEST_F(RecordTest, AStoppedRecorderNeverHoldsUpAnApplication)
{
    for (const unsigned quantum : {256u, 1024u}) {
        mPipeWire.SetQuantum(quantum);
        auto chosen = PlayCounter("chosen");
        support::SpeakerProbe speakers("speakers");
        ASSERT_TRUE(speakers.BecomesAudible());
        CommandRun run({"record", "--force", "--source", "app:chosen", "-d", "40", File()});
        WaitForSize(File(), kRateHz * kFrameBytes);
        bool unbroken = false;
        for (int i = 0; i < kTries && !unbroken; ++i) unbroken = PlaysOnWhileStopped(run, speakers);
        EXPECT_TRUE(unbroken) << "at quantum " << quantum;
        run.Signal(SIGINT);
        EXPECT_EQ(run.Wait(), 0) << run.Errors();
    }
}

TEST_F(RecordTest, GoesOnInSilenceWhileTheServerIsAway)
{
    auto chosen = PlayCounter("chosen");
    CommandRun run({"record", "--source", "pid:" + std::to_string(getpid()), "-d", "6", File()});
    WaitForSize(File(), kRateHz * kFrameBytes);
    chosen.End(SIGKILL);
    mPipeWire.Kill();
    run.WaitForError("away");
    mPipeWire.Start();
    run.WaitForError("back");
    auto again = PlayCounter("again");
    ASSERT_EQ(run.Wait(), 0) << run.Errors();
    const std::vector<float> left = ReadRecording(File()).Channel(0);
    EXPECT_EQ(left.size(), 6u * kRateHz) << "the time that passed, whatever came";
    EXPECT_NE(left[kRateHz / 2], 0) << "sound before";
    EXPECT_NE(left.back(), 0) << "and after";
}

TEST_F(RecordTest, GoesOnWhenItsApplicationDiesAndWhenItsOutputIsUnplugged)
{
    mPipeWire.LoadSink("dock");
    auto chosen = PlayCounter("chosen", {"--target", "dock"});
    auto dying = PlayCounter("dying", {"--target", "headset"});
    CommandRun run({"record", "--source", "system", "--from", "dock", "--from", "headset", "-d", "6", File()});
    WaitForSize(File(), kRateHz * kFrameBytes);
    dying.End(SIGKILL);
    WaitForSize(File(), 2 * kRateHz * kFrameBytes);
    chosen.End(SIGKILL);
    mPipeWire.UnloadSink("dock");
    WaitForSize(File(), 3 * kRateHz * kFrameBytes);
    mPipeWire.LoadSink("dock");
    auto again = PlayCounter("again", {"--target", "dock"});
    ASSERT_EQ(run.Wait(), 0) << run.Errors();
    const std::vector<float> left = ReadRecording(File()).Channel(0);
    EXPECT_EQ(left.size(), 6u * kRateHz);
    EXPECT_EQ(CheckCounter(std::span(left).subspan(left.size() - kRateHz / 2)).mBreaks, 0u)
        << "the sink was taken up again";
}

TEST_F(RecordTest, TheFileSurvivesWhateverEndsTheProgram)
{
    auto chosen = PlayCounter("chosen");
    for (const int number : {SIGINT, SIGTERM, SIGKILL}) {
        CommandRun run({"record", "--force", "--source", "app:chosen", File()});
        WaitForSize(File(), 2 * kRateHz * kFrameBytes);
        run.Signal(number);
        EXPECT_EQ(run.Wait(), number == SIGKILL ? 128 + SIGKILL : 0) << run.Errors();
        const Recording recording = ReadRecording(File());
        EXPECT_GE(recording.Frames(), kRateHz) << "up to the last second, signal " << number;
        const std::vector<float> left = recording.Channel(0);
        EXPECT_GT(std::ranges::count_if(left, [](float sample) { return sample != 0; }), kRateHz / 2);
    }
}

TEST_F(RecordTest, AFullDiskIsToldAndWhatWasRecordedStaysReadable)
{
    auto chosen = PlayCounter("chosen");
    CommandRun run({"record", "--source", "app:chosen", File()}, "ulimit -f 500");
    EXPECT_EQ(run.Wait(), 1);
    EXPECT_NE(run.Errors().find(File()), std::string::npos) << run.Errors();
    EXPECT_GE(ReadRecording(File()).Frames(), 20'000u);
}

TEST_F(RecordTest, StandardOutputGetsAStream)
{
    auto chosen = PlayCounter("chosen");
    CommandRun run({"record", "--source", "app:chosen", "-f", "s16", "-d", "1", "-"});
    ASSERT_EQ(run.Wait(), 0) << run.Errors();
    EXPECT_EQ(run.Output().size(), 94 + kRateHz * 4u) << "a header, then the frames, and nothing else";
    EXPECT_EQ(run.Output().substr(0, 4), "RIFF");
    EXPECT_NE(run.Errors().find("frames lost: 0"), std::string::npos) << run.Errors();
}

TEST_F(RecordTest, WhatCannotBeIsRefusedWithTheReasonAndACodeOfItsOwn)
{
    auto chosen = PlayCounter("chosen");
    std::ofstream(File("there.wav")) << "precious";
    struct Case {
        std::vector<std::string> mArguments;
        int mCode;
        std::string mSays;
    };
    const Case cases[] = {
        {{"record", "--source", "app:chosn", File()}, 4, "app:chosen"},
        {{"record", "--source", "pid:999999999", File()}, 4, "999999999"},
        {{"record", "--from", "speaker", File()}, 4, "speakers"},
        {{"record", "--source", "chosen", File()}, 2, "'chosen'"},
        {{"record", "-r", "fast", File()}, 2, "'fast'"},
        {{"record", "-d", "soon", File()}, 2, "'soon'"},
        {{"record", "-f", "mp3", File()}, 2, "'mp3'"},
        {{"record", "--sorce", "app:chosen", File()}, 2, "--sorce"},
        {{"record"}, 2, "file"},
        {{"record", File("there.wav")}, 2, "--force"},
        {{"record", "-d", "1", mPipeWire.Folder() + "/nowhere/a.wav"}, 1, "nowhere/a.wav"},
    };
    for (const Case& c : cases) {
        CommandRun run(c.mArguments);
        EXPECT_EQ(run.Wait(), c.mCode) << c.mSays << ": " << run.Errors();
        EXPECT_NE(run.Errors().find(c.mSays), std::string::npos) << run.Errors();
        EXPECT_FALSE(std::filesystem::exists(File())) << "nothing is left behind: " << c.mSays;
    }
    mPipeWire.Kill();
    CommandRun alone({"record", File()});
    EXPECT_EQ(alone.Wait(), 3) << alone.Errors();
    EXPECT_NE(alone.Errors().find("pipewire-0"), std::string::npos) << alone.Errors();
}

TEST_F(RecordTest, ListsWhatThereIs)
{
    auto chosen = PlayCounter("chosen");
    auto browser = PlayCounter("browser", {"--child"});
    CommandRun apps({"list", "apps", "--json"});
    ASSERT_EQ(apps.Wait(), 0) << apps.Errors();
    const auto list = nlohmann::json::parse(apps.Output())["applications"];
    ASSERT_EQ(list.size(), 2u) << apps.Output();
    EXPECT_EQ(list[0]["name"], "browser");
    EXPECT_EQ(list[0]["pid"], browser.ID()) << "the topmost process stands for its helper";
    EXPECT_EQ(list[0]["helpers"].size(), 1u);
    EXPECT_EQ(list[1]["name"], "chosen");
    EXPECT_EQ(list[1]["playing"], true);
    EXPECT_EQ(list[1]["identifier_source"], "executable");
    EXPECT_NE(list[1]["path"].get<std::string>().find("corvane-test-app"), std::string::npos);

    CommandRun outputs({"list", "outputs", "--json"});
    ASSERT_EQ(outputs.Wait(), 0) << outputs.Errors();
    const auto devices = nlohmann::json::parse(outputs.Output())["outputs"];
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[0]["uid"], "speakers");
    EXPECT_EQ(devices[0]["default"], true);
    EXPECT_EQ(devices[0]["channels"], 2);
    EXPECT_EQ(devices[0]["rate"], 48000);
}

}  // namespace
}  // namespace desktop
