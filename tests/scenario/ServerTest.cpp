#include "platform/machine/simulated/Scenario.h"
#include "support/Forked.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <cmath>
#include <mutex>
#include <tuple>
#include <utility>

namespace platform::machine::simulated {

using namespace std::chrono_literals;
using support::ExpectForked;
using support::Forked;
using support::RunForked;
using testing::HasSubstr;

namespace {

/// Keeps what a capture is given. The lock is never waited for, since threads take turns; it gives the order
/// that a render itself does not give.
class Recorder final : public CaptureClient {
public:
    void Render(const CaptureCycle& cycle) noexcept override
    {
        const std::lock_guard lock(mMutex);
        mCycles.push_back(cycle);
        mCycles.back().mChannels = {};
        mPositions.clear();
        for (const CaptureCycle::Channel& channel : cycle.mChannels) mPositions.push_back(channel.mPosition);
        if (cycle.mChannels.empty()) return;
        const float* left = cycle.mChannels.front().mSamples;
        mLeft.insert(mLeft.end(), left, left + cycle.mFrames);
    }

    std::vector<CaptureCycle> Cycles() const { return Copy(mCycles); }
    /// Of the last cycle.
    std::vector<ChannelPosition> Positions() const { return Copy(mPositions); }
    /// The samples of each cycle's first channel.
    std::vector<float> Samples() const { return Copy(mLeft); }

private:
    template <class T>
    std::vector<T> Copy(const std::vector<T>& from) const
    {
        const std::lock_guard lock(mMutex);
        return from;
    }

    mutable std::mutex mMutex;
    std::vector<CaptureCycle> mCycles;
    std::vector<ChannelPosition> mPositions;
    std::vector<float> mLeft;
};

/// How many samples are not the successor of the one before.
size_t Breaks(const std::vector<float>& samples)
{
    size_t breaks = 0;
    for (size_t i = 1; i < samples.size(); ++i) breaks += samples[i] != samples[i - 1] + 1;
    return breaks;
}

/// Takes a snapshot whenever it is told to, and notes it.
struct Watcher final : ServerListener {
    explicit Watcher(Scenario& scenario) : mScenario(scenario) { Server().AddListener(this); }
    ~Watcher() { Server().RemoveListener(this); }
    SimulatedServer& Server() { return mScenario.machine().GetAudioServer(); }

    void OnServerChanged() noexcept override
    {
        const ServerSnapshot now = Server().Snapshot();
        std::string line = now.mConnected ? "connected" : "away";
        for (const PlaybackStream& stream : now.mStreams) {
            line += ", " + stream.mApplicationName + (stream.mPlaying ? " plays on " : " stopped on ");
            for (const Device& output : now.mOutputs)
                if (stream.mOutputs == std::vector{output.mID}) line += output.mUID;
        }
        mScenario.trace().Add(line);
    }

