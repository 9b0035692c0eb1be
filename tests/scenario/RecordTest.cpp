// Recordings on a simulated machine: each source hears a count of the host clock, so that a sample tells its moment.
#include "cli/ExitCodes.h"
#include "cli/Following.h"
#include "platform/kernel/HostTime.h"
#include "platform/kernel/IOKit.h"
#include "platform/machine/simulated/Scenario.h"
#include "support/FolderTree.h"
#include "support/Forked.h"
#include "support/SignalAnalysis.h"
#include "tap/Service.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <numeric>

namespace {

using namespace std::chrono_literals;
using namespace platform::machine::simulated;
using record::SilenceCause;
using std::chrono::duration;
using std::chrono::seconds;

constexpr unsigned kRateHz = 48'000;
constexpr unsigned kChannels = 5;
constexpr double kModulus = 1 << 22;  // frames until the count begins again, and a float holds quarters of them

Signal HostCount()
{
    return [](const Stretch& stretch, unsigned, std::span<float> samples) {
        for (size_t i = 0; i < samples.size(); ++i)
            samples[i] = float((1 + (stretch.mSeconds + double(i) * stretch.mFrameSeconds) * kRateHz) / kModulus);
    };
}

/// A machine with an application on the first of two outputs, and a microphone.
struct Stage {
    Scenario mScenario;
    Output& mSpeakers = mScenario.output("speakers");
    Output& mHeadset = mScenario.output("headset");
    Input& mMic = mScenario.input("mic").channels(1).crystal(-150).plays(HostCount());
    Application& mGame = mScenario.application("game", 200);
    Stream& mSong = mGame.plays(HostCount());
    Stream& mSequel = mScenario.application("game", 201).plays(HostCount()).stopped();
};

/// A recording of the application, twice, and of the microphone, each source in its own track.
class Take {
public:
    explicit Take(Stage& stage) : mScenario(stage.mScenario), mPath(mFolder.Root() + "/a.raw")
    {
        platform::kernel::PublishService(std::make_shared<tap::Service>());
    }
    ~Take() { platform::kernel::WithdrawServices(); }

    void Record(nanoseconds length)
    {
        const uint64_t zeroNanos = mach_absolute_time() - uint64_t(mScenario.now().count());
        cli::RecordWish wish;
        ASSERT_EQ(cli::ReadWords({.mSources = {"app:game", "app:game", "input:mic"},
                                  .mChannels = "0",
                                  .mRate = std::to_string(kRateHz),
                                  .mTime = std::to_string(duration<double>(length).count()),
                                  .mFile = mPath},
                                 wish),
                  "");
        cli::RecordingPlan plan;
        ASSERT_EQ(cli::MakePlan(wish, {}, plan), cli::kExitDone);
        record::Recorder recorder(plan.mSettings);
        ASSERT_EQ(recorder.Start(), 0);
        ASSERT_EQ(recorder.OpenFile(), 0);
        {
            cli::Following following(recorder, plan);
            while (!recorder.WaitFor(200'000'000)) following.Update();
        }
        EXPECT_EQ(recorder.Finish(), 0);
        mResult = recorder.Result();
        const uint64_t startNanos = recorder.StartNanos() + recorder.HeadNanos().value_or(0);
        mFirstSeconds = double(startNanos - zeroNanos) * 1e-9;
        Read();
    }

    /// Every sample of a channel is the count of its moment, or is zero and listed for the source.
    ///
    /// @param mostOff  frames that a count may be off
    /// @param edge     frames of sound and of silence beside each other that a filter blurs
    void ExpectRightOrListed(unsigned channel, size_t source, double mostOff, size_t edge) const
    {
        support::Timeline timeline{{}, 1 + mFirstSeconds * kRateHz, kModulus, mostOff, edge};
        for (const record::Silence& silence : mResult.mSilences)
            if (silence.mSource == source) timeline.mSilences.push_back({silence.mStart, silence.mFrames});
        for (const auto& wrong : FindWrongPieces(support::Channel(mSamples, kChannels, channel), timeline))
            ADD_FAILURE() << "channel " << channel << ": " << wrong.mFrames << " frames from " << wrong.mStart;
    }

