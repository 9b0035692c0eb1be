// "corvane record" and "corvane list" on a private PipeWire, as a person would use them.
#include "desktop/RecordFixture.h"
#include "support/SignalAnalysis.h"
#include "support/SpeakerProbe.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <functional>
#include <optional>

namespace desktop {
namespace {

using RecordTest = RecordFixture;
using support::CheckCounter;
using support::CounterReport;
using support::WaitForSize;

#ifdef CORVANE_SANITIZED
constexpr unsigned kCyclesAMove = 2;  // the server is late under a sanitizer, and the cycle is cut with the next
constexpr unsigned kLongSeconds = 10;
#else
constexpr unsigned kCyclesAMove = 1;
constexpr unsigned kLongSeconds = 60;
#endif

// A machine that stands still for longer than a cycle costs the server that cycle. The recorder says so of its own
// cycles, the application of its own, and silence stands for both: all else is the count, bit for bit.
void ExpectEveryFrameAccounted(const Recording& recording, uint64_t missed, std::optional<uint64_t> missedByApplication,
                               bool stoodStill)
{
    for (const bool right : {false, true}) {
        const CounterReport report = CheckCounter(recording.Channel(right), right ? -1 : 1);
        EXPECT_LE(report.mLeadingSilence, 1u) << "a count may begin with 0";
        // Where the server's clock made a step, a filter bends the count, and blurs it where sound begins or ends.
        EXPECT_TRUE(report.mBent == 0 || missed > 0 || stoodStill)
            << report.mBent << " frames from " << report.mFirstBreak;
        EXPECT_LE(report.mForeign, report.mBent == 0 ? 0 : 64 + missed / 8) << "first break at " << report.mFirstBreak;
        EXPECT_TRUE(report.mSkipped <= missed || stoodStill) << report.mSkipped;
        EXPECT_TRUE(!missedByApplication || report.mSilent <= missed + *missedByApplication) << report.mSilent;
    }
    if (missed + missedByApplication.value_or(0) > 0)
        std::printf("the server was late: %llu frames not delivered, %llu not asked for\n",
                    static_cast<unsigned long long>(missed),
                    static_cast<unsigned long long>(missedByApplication.value_or(0)));
}

// The purest half second from `from` on: as long as the server is in time, all of them are.
std::span<const float> PurestPiece(std::span<const float> samples, double frequencyHz, size_t from)
{
    constexpr size_t kFrames = kRateHz / 2;
    std::span<const float> best = samples.subspan(from, kFrames);
    const auto residue = [&](std::span<const float> piece) {
        return support::FitSine(piece, frequencyHz, kRateHz).mResidualDB;
    };
    for (size_t n = from; n + kFrames <= samples.size(); n += kFrames / 4)
        if (const auto piece = samples.subspan(n, kFrames); residue(piece) < residue(best)) best = piece;
    return best;
}

TEST_F(RecordTest, TakesEveryFrameOfOneApplicationBitForBitAndNoneOfAnother)
{
    mPipeWire.SetQuantum(1024);
    auto chosen = PlayCounter("chosen");
    auto other = PlayCounter("other");
    const Recording recording = Record({"--source", "app:chosen", "-d", std::to_string(kLongSeconds / 2)});
    EXPECT_EQ(recording.mRateHz, int(kRateHz));
    ASSERT_EQ(recording.Frames(), size_t(kLongSeconds / 2) * kRateHz);
    ExpectEveryFrameAccounted(recording, mMissed, MissedBy(chosen), mWitness.MachineStoodStill());
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
        const auto fit = support::FitSine(PurestPiece(samples, 997, kRateHz / 2), 997, kRateHz);
        EXPECT_NEAR(fit.mAmplitude, 0.5, 1e-6);
        EXPECT_LT(fit.mResidualDB, -140);
    }
}

TEST_F(RecordTest, FollowsAProcessesDescendantsAndChoosesByOutput)
{
    auto browser = PlayCounter("browser", {"--child"});
    ExpectEveryFrameAccounted(Record({"--source", "pid:" + std::to_string(browser.ID()), "-d", "2"}), mMissed, {},
                              mWitness.MachineStoodStill());

    auto elsewhere = PlayCounter("elsewhere", {"--target", "headset"});
    ExpectEveryFrameAccounted(Record({"--from", "headset", "-d", "2"}), mMissed, {}, mWitness.MachineStoodStill());

    const Recording everything = Record({"--source", "system", "--from", "speakers", "--from", "headset", "-d", "1"});
    EXPECT_GT(CheckCounter(everything.Channel(0)).mSkipped, kRateHz / 2) << "two counters go up by two";
}

// A change of quantum moves the server's frames against its clock by the difference of the two, which is paid back at
// 500 ppm at the most: frames may be bent, and none is lost, doubled or silent.
TEST_F(RecordTest, ChangesOfQuantumCostNoFrame)
{
    // Again where the server was late: what is judged here is not what it missed.
    for (int i = 0; i < kTries; ++i) {
        mPipeWire.SetQuantum(1024);
        auto chosen = PlayCounter("chosen");
        CommandRun run({"record", "--json", "--force", "--source", "app:chosen", "-d", "6", File()});
        unsigned seconds = 0;
        for (const unsigned quantum : {2048u, 4096u, 1024u}) {
            WaitForSize(File(), size_t(++seconds) * kRateHz * kFrameBytes);
            mPipeWire.SetQuantum(quantum);
        }
        const Recording recording = Finished(run);
        if (mMissed + MissedBy(chosen) > 0) continue;
        const CounterReport report = CheckCounter(recording.Channel(0));
        EXPECT_LT(report.mLeadingSilence, kRateHz);
        EXPECT_EQ(report.mForeign + report.mSkipped + report.mSilent, 0u);
        return;
    }
    FAIL() << "the server was late in every try";
}

TEST_F(RecordTest, AStoppedRecorderNeverHoldsUpAnApplication)
{
    for (const unsigned quantum : {256u, 1024u}) {
        mPipeWire.SetQuantum(quantum);
        auto chosen = PlayCounter("chosen");
        support::SpeakerProbe speakers("speakers");
        ASSERT_TRUE(speakers.BecomesAudible());
        CommandRun run({"record", "--force", "--source", "app:chosen", File()});
        WaitForSize(File(), kRateHz * kFrameBytes);
        run.Signal(SIGSTOP);
        const CounterReport report = CheckCounter(speakers.Next(2 * kRateHz));
        run.Signal(SIGCONT);
        // One that is held up is silent all the time; a machine that stands still costs a cycle now and then.
        EXPECT_EQ(report.mForeign, 0u);
        EXPECT_LT(report.mLeadingSilence + report.mSilent + report.mSkipped, kRateHz / 4) << "at quantum " << quantum;
        run.Signal(SIGINT);
        EXPECT_EQ(run.Wait(), 0) << run.Errors();
    }
}

/// Whether it is a cycle that the server had asked for twice while it moved a stream between outputs. Each move may
/// have one, and is then taken out of `events`.
bool IsRepeatedAtAMove(const support::Piece& piece, uint64_t mostFrames, nlohmann::json& events)
{
    const auto isMove = [&](const nlohmann::json& event) {
        return event["kind"] == "default_output" &&
               std::fabs(event["frame"].get<double>() - double(piece.mStart)) < kRateHz / 2.0;
    };
    const auto move = std::ranges::find_if(events, isMove);
    if (piece.mFrames > mostFrames || move == events.end()) return false;
    events.erase(move);
    std::printf("the server repeated %llu frames at a move\n", static_cast<unsigned long long>(piece.mFrames));
    return true;
}

// Applications play the count of the host clock. Under a sanitizer the recording is too short for the longer stops.
TEST_F(RecordTest, EverySampleIsRightForItsTimeOrIsListedWhateverHappens)
{
    constexpr unsigned kQuantum = 1024;
    const auto play = [this] {
        mPipeWire.SetQuantum(kQuantum);
        return PlayCounter("game", {"--from-host-time"});
    };
    auto game = play();
    CommandRun run({"record", "--json", "--source", "app:game", "-d", std::to_string(kLongSeconds), File()});
    double stoppedSeconds = 0;
    uint64_t missed = 0;  // by the application itself
    const auto playAnew = [&] {
        missed += MissedBy(game);
        game = play();
    };
    const auto stop = [&](double seconds) {
        support::SpeakerProbe speakers("speakers");
        run.Signal(SIGSTOP);
        for (int i = 0; i < 10; ++i) speakers.Next(size_t(seconds * kRateHz / 10));
        run.Signal(SIGCONT);
        stoppedSeconds += seconds;
    };
    const std::function<void()> happenings[] = {
        [&] { mPipeWire.SetDefaultSink("headset"); },
        [&] { mPipeWire.SetDefaultSink("speakers"); },
        playAnew,
        [&] {
            mPipeWire.Kill();
            mPipeWire.Start();
            playAnew();
        },
        [&] { stop(0.3); },
        [&] { stop(0.9); },
        [&] { stop(2); },
        [&] { stop(20); },
    };
    const size_t count = kLongSeconds < 60 ? 6 : std::size(happenings), apartSeconds = kLongSeconds < 60 ? 1 : 3;
    for (size_t i = 0; i < count; ++i) {
        WaitForSize(File(), (i + 1) * apartSeconds * kRateHz * kFrameBytes);
        happenings[i]();
    }
    ASSERT_EQ(run.Wait(), 0) << run.Errors();
    missed += MissedBy(game);
    const auto result = nlohmann::json::parse(run.Output());
    const Recording recording = ReadRecording(File());
    ASSERT_EQ(recording.Frames(), size_t(kLongSeconds) * kRateHz);
    // Where the machine stood still, the application's count is no reference for longer than that: it takes the stamp
    // of a later cycle for its own. What is listed must be silent all the same, and all else sound of about its time.
    const bool stoodStill = mWitness.MachineStoodStill();
    if (stoodStill) std::printf("the machine stood still: counts are taken to half a second\n");
    // A stop ends when the next part comes, and a server that starts anew takes its time.
    EXPECT_TRUE(result["frames_lost"] < (stoppedSeconds + 4) * kRateHz || stoodStill) << result["silences"];
    for (const bool right : {false, true}) {
        std::vector<float> samples = recording.Channel(right);
        for (float& sample : samples) sample = right ? -sample : sample;
        support::Timeline timeline{.mFirstCount = double(samples[0]) * support::kCounterModulus,
                                   .mMostOff = stoodStill ? kRateHz / 2.0 : 1,
                                   .mEdge = stoodStill ? 32u : 1u};
        for (const auto& silence : result["silences"])
            timeline.mSilences.push_back({silence["start"], silence["frames"]});
        nlohmann::json events = result["events"];
        uint64_t unplayed = 0;
        for (const support::Piece& wrong : FindWrongPieces(samples, timeline)) {
            const auto piece = std::span(samples).subspan(wrong.mStart, wrong.mFrames);
            const bool isSilent = std::ranges::count(piece, 0.0F) == std::ssize(piece);
            unplayed += isSilent ? wrong.mFrames : 0;
            const bool isBlurred = stoodStill && wrong.mFrames <= 64;  // where a bent count begins anew
            EXPECT_TRUE(isSilent || isBlurred || IsRepeatedAtAMove(wrong, kCyclesAMove * kQuantum, events))
                << wrong.mFrames << " frames from " << wrong.mStart << " of " << (right ? "right\n" : "left\n")
                << result;
        }
        EXPECT_TRUE(unplayed <= missed || stoodStill) << unplayed << result;
    }
}

TEST_F(RecordTest, WaitsForAnApplicationInListedSilence)
{
    CommandRun run({"record", "--json", "--wait", "--source", "app:later", "-d", "4", File()});
    WaitForSize(File(), kRateHz * kFrameBytes);
    auto later = PlayCounter("later");
    const std::vector<float> left = Finished(run).Channel(0);
    const size_t silent = CheckCounter(left).mLeadingSilence;
    EXPECT_GT(silent, kRateHz);
    EXPECT_LT(silent, 3 * kRateHz);
    ASSERT_FALSE(mResult["silences"].empty());
    const auto& first = mResult["silences"][0];
    EXPECT_EQ(std::pair(first["cause"], first["start"]), std::pair(nlohmann::json("not_playing"), nlohmann::json(0)));
    EXPECT_NEAR(first["frames"].get<double>(), double(silent), 1);
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
    EXPECT_EQ(CheckCounter(std::span(left).subspan(left.size() - kRateHz / 2)).mForeign, 0u)
        << "the sink was taken up again";
}

TEST_F(RecordTest, TheFileSurvivesWhateverEndsTheProgram)
{
    auto chosen = PlayCounter("chosen");
    std::signal(SIGHUP, SIG_DFL);  // a child keeps ignoring what its parent ignored
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGKILL}) {
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
    EXPECT_NE(run.Errors().find("lost: "), std::string::npos) << run.Errors();
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
        {{"record", "--source", "app:chosn", File()}, 4, "Playing now: chosen"},
        {{"record", "--source", "pid:999999999", File()}, 4, "999999999"},
        {{"record", "--from", "spaekers", File()}, 4, "speakers"},
        {{"record", "--from", "", File()}, 2, "--from"},
        {{"record", "--source", "chosen", File()}, 2, "'chosen'"},
        {{"record", "-f", "mp3", File()}, 2, "'mp3'"},
        {{"record", "--sorce", "app:chosen", File()}, 2, "--sorce"},
        {{"record"}, 2, "file"},
        {{"record", File("there.wav")}, 2, "--force"},
        {{"record", "--force", "--source", "app:chosn", File("there.wav")}, 4, "chosn"},
        {{"record", "-d", "1", mPipeWire.Folder() + "/nowhere/a.wav"}, 1, "nowhere/a.wav"},
    };
    for (const Case& c : cases) {
        CommandRun run(c.mArguments);
        EXPECT_EQ(run.Wait(), c.mCode) << c.mSays << ": " << run.Errors();
        EXPECT_NE(run.Errors().find(c.mSays), std::string::npos) << run.Errors();
        EXPECT_FALSE(std::filesystem::exists(File())) << "nothing is left behind: " << c.mSays;
    }
    for (const char* sink : {"speakers", "headset"}) mPipeWire.UnloadSink(sink);
    CommandRun mute({"record", "--force", File("there.wav")});
    EXPECT_EQ(mute.Wait(), 3) << mute.Errors();
    EXPECT_NE(mute.Errors().find("no output"), std::string::npos) << mute.Errors();
    mPipeWire.Kill();
    CommandRun alone({"record", "--force", File("there.wav")});
    EXPECT_EQ(alone.Wait(), 3) << alone.Errors();
    EXPECT_NE(alone.Errors().find("pipewire-0"), std::string::npos) << alone.Errors();
    std::string kept;
    std::getline(std::ifstream(File("there.wav")), kept);
    EXPECT_EQ(kept, "precious");
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

    mPipeWire.LoadSink("microphones", "AUX0 AUX1 AUX2", "Audio/Source/Virtual");
    CommandRun inputs({"list", "inputs", "--json"});
    ASSERT_EQ(inputs.Wait(), 0) << inputs.Errors();
    const auto found = nlohmann::json::parse(inputs.Output())["inputs"];
    ASSERT_EQ(found.size(), 1u) << "an output's monitor is no input";
    EXPECT_EQ(found[0]["uid"], "microphones");
    EXPECT_EQ(found[0]["channels"], 3);
}

}  // namespace
}  // namespace desktop
