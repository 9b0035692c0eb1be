// "corvane record" of applications and inputs together, on a private PipeWire.
#include "desktop/RecordFixture.h"
#include "support/SignalAnalysis.h"

#include <algorithm>
#include <cmath>

namespace desktop {
namespace {

using GraphRecordTest = RecordFixture;
using support::Clicks;
constexpr int kTries = 4;

// Both click with the host clock; the microphone's crystal is off. Again where the server was late: a click that is
// played or heard a cycle late is not what is judged here.
TEST_F(GraphRecordTest, ClicksOfAnApplicationAndOfAMicrophoneLandTogetherAndStayThere)
{
    for (int i = 0; i < kTries; ++i) {
        mPipeWire.SetQuantum(1024);
        auto game = mPipeWire.Play({"--name", "game", "--clicks", "--from-host-time"});
        auto microphone = mPipeWire.PlugMicrophone({"--name", "mic", "--ppm", "200", "--quantum", "1024"});
        const Recording recording = Record({"--source", "app:game", "--source", "input:mic", "-c", "0", "-d", "20"});
        const uint64_t ofGame = MissedBy(game), ofMicrophone = MissedBy(microphone);
        std::printf("frames missed: %llu by the recorder, %llu by the application, %llu by the microphone\n",
                    static_cast<unsigned long long>(mMissed), static_cast<unsigned long long>(ofGame),
                    static_cast<unsigned long long>(ofMicrophone));
        if (mMissed + ofGame + ofMicrophone > 0) continue;
        ASSERT_EQ(recording.mChannels, 3) << "the application's two and the microphone's one";
        const auto lags = support::Lags(Clicks(recording.Channel(0)), Clicks(recording.Channel(2)));
        ASSERT_GT(lags.size(), 30u);
        const auto [earliest, latest] = std::ranges::minmax(lags);
        std::printf("lags of %g to %g frames\n", earliest, latest);
        EXPECT_LT(std::max(std::fabs(earliest), std::fabs(latest)), 0.0015 * kRateHz);
        const auto [first, last] = std::ranges::minmax(std::span(lags).last(16));
        EXPECT_LE(last - first, 2) << "once the crystal is known";
        return;
    }
    FAIL() << "the server was late in every try";
}

TEST_F(GraphRecordTest, AMixHoldsEverySourceAndAnInputThatGoesSilentIsTold)
{
    auto tone = mPipeWire.Play({"--name", "tone", "--frequency", "997", "--amplitude", "0.25"});
    auto microphone = mPipeWire.PlugMicrophone({"--name", "mic"});
    CommandRun run({"record", "--json", "--force", "--source", "app:tone", "--source", "input:mic", "-d", "8", File()});
    support::WaitForSize(File(), 3 * kRateHz * kFrameBytes);
    kill(microphone.ID(), SIGSTOP);
    run.WaitForError("nothing comes from input:mic");
    kill(microphone.ID(), SIGCONT);
    run.WaitForError("input:mic is there");
    const Recording recording = Finished(run);
    const std::vector<float> left = recording.Channel(0);
    const auto mixed = std::span(left).subspan(kRateHz, kRateHz);
    EXPECT_NEAR(support::FitSine(mixed, 997, kRateHz).mAmplitude, 0.25, 0.03);
    EXPECT_GT(Clicks(left).size(), 2u) << "on top of the tone";
}

TEST_F(GraphRecordTest, InputsAreFoundByNameAndAWrongOneIsRefused)
{
    CommandRun none({"record", "--source", "input:default", File()});
    EXPECT_EQ(none.Wait(), 4) << none.Errors();
    auto microphone = mPipeWire.PlugMicrophone({"--name", "mic"});
    CommandRun wrong({"record", "--source", "input:mik", File()});
    EXPECT_EQ(wrong.Wait(), 4);
    EXPECT_NE(wrong.Errors().find("input:mic"), std::string::npos) << wrong.Errors();
    const Recording recording = Record({"--source", "input:default", "-c", "1", "-d", "3"});
    EXPECT_EQ(recording.mChannels, 1);
    EXPECT_GT(Clicks(recording.Channel(0)).size(), 3u);
}

}  // namespace
}  // namespace desktop
