#include "platform/machine/linux/pipewire/PipeWireServer.h"

#include "desktop/CaptureRecorder.h"
#include "desktop/ServerWatch.h"
#include "support/PrivatePipeWire.h"
#include "support/SignalAnalysis.h"
#include "support/SpeakerProbe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>

namespace desktop {

using platform::machine::CaptureNode;
using platform::machine::MakePipeWireServer;
using support::CheckCounter;
using support::ChildProcess;
using support::PrivatePipeWire;
using support::SpeakerProbe;
using testing::ElementsAre;

namespace {

constexpr size_t kSecondFrames = 48000;

std::unique_ptr<AudioServer> ReadyServer()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    auto server = MakePipeWireServer();
    EXPECT_TRUE(server->WaitUntilReady(static_cast<uint64_t>(now.tv_sec + 10) * 1'000'000'000)) << server->Describe();
    return server;
}

class PipeWireServerTest : public testing::Test {
protected:
    explicit PipeWireServerTest(PrivatePipeWire::Streams streams = PrivatePipeWire::Streams::Forgotten)
        : mPipeWire(streams)
    {
    }

    ChildProcess PlayCounter(const std::string& name, std::vector<std::string> more = {})
    {
        more.insert(more.end(), {"--name", name, "--counter"});
        return mPipeWire.Play(more);
    }

    uint32_t StreamOf(const std::string& name)
    {
        uint32_t id = 0;
        EXPECT_TRUE(mWatch.Sees([&](const ServerSnapshot& snapshot) {
            const PlaybackStream* stream = FindStream(snapshot, name);
            id = stream == nullptr ? 0 : stream->mID;
            return stream != nullptr && !stream->mOutputs.empty() && !stream->mChannels.empty();
        })) << name;
        return id;
    }

    std::unique_ptr<CaptureNode> Capture(std::vector<uint32_t> streams, CaptureRecorder& recorder,
                                         const std::string& uid = "speakers")
    {
        auto capture = mServer->OpenCapture(uid, "test-capture", recorder);
        capture->SetStreams(streams);
        return capture;
    }

    /// An input device, whose sound counts frames from when it is first taken.
    ChildProcess PlugMicrophone(const std::string& positions = "FL FR")
    {
        ChildProcess microphone({"./corvane-test-app", "--name", "microphone", "--counter", "--positions", positions,
                                 "--properties", "media.class=Audio/Source", "priority.session=2000"});
        EXPECT_TRUE(mWatch.Sees([](const ServerSnapshot& now) {
            const Device* device = FindInput(now, "microphone");
            return device != nullptr && !device->mChannels.empty() && now.mDefaultInput == device->mID;
        }));
        return microphone;
    }

    /// Every count came but those of cycles that the stamps leave out: a machine that stands still costs the server
    /// these, and no capture can have them. A cycle that is late, or at a move, may bear the stamp of another.
    static void ExpectEveryCount(CaptureRecorder& recorder)
    {
        const auto stamps = recorder.Stamps();
        int64_t leftOut = 0;
        for (size_t i = 1; i < stamps.size(); ++i)
            if (const auto& last = stamps[i - 1]; stamps[i].mClockID == last.mClockID)
                leftOut += stamps[i].mSampleTime - (last.mSampleTime + last.mFrames);
        for (const auto& [position, sign] :
             {std::pair(ChannelPosition::FrontLeft, 1), {ChannelPosition::FrontRight, -1}}) {
            const auto report = CheckCounter(recorder.Samples(position), sign);
            EXPECT_EQ(report.mForeign, 0u) << "first break at " << report.mFirstBreak;
            EXPECT_LE(report.mSkipped + report.mSilent, static_cast<uint64_t>(std::max<int64_t>(leftOut, 0)));
        }
    }

    PrivatePipeWire mPipeWire;
    std::unique_ptr<AudioServer> mServer = ReadyServer();
    ServerWatch mWatch{*mServer};
};

/// The session manager keeps here where a stream was sent, and sends the next of its kind there too.
class RememberingPipeWireServerTest : public PipeWireServerTest {
protected:
    RememberingPipeWireServerTest() : PipeWireServerTest(PrivatePipeWire::Streams::Restored) {}
};

}  // namespace

TEST_F(PipeWireServerTest, ShowsDevicesAndWhoPlaysOnThem)
{
    mPipeWire.LoadSink("surround", "FL FR FC LFE RL RR");
    auto tone = mPipeWire.Play({"--name", "tone"});
    auto child = mPipeWire.Play(
        {"--name", "child", "--child", "--target", "surround", "--properties", "application.id=org.example.child"});
    auto goBetween = mPipeWire.ServePulse();
    ChildProcess mediated({"pacat", "--playback", "--raw", "--client-name=mediated", "/dev/zero"});
    ASSERT_TRUE(mWatch.Sees([&](const ServerSnapshot& snapshot) {
        return PlaysOn(snapshot, "mediated", "speakers") && PlaysOn(snapshot, "tone", "speakers") &&
               PlaysOn(snapshot, "child", "surround") && FindStream(snapshot, "tone")->mPlaying;
    }));
    const ServerSnapshot snapshot = mServer->Snapshot();
    EXPECT_EQ(snapshot.mDefaultOutput, FindOutput(snapshot, "speakers")->mID);
    EXPECT_EQ(FindOutput(snapshot, "speakers")->mName, "Test Speakers");
    EXPECT_EQ(FindOutput(snapshot, "surround")->mNominalRateHz, 48000);
    EXPECT_THAT(FindOutput(snapshot, "surround")->mChannels,
                ElementsAre(ChannelPosition::FrontLeft, ChannelPosition::FrontRight, ChannelPosition::FrontCenter,
                            ChannelPosition::LowFrequency, ChannelPosition::RearLeft, ChannelPosition::RearRight));
    EXPECT_EQ(FindStream(snapshot, "tone")->mPID, tone.ID());
    EXPECT_EQ(FindStream(snapshot, "mediated")->mPID, mediated.ID());
    EXPECT_NE(FindStream(snapshot, "child")->mPID, child.ID());
    EXPECT_GT(FindStream(snapshot, "child")->mPID, 0);
    EXPECT_EQ(FindStream(snapshot, "child")->mApplicationID, "org.example.child");
    EXPECT_EQ(FindStream(snapshot, "child")->mChannels, FindOutput(snapshot, "surround")->mChannels);

    tone.End(SIGKILL);
    EXPECT_TRUE(mWatch.Sees([](const ServerSnapshot& now) { return FindStream(now, "tone") == nullptr; }));
    mPipeWire.SetDefaultSink("headset");
    EXPECT_TRUE(
        mWatch.Sees([](const ServerSnapshot& now) { return now.mDefaultOutput == FindOutput(now, "headset")->mID; }));
}

TEST_F(PipeWireServerTest, CapturesEveryFrameOfTheChosenApplicationAndOfNoOther)
{
    mPipeWire.SetQuantum(1024);
    auto chosen = PlayCounter("chosen");
    auto other = mPipeWire.Play({"--name", "other", "--amplitude", "0.9"});
    CaptureRecorder recorder;
    auto capture = Capture({StreamOf("chosen")}, recorder);
    ASSERT_TRUE(recorder.Records(3 * kSecondFrames));
    ExpectEveryCount(recorder);
    capture.reset();
    const size_t after = recorder.Stamps().size();
    EXPECT_TRUE(mWatch.Sees([](const ServerSnapshot& now) { return PlaysOn(now, "chosen", "speakers"); }));
    EXPECT_EQ(recorder.Stamps().size(), after);
}

TEST_F(PipeWireServerTest, LosesNothingWhenOtherApplicationsComeAndGo)
{
    mPipeWire.SetQuantum(1024);
    mPipeWire.LoadSink("wide", "FL FR FC");
    auto steady = PlayCounter("steady", {"--target", "wide"});
    CaptureRecorder recorder;
    auto capture = mServer->OpenCapture("wide", "test-capture", recorder);
    const uint32_t steadyID = StreamOf("steady");
    capture->SetStreams(std::vector{steadyID});
    ASSERT_TRUE(recorder.Records(kSecondFrames / 2));
    const struct {
        int mSignal;
        ChannelPosition mPosition;
        std::vector<std::string> mOptions;
    } guests[] = {
        {SIGTERM, ChannelPosition::FrontCenter, {"--positions", "FL FR FC", "--only", "2"}},
        {SIGKILL, ChannelPosition::Mono, {"--positions", "MONO", "--properties", "stream.dont-remix=true"}},
    };
    for (const auto& row : guests) {
        std::vector<std::string> options = row.mOptions;
        options.insert(options.begin(), {"--name", "guest", "--target", "wide"});
        auto guest = mPipeWire.Play(options);
        capture->SetStreams(std::vector{steadyID, StreamOf("guest")});
        ASSERT_TRUE(recorder.Hears(row.mPosition, true));
        guest.End(row.mSignal);
        ASSERT_TRUE(mWatch.Sees([](const ServerSnapshot& now) { return FindStream(now, "guest") == nullptr; }));
    }
    const size_t before = recorder.Samples(ChannelPosition::FrontLeft).size();
    ASSERT_TRUE(recorder.HasRecorded(before + kSecondFrames / 2));
    ExpectEveryCount(recorder);
}

TEST_F(PipeWireServerTest, ASignalOfTheHostReachesNoThreadOfOursAndNoCaptureOutlivesItsEnd)
{
    mPipeWire.SetQuantum(64);
    auto tone = mPipeWire.Play({"--name", "tone"});
    const uint32_t stream = StreamOf("tone");
    static std::atomic<int> sElsewhere{0};
    static const pid_t sMain = gettid();
    struct sigaction action {};
    action.sa_handler = [](int) { sElsewhere += gettid() != sMain; };  // without SA_RESTART
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often{{0, 150}, {0, 150}}, never{};
    setitimer(ITIMER_REAL, &often, nullptr);
    for (int round = 0; round < 100; ++round) {
        auto recorder = std::make_unique<CaptureRecorder>();
        auto capture = Capture({stream}, *recorder);
        EXPECT_TRUE(recorder->Meets([](const auto&) { return true; }));
        capture.reset();
    }
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_EQ(sElsewhere, 0);
}

TEST_F(PipeWireServerTest, CapturesAnApplicationThatStartsLateFromItsFirstMomentsOn)
{
    mPipeWire.SetQuantum(1024);
    CaptureRecorder recorder;
    auto capture = mServer->OpenCapture("speakers", "test-capture", recorder);
    uint32_t id = 0;
    ChildProcess late({"./corvane-test-app", "--name", "late", "--counter"});
    ASSERT_TRUE(mWatch.Sees([&](const ServerSnapshot& snapshot) {
        const PlaybackStream* stream = FindStream(snapshot, "late");
        id = stream == nullptr ? 0 : stream->mID;
        return id != 0;
    }));
    capture->SetStreams(std::vector{id});
    ASSERT_TRUE(recorder.HasRecorded(kSecondFrames / 2));
    const std::vector<float> heard = recorder.Samples(ChannelPosition::FrontLeft);
    const auto first = std::ranges::find_if(heard, [](float sample) { return sample != 0; });
    ASSERT_NE(first, heard.end());
    // The session manager and we link it at the same time; who is first is not for us to say.
    EXPECT_LT(*first, static_cast<float>(kSecondFrames / 4) / (1 << 20));
    EXPECT_EQ(CheckCounter({first, heard.end()}).mBreaks, 0u);
}

TEST_F(PipeWireServerTest, CapturesWhateverTheLibrarysConfigurationLacks)
{
    auto counter = PlayCounter("counter");
    const uint32_t stream = StreamOf("counter");
    const std::filesystem::path given = std::getenv("PIPEWIRE_CONFIG_DIR");
    const std::filesystem::path lacking = mPipeWire.Folder() + "/conf";
    std::filesystem::create_directory(lacking);
    setenv("PIPEWIRE_CONFIG_DIR", lacking.c_str(), 1);
    for (const char* present : {"", "client.conf"}) {
        if (*present != 0) std::filesystem::copy_file(given / present, lacking / present);
        const auto server = ReadyServer();
        if (*present == 0) {
            EXPECT_THAT(server->Describe(), testing::HasSubstr("; without "));
        }
        CaptureRecorder recorder;
        const auto capture = server->OpenCapture("speakers", "test-capture", recorder);
        capture->SetStreams(std::vector{stream});
        EXPECT_TRUE(recorder.Records(kSecondFrames / 4)) << present;
    }
}

TEST_F(PipeWireServerTest, GoesOnAcrossChangesOfQuantumAndRate)
{
    mPipeWire.SetQuantum(1024);
    auto tone = mPipeWire.Play({"--name", "tone"});
    CaptureRecorder recorder;
    auto capture = Capture({StreamOf("tone")}, recorder);
    EXPECT_TRUE(recorder.Meets([](const auto& stamp) { return stamp.mFrames == 1024 && stamp.mRateHz == 48000; }));
    mPipeWire.SetQuantum(256);
    EXPECT_TRUE(recorder.Meets([](const auto& stamp) { return stamp.mFrames == 256; }));
    mPipeWire.SetRate(44100);
    EXPECT_TRUE(recorder.Meets([](const auto& stamp) { return stamp.mRateHz == 44100; }));
    EXPECT_TRUE(recorder.Records(kSecondFrames / 4));
    const auto longest = mServer->LongestCycleNanos();
    EXPECT_EQ(longest, 8192ull * 1'000'000'000 / 44100);
}

TEST_F(PipeWireServerTest, SilencesAnApplicationThatIsStillCapturedWholeAndReleasesIt)
{
    mPipeWire.SetQuantum(1024);
    auto counter = PlayCounter("counter");
    SpeakerProbe speakers("speakers");
    ASSERT_TRUE(speakers.BecomesAudible());
    CaptureRecorder recorder;
    auto capture = Capture({StreamOf("counter")}, recorder);
    ASSERT_TRUE(recorder.Records(kSecondFrames / 2));
    capture->SetSilenced(true);
    EXPECT_TRUE(speakers.BecomesSilent());
    EXPECT_TRUE(PlaysOn(mServer->Snapshot(), "counter", "speakers"));
    EXPECT_EQ(mServer->Snapshot().mOutputs.size(), 2u);
    ASSERT_TRUE(recorder.HasRecorded(kSecondFrames));
    capture->SetSilenced(false);
    EXPECT_TRUE(speakers.BecomesAudible());
    ASSERT_TRUE(recorder.HasRecorded(2 * kSecondFrames));
    ExpectEveryCount(recorder);
    EXPECT_EQ(mPipeWire.NoteOf("counter", "target.object"), std::nullopt);

    capture->SetSilenced(true);
    EXPECT_TRUE(speakers.BecomesSilent());
    capture.reset();
    EXPECT_TRUE(speakers.BecomesAudible());
}

TEST_F(PipeWireServerTest, LetsSoundBeHeardAgainWhenTheCapturingProcessIsKilled)
{
    auto tone = mPipeWire.Play({"--name", "tone"});
    SpeakerProbe speakers("speakers");
    ASSERT_TRUE(speakers.BecomesAudible());
    for (int round = 0; round < 2; ++round) {
        ChildProcess silencer({"./corvane-test-silencer", "tone"});
        EXPECT_EQ(silencer.ReadLine(), "capturing");
        EXPECT_TRUE(speakers.BecomesSilent());
        EXPECT_TRUE(PlaysOn(mServer->Snapshot(), "tone", "speakers")) << "another process's hole counts as home, too";
        silencer.End(SIGKILL);
        EXPECT_TRUE(speakers.BecomesAudible());
    }
    EXPECT_TRUE(mPipeWire.NoteOf("tone", "target.object")->starts_with("corvane.hole."));
    const auto next = ReadyServer();
    mPipeWire.WaitForNote("tone", "target.object", false);
}

TEST_F(PipeWireServerTest, SilencesAnApplicationThatMayNotBeMoved)
{
    auto fixed = mPipeWire.Play({"--name", "fixed", "--properties", "node.dont-reconnect=true"});
    SpeakerProbe speakers("speakers");
    ASSERT_TRUE(speakers.BecomesAudible());
    CaptureRecorder recorder;
    auto capture = Capture({StreamOf("fixed")}, recorder);
    capture->SetSilenced(true);
    EXPECT_TRUE(speakers.BecomesSilent());
    EXPECT_TRUE(PlaysOn(mServer->Snapshot(), "fixed", "speakers"));
    EXPECT_TRUE(recorder.Records(kSecondFrames / 4));
    capture.reset();
    EXPECT_TRUE(speakers.BecomesAudible());
    EXPECT_TRUE(PlaysOn(mServer->Snapshot(), "fixed", "speakers"));
}

TEST_F(RememberingPipeWireServerTest, SilencesNobodyElseAndGivesBackWhereTheUserSentAStream)
{
    auto first = mPipeWire.Play({"--name", "first", "--properties", "media.role=Music"});
    mPipeWire.Note("first", "target.object", "speakers");
    SpeakerProbe speakers("speakers");
    CaptureRecorder recorder;
    auto capture = Capture({StreamOf("first")}, recorder);
    capture->SetSilenced(true);
    EXPECT_TRUE(speakers.BecomesSilent());
    auto second = mPipeWire.Play({"--name", "second", "--properties", "media.role=Music"});
    EXPECT_TRUE(speakers.BecomesAudible());
    EXPECT_TRUE(mWatch.Sees([](const ServerSnapshot& now) { return PlaysOn(now, "second", "speakers"); }));
    second.End(SIGTERM);
    EXPECT_TRUE(speakers.BecomesSilent());
    capture->SetSilenced(false);
    EXPECT_TRUE(speakers.BecomesAudible());
    EXPECT_EQ(mPipeWire.NoteOf("first", "target.object"), "speakers");

    capture->SetSilenced(true);
    EXPECT_TRUE(speakers.BecomesSilent());
    mPipeWire.Note("first", "target.object", "headset");
    EXPECT_TRUE(mWatch.Sees([](const ServerSnapshot& now) { return PlaysOn(now, "first", "headset"); }))
        << "a user who moves a silenced stream has the last word";
    mPipeWire.Note("first", "target.object", "speakers");
    EXPECT_TRUE(speakers.BecomesSilent()) << "back at home it is silenced again";
}

TEST_F(PipeWireServerTest, RebuildsCapturesWhenTheServerIsKilledAndStartedAgain)
{
    CaptureRecorder recorder;
    auto capture = mServer->OpenCapture("speakers", "test-capture", recorder);
    std::vector<uint32_t> seen;
    for (int round = 0; round < 3; ++round) {
        auto counter = PlayCounter("counter");
        seen.push_back(StreamOf("counter"));
        capture->SetStreams(std::vector{seen.back()});
        ASSERT_TRUE(recorder.Records(kSecondFrames / 4));
        mPipeWire.Kill();
        ASSERT_TRUE(mWatch.Sees([](const ServerSnapshot& now) { return !now.mConnected && now.mOutputs.empty(); }));
        EXPECT_THAT(mServer->Describe(), testing::HasSubstr("no PipeWire server at " + mPipeWire.Folder()));
        mPipeWire.Start();
        ASSERT_TRUE(mWatch.Sees([](const ServerSnapshot& now) { return now.mDefaultOutput != 0; }));
    }
    std::ranges::sort(seen);
    EXPECT_EQ(std::ranges::adjacent_find(seen), seen.end()) << "a number stood for two streams";
}

TEST_F(PipeWireServerTest, DeliversEveryFrameOfAnInputDeviceWithStampsThatGoOn)
{
    EXPECT_TRUE(mServer->Snapshot().mInputs.empty()) << "what the outputs play is no input";
    mPipeWire.SetQuantum(1024);
    auto microphone = PlugMicrophone();
    EXPECT_EQ(mServer->Snapshot().mOutputs.size(), 2u);
    EXPECT_THAT(FindInput(mServer->Snapshot(), "microphone")->mChannels,
                ElementsAre(ChannelPosition::FrontLeft, ChannelPosition::FrontRight));
    CaptureRecorder recorder;
    auto input = mServer->OpenInput("microphone", "test-input", recorder);
    ASSERT_TRUE(recorder.HasRecorded(3 * kSecondFrames));
    input.reset();
    ExpectEveryCount(recorder);
    EXPECT_TRUE(mServer->Snapshot().mStreams.empty());
}

TEST_F(PipeWireServerTest, AVirtualInputDeviceDeliversLikeAnyOther)
{
    mPipeWire.LoadSink("virtual", "FL FR", "Audio/Source/Virtual");
    EXPECT_TRUE(mWatch.Sees([](const ServerSnapshot& now) {
        const Device* device = FindInput(now, "virtual");
        return device != nullptr && device->mChannels.size() == 2;
    }));
    CaptureRecorder recorder;
    auto input = mServer->OpenInput("virtual", "test-input", recorder);
    EXPECT_TRUE(recorder.Records(kSecondFrames / 4, ChannelPosition::FrontRight));
    mPipeWire.SetRate(44100);
    EXPECT_TRUE(
        mWatch.Sees([](const ServerSnapshot& now) { return FindInput(now, "virtual")->mNominalRateHz == 44100; }));
    EXPECT_TRUE(recorder.Meets([](const auto& stamp) { return stamp.mRateHz == 44100; }));
}

TEST_F(PipeWireServerTest, TakesAnInputDeviceUpWheneverItOrTheServerIsBack)
{
    CaptureRecorder recorder;
    auto input = mServer->OpenInput("microphone", "test-input", recorder);
    for (const char* positions : {"MONO", "AUX0 AUX1 AUX2"}) {
        auto microphone = PlugMicrophone(positions);
        const ChannelPosition last = FindInput(mServer->Snapshot(), "microphone")->mChannels.back();
        EXPECT_TRUE(recorder.Records(kSecondFrames / 4, last)) << positions;
        microphone.End(SIGKILL);
        ASSERT_TRUE(mWatch.Sees([](const ServerSnapshot& now) { return now.mInputs.empty(); }));
    }
    mPipeWire.Kill();
    ASSERT_TRUE(mWatch.Sees([](const ServerSnapshot& now) { return !now.mConnected; }));
    mPipeWire.Start();
    auto microphone = PlugMicrophone();
    EXPECT_TRUE(recorder.Records(kSecondFrames / 4));
}

TEST_F(PipeWireServerTest, FollowsADeviceThatIsUnpluggedAndPluggedInAgain)
{
    auto counter = PlayCounter("counter");
    CaptureRecorder recorder;
    auto capture = Capture({StreamOf("counter")}, recorder);
    capture->SetSilenced(true);
    mPipeWire.WaitForNote("counter", "target.object");
    const uint32_t before = FindOutput(mServer->Snapshot(), "speakers")->mID;
    mPipeWire.UnloadSink("speakers");
    EXPECT_TRUE(mWatch.Sees([](const ServerSnapshot& now) { return PlaysOn(now, "counter", "headset"); }))
        << "what was silenced on the speakers is not silenced anywhere else";
    EXPECT_TRUE(recorder.Records(kSecondFrames / 4));
    mPipeWire.LoadSink("speakers");
    EXPECT_TRUE(mWatch.Sees([](const ServerSnapshot& now) { return PlaysOn(now, "counter", "speakers"); }));
    EXPECT_NE(FindOutput(mServer->Snapshot(), "speakers")->mID, before);
    EXPECT_TRUE(recorder.Records(kSecondFrames / 4));
    SpeakerProbe speakers("speakers");
    EXPECT_TRUE(speakers.BecomesSilent());
    mPipeWire.SetDefaultSink("headset");
    EXPECT_TRUE(mWatch.Sees([](const ServerSnapshot& now) { return PlaysOn(now, "counter", "headset"); }));
}

}  // namespace desktop