    Scenario& mScenario;
};

struct Taken {
    Recorder mRecorder;
    std::unique_ptr<CaptureNode> mNode;
};

void Take(Scenario& s, const std::string& uid, const Stream& stream, Taken& taken)
{
    if (!taken.mNode) taken.mNode = s.machine().GetAudioServer().OpenCapture(uid, "recorder", taken.mRecorder);
    taken.mNode->SetStreams(std::vector{stream.Number()});
}

}  // namespace

TEST(Server, ACrystalThatIsOffShowsInTheStampsAndInNothingElse)
{
    ExpectForked([] {
        Scenario s;
        auto& speakers = s.output("speakers").rate(48000).quantum(1024).crystal(+300);
        Recorder recorder;
        auto& game = s.application("game", 200).plays(Counter());
        auto capture = s.machine().GetAudioServer().OpenCapture("speakers", "recorder", recorder);
        capture->SetStreams(std::vector{game.Number()});
        s.runUntil(5min);
        const std::vector<CaptureCycle> cycles = recorder.Cycles();
        for (const CaptureCycle& cycle : cycles) {
            const auto frames = static_cast<double>(cycle.mSampleTime - cycles.front().mSampleTime);
            const auto nanos = static_cast<double>(cycle.mHostNanos - kStartNanos);
            ASSERT_NEAR(nanos, frames / (48000 * 1.0003) * 1e9, 1);
            ASSERT_EQ(cycle.mRateScalar, 1);
            ASSERT_EQ(cycle.mRateHz, 48000u);
            ASSERT_EQ(cycle.mClockID, speakers.Number());
        }
        EXPECT_EQ(cycles.size(), static_cast<size_t>(std::ceil(300 * 48000 * 1.0003 / 1024)));
    });
}

TEST(Server, AStreamsFramesFollowOnEachOtherThroughEveryChangeOfItsClock)
{
    ExpectForked([] {
        Scenario s;
        auto& speakers = s.output("speakers").quantum(256).jitter(2ms);
        auto& headset = s.output("headset").quantum(1024).crystal(-300);
        auto& game = s.application("game", 200).plays(Counter(), speakers);
        auto& other = s.application("other", 201).plays(Counter(), speakers);
        Taken onSpeakers, onHeadset;
        Take(s, "speakers", game, onSpeakers);
        s.at(1s).quantum(speakers, 1024).crystal(speakers, 300);
        s.at(2s).rate(speakers, 44100);
        s.runUntil(3s);
        onSpeakers.mNode->SetSilenced(true);
        const uint64_t heard = game.HeardFrames();
        const uint32_t ownClock = onSpeakers.mRecorder.Cycles().back().mClockID;
        s.runUntil(4s);
        EXPECT_EQ(game.HeardFrames(), heard);
        EXPECT_EQ(other.HeardFrames(), other.PlayedFrames());
        EXPECT_NE(onSpeakers.mRecorder.Cycles().back().mClockID, ownClock);
        onSpeakers.mNode->SetSilenced(false);
        s.runUntil(5s);
        EXPECT_EQ(onSpeakers.mRecorder.Cycles().back().mClockID, ownClock);
        EXPECT_GT(game.HeardFrames(), heard + 40000);
        EXPECT_EQ(onSpeakers.mRecorder.Cycles().back().mRateHz, 44100u);
        EXPECT_EQ(Breaks(onSpeakers.mRecorder.Samples()), 0u);

        const size_t before = onSpeakers.mRecorder.Samples().size();
        s.at(5s).move(game, headset);
        s.runFor(1ns);
        Take(s, "headset", game, onHeadset);
        s.runUntil(6s);
        ASSERT_FALSE(onHeadset.mRecorder.Samples().empty());
        EXPECT_EQ(Breaks(onHeadset.mRecorder.Samples()), 0u);
        EXPECT_GE(onSpeakers.mRecorder.Samples().size(), before);
        EXPECT_EQ(onHeadset.mRecorder.Samples().back(), static_cast<float>(game.PlayedFrames() - 1));
    });
}

TEST(Server, ACaptureIsTheSumOfItsStreamsByPosition)
{
    ExpectForked([] {
        Scenario s;
        auto& speakers = s.output("speakers");
        auto& stereo = s.application("music", 200).plays(Counter(), speakers);
        auto& centre = s.application("film", 201).plays(Counter(), speakers);
        centre.channels({ChannelPosition::FrontLeft, ChannelPosition::FrontCenter});
        Recorder recorder;
        auto capture = s.machine().GetAudioServer().OpenCapture("speakers", "recorder", recorder);
        s.runUntil(100ms);
        EXPECT_TRUE(recorder.Positions().empty());
        const auto played = static_cast<float>(stereo.PlayedFrames());
        capture->SetStreams(std::vector{stereo.Number(), centre.Number(), 9999u});
        s.runUntil(200ms);
        EXPECT_EQ(recorder.Positions(),
                  (std::vector{ChannelPosition::FrontLeft, ChannelPosition::FrontRight, ChannelPosition::FrontCenter}));
        const std::vector<float> samples = recorder.Samples();
        ASSERT_GT(samples.size(), 1024u);
        for (size_t i = 0; i < samples.size(); ++i) ASSERT_EQ(samples[i], 2 * (played + static_cast<float>(i)));
        s.at(200ms).stop(stereo);
        s.runUntil(300ms);
        EXPECT_EQ(recorder.Positions(), (std::vector{ChannelPosition::FrontLeft, ChannelPosition::FrontCenter}));
        s.at(300ms).stop(centre);
        s.runUntil(330ms);
        const size_t cycles = recorder.Cycles().size();
        s.runUntil(400ms);
        EXPECT_EQ(recorder.Cycles().size(), cycles) << "the server lets a capture rest that nothing plays into";
    });
}

TEST(Server, DevicesStreamsAndTheServerComeAndGoAsScriptedOnEveryRunAlike)
{
    const auto tell = [] {
        Scenario s;
        auto& speakers = s.output("speakers");
        auto& headset = s.output("headset").absent();
        auto& game = s.application("game", 200);
        auto& music = game.plays(Counter(), speakers);
        auto& film = s.application("film", 201).plays(Tone(440));
        Watcher watcher(s);
        s.at(1s).plug(headset).makeDefault(headset);
        s.at(2s).unplug(speakers);
        s.at(3s).plug(speakers);
        s.at(4s).stop(film);
        s.at(5s).serverDown();
        s.at(6s).serverUp();
        s.at(7s).end(game);
        s.runUntil(4s);
        const uint32_t number = music.Number(), output = speakers.Number();
        const uint64_t played = music.PlayedFrames();
        s.runUntil(5500ms);
        EXPECT_FALSE(watcher.Server().WaitUntilReady(kStartNanos + 5'900'000'000));
        EXPECT_TRUE(watcher.Server().WaitUntilReady(kStartNanos + 9'000'000'000));
        EXPECT_EQ(s.now(), 6s);
        EXPECT_NE(music.Number(), number);
        EXPECT_NE(speakers.Number(), output);
        s.runUntil(6500ms);
        EXPECT_NEAR(static_cast<double>(music.PlayedFrames() - played), 1.5 * 48000, 2048);
        s.runUntil(8s);
        EXPECT_FALSE(s.machine().GetProcesses().Find(200));
        EXPECT_TRUE(s.machine().GetProcesses().Find(201));
        printf("%s", s.trace().Text().c_str());
    };
    const Forked first = RunForked(tell), second = RunForked(tell);
    EXPECT_TRUE(first.mPassed);
    EXPECT_EQ(first.mOutput, second.mOutput);
    EXPECT_EQ(first.mOutput,
              "0.000000000 control: connected, game plays on speakers, film plays on speakers\n"
              "1.000000000 data: headset plugged\n1.000000000 data: headset is the default\n"
              "1.000000000 control: connected, game plays on speakers, film plays on headset\n"
              "2.000000000 data: speakers unplugged\n"
              "2.000000000 control: connected, game plays on headset, film plays on headset\n"
              "3.000000000 data: speakers plugged\n"
              "3.000000000 control: connected, game plays on speakers, film plays on headset\n"
              "4.000000000 data: film stops\n"
              "4.000000000 control: connected, game plays on speakers, film stopped on headset\n"
              "5.000000000 data: server down\n5.000000000 control: away\n"
              "6.000000000 data: server up\n"
              "6.000000000 control: connected, game plays on speakers, film stopped on headset\n"
              "7.000000000 data: game ends\n7.000000000 control: connected, film stopped on headset\n");
}

TEST(Server, ACaptureOutlivesItsDeviceAndTheServer)
{
    ExpectForked([] {
        Scenario s;
        auto& speakers = s.output("speakers");
        auto& game = s.application("game", 200).plays(Counter());
        Taken taken;
        Take(s, "speakers", game, taken);
        taken.mNode->SetSilenced(true);
        s.at(1s).unplug(speakers);
        s.at(2s).plug(speakers);
        s.at(3s).serverDown();
        s.at(4s).serverUp();
        const auto cyclesBetween = [&](nanoseconds from, nanoseconds to) {
            s.runUntil(from);
            const size_t before = taken.mRecorder.Cycles().size();
            s.runUntil(to);
            return taken.mRecorder.Cycles().size() - before;
        };
        EXPECT_GT(cyclesBetween(500ms, 900ms), 10u);
        EXPECT_EQ(cyclesBetween(1001ms, 1999ms), 0u);
        EXPECT_GT(cyclesBetween(2s, 2900ms), 10u);
        EXPECT_EQ(cyclesBetween(3001ms, 3999ms), 0u);
        EXPECT_EQ(cyclesBetween(4001ms, 4500ms), 0u) << "the stream has another number now";
        Take(s, "speakers", game, taken);
        s.runUntil(5s);
        EXPECT_EQ(taken.mRecorder.Positions().size(), 2u);
        EXPECT_LT(game.HeardFrames(), game.PlayedFrames());
    });
}

TEST(Server, ACycleThatWouldBlockEndsTheProcessWithAReport)
{
    struct Blocker final : CaptureClient {
        explicit Blocker(SimulatedMachine& machine) : mMachine(machine) {}
        void Render(const CaptureCycle&) noexcept override { mMachine.GetThreads().Lock(&mMutex); }
        SimulatedMachine& mMachine;
        pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    };
    const Forked forked = RunForked([] {
        Scenario s;
        s.output("speakers");
        auto& game = s.application("game", 200).plays(Counter());
        Blocker blocker(s.machine());
        auto capture = s.machine().GetAudioServer().OpenCapture("speakers", "blocker", blocker);
        capture->SetStreams(std::vector{game.Number()});
        s.machine().GetThreads().Lock(&blocker.mMutex);
        s.runUntil(1s);
    });
    EXPECT_EQ(forked.mSignal, SIGABRT);
    EXPECT_THAT(forked.mOutput, HasSubstr("A cycle of the audio server would block"));
    EXPECT_THAT(forked.mOutput, HasSubstr("data: waits for mutex 1 held by main, since 0.000000000 s"));
}

TEST(Server, AfterTheMachineSleptDevicesGoOnWhereTheyStood)
{
    ExpectForked([] {
        Scenario s;
        s.output("speakers");
        auto& game = s.application("game", 200).plays(Counter());
        Recorder recorder;
        auto capture = s.machine().GetAudioServer().OpenCapture("speakers", "recorder", recorder);
        capture->SetStreams(std::vector{game.Number()});
        s.at(1s).stepClock(8h);
        s.runUntil(8h + 2s);
        const std::vector<CaptureCycle> cycles = recorder.Cycles();
        EXPECT_EQ(cycles.size(), 94u);  // two seconds' worth
        uint64_t longest = 0;
        for (size_t i = 1; i < cycles.size(); ++i) {
            ASSERT_EQ(cycles[i].mSampleTime, cycles[i - 1].mSampleTime + 1024);
            longest = std::max(longest, cycles[i].mHostNanos - cycles[i - 1].mHostNanos);
        }
        EXPECT_NEAR(static_cast<double>(longest), 8 * 3600e9 + 1024 / 48000.0 * 1e9, 1);
    });
}

TEST(Server, AnInputHearsWhatHappensAtTheMomentsOfItsFrames)
{
    ExpectForked([] {
        Scenario s;
        auto& mic = s.input("mic").rate(44100).quantum(512).crystal(+200).jitter(1ms).startsLate(137ms);
        mic.plays(HostTone(1000));
        s.input("line");
        Recorder recorder;
        auto input = s.machine().GetAudioServer().OpenInput("mic", "recorder", recorder);
        s.at(10s).makeDefault(*s.machine().GetWorld().Inputs().Find("line"));
        EXPECT_EQ(s.machine().GetAudioServer().Snapshot().mDefaultInput, mic.Number());
        s.runUntil(20s);
        EXPECT_NE(s.machine().GetAudioServer().Snapshot().mDefaultInput, mic.Number());
        const std::vector<CaptureCycle> cycles = recorder.Cycles();
        const std::vector<float> samples = recorder.Samples();
        ASSERT_EQ(samples.size(), cycles.size() * 512);
        const auto momentOf = [&](size_t frame) { return 0.137 + static_cast<double>(frame) / (44100 * 1.0002); };
        for (size_t i = 0; i < cycles.size(); ++i) {
            ASSERT_EQ(cycles[i].mSampleTime - cycles.front().mSampleTime, static_cast<int64_t>(512 * i));
            const double late = static_cast<double>(cycles[i].mHostNanos - kStartNanos) * 1e-9 - momentOf(512 * i);
            ASSERT_NEAR(late, 0.5e-3, 0.5e-3 + 1e-9);
        }
        for (size_t i = 0; i < samples.size(); ++i)
            ASSERT_NEAR(samples[i], 0.5 * std::cos(2 * M_PI * 1000 * momentOf(i)), 1e-6);
    });
}

TEST(Server, AnInputFailsAsScripted)
{
    ExpectForked([] {
        Scenario s;
        auto& mic = s.input("mic").quantum(480).plays(Counter());
        Recorder recorder;
        auto input = s.machine().GetAudioServer().OpenInput("mic", "recorder", recorder);
        // Cycles delivered in the second, how far they brought the count, and samples so far that did not follow on.
        auto meet = [&, cycles = size_t{1}](int second) mutable {
            s.runUntil(std::chrono::seconds(second) + 5ms);
            const std::vector<CaptureCycle> all = recorder.Cycles();
            const int64_t moved = all.back().mSampleTime - all[cycles - 1].mSampleTime;
            const size_t count = all.size() - std::exchange(cycles, all.size());
            return std::tuple(count, moved, Breaks(recorder.Samples()));
        };
        s.at(1500ms).stop(mic);
        s.at(1750ms).start(mic);
        s.at(2500ms).jump(mic, -1000);
        s.at(3500ms).repeatCycle(mic);
        s.at(4500ms).delayCycle(mic);
        s.at(5500ms).unstamp(mic);
        s.at(6500ms).stamp(mic).rate(mic, 96000).quantum(mic, 960);
        s.at(7505ms).unplug(mic);
        EXPECT_EQ(meet(1), std::tuple(size_t{100}, int64_t{48000}, size_t{0}));
        EXPECT_EQ(meet(2), std::tuple(75u, 48000, 1u));
        EXPECT_EQ(meet(3), std::tuple(100u, 47000, 1u)) << "a jump of the count loses no frame";
        EXPECT_EQ(meet(4), std::tuple(101u, 48000, 2u));
        EXPECT_EQ(meet(5), std::tuple(100u, 48000, 2u)) << "a late cycle is not lost";
        EXPECT_NE(recorder.Cycles().back().mHostNanos, 0u);
        EXPECT_EQ(meet(6), std::tuple(100u, 48000, 2u));
        EXPECT_EQ(recorder.Cycles().back().mHostNanos, 0u);
        EXPECT_EQ(meet(7), std::tuple(100u, 72000, 2u));
        EXPECT_EQ(recorder.Cycles().back().mRateHz, 96000u);
        EXPECT_EQ(std::get<0>(meet(8)), 50u);
        s.at(9s).plug(mic);
        EXPECT_EQ(std::get<0>(meet(9)), 1u);
    });
}

}  // namespace platform::machine::simulated