    double SilentSeconds(size_t source) const
    {
        const auto& silent = mResult.mState.mSources[source].mSilentFrames;
        return double(std::reduce(silent.begin(), silent.end())) / kRateHz;
    }
    double SilentSeconds(size_t source, SilenceCause cause) const
    {
        return double(mResult.mState.mSources[source].mSilentFrames[size_t(cause)]) / kRateHz;
    }

    void ExpectTapsAlike() const
    {
        for (size_t n = 0; n < mSamples.size() / kChannels; ++n)
            ASSERT_TRUE(mSamples[kChannels * n] == mSamples[kChannels * n + 2] &&
                        mSamples[kChannels * n + 1] == mSamples[kChannels * n + 3])
                << n;
    }

    record::RecordingResult mResult;

private:
    void Read()
    {
        std::ifstream file(mPath, std::ios::binary);
        mSamples.resize(std::filesystem::file_size(mPath) / sizeof(float));
        file.read(reinterpret_cast<char*>(mSamples.data()), std::streamsize(mSamples.size() * sizeof(float)));
    }

    Scenario& mScenario;
    const support::FolderTree mFolder;
    const std::string mPath;
    std::vector<float> mSamples;
    double mFirstSeconds = 0;  // moment of the recording's first frame, since the scenario's start
};

struct Course {
    const char* mName;
    std::function<void(Stage&)> mScript;
    double mSeconds = 0;                          // of the application's silence, within a tenth of a second
    SilenceCause mCause = SilenceCause::Stopped;  // of it
    double mMicSeconds = 0;                       // of the microphone's: an input begins anew within half a second
    seconds mLength = 12s;
};

void Stall(Stage& stage, nanoseconds length)
{
    for (const char* thread : {"tap pacer", "tap consumer", "tap control", "input pull", "recording"})
        stage.mScenario.at(5s).stall(thread, length);
}

const Course kCourses[] = {
    {"nothing happens", [](Stage&) {}},
    {"the default output changes twice",
     [](Stage& stage) {
         stage.mScenario.at(5010ms).makeDefault(stage.mHeadset);
         stage.mScenario.at(8010ms).makeDefault(stage.mSpeakers);
     }},
    {"the application ends and is started again",
     [](Stage& stage) {
         stage.mScenario.at(5s).end(stage.mGame);
         stage.mScenario.at(8s).start(stage.mSequel);
     },
     3, SilenceCause::NotPlaying},
    {"the server is restarted",
     [](Stage& stage) {
         stage.mScenario.at(5s).serverDown();
         stage.mScenario.at(7s).serverUp();
     },
     2, SilenceCause::ServerAway, 2},
    {"the input stops",
     [](Stage& stage) {
         stage.mScenario.at(5s).stop(stage.mMic);
         stage.mScenario.at(8s).start(stage.mMic);
     },
     0, SilenceCause::Stopped, 3},
    {"stalled for 0.3 s", [](Stage& stage) { Stall(stage, 300ms); }},
    {"stalled for 0.9 s", [](Stage& stage) { Stall(stage, 900ms); }},
    {"stalled for 2 s", [](Stage& stage) { Stall(stage, 2s); }},
    {"stalled for 20 s", [](Stage& stage) { Stall(stage, 20s); }, 20, SilenceCause::Stopped, 20, 40s},
};

}  // namespace

TEST(RecordScenario, EverySampleIsRightForItsTimeOrIsListed)
{
    for (const Course& course : kCourses) {
        SCOPED_TRACE(course.mName);
        support::ExpectForked([&] {
            Stage stage;
            course.mScript(stage);
            stage.mScenario.runUntil(2s);
            Take take(stage);
            take.Record(course.mLength);
            EXPECT_EQ(take.mResult.mState.mFrames, uint64_t(course.mLength.count()) * kRateHz);
            for (const unsigned channel : {0u, 1u}) take.ExpectRightOrListed(channel, 0, 1, 1);
            take.ExpectRightOrListed(4, 2, 0.0015 * kRateHz, 64);
            take.ExpectTapsAlike();
            EXPECT_NEAR(take.SilentSeconds(0, course.mCause), course.mSeconds, 0.1);
            EXPECT_NEAR(take.SilentSeconds(0), course.mSeconds, 0.1) << "of any cause";
            EXPECT_NEAR(take.SilentSeconds(2), course.mMicSeconds, 0.5);
        });
    }
}
