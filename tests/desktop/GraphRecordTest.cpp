// "corvane record" of applications and inputs together, on a private PipeWire.
#include "desktop/RecordFixture.h"
#include "support/SignalAnalysis.h"

#include <algorithm>
#include <cmath>

namespace desktop {
namespace {

using GraphRecordTest = RecordFixture;
using support::Clicks;

// Both click with the host clock; the microphone's crystal is off.
TEST_F(GraphRecordTest, ClicksOfAnApplicationAndOfAMicrophoneLandTogetherAndStayThere)
{
    mPipeWire.SetQuantum(512);
    auto game = mPipeWire.Play({"--name", "game", "--clicks", "--from-host-time"});
    auto microphone = mPipeWire.PlugMicrophone({"--name", "mic", "--ppm", "200"});
    const Recording recording = Record({"--source", "app:game", "--source", "input:mic", "-c", "0", "-d", "20"});
    ASSERT_EQ(recording.mChannels, 3) << "the application's two and the microphone's one";
    const std::vector<double> lags = support::Lags(Clicks(recording.Channel(0)), Clicks(recording.Channel(2)));
    ASSERT_GT(lags.size(), 30u);
    for (const double lag : lags) EXPECT_LT(std::fabs(lag), 0.0015 * kRateHz);
    const std::span<const double> late = std::span(lags).last(16);
    EXPECT_LE(std::ranges::max(late) - std::ranges::min(late), 2) << "once the crystal is known";
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
    EXPECT_NEAR(support::LevelDB(mixed, 997, kRateHz), 20 * std::log10(0.25), 1);
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
