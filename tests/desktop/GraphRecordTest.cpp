// "corvane record" of applications and inputs together, on a private PipeWire.
#include "desktop/RecordFixture.h"
#include "support/SignalAnalysis.h"

#include <algorithm>
#include <cmath>

namespace desktop {
namespace {

using GraphRecordTest = RecordFixture;
using support::Clicks;

/// One recording of the two, and what the server did not deliver of it.
struct ClicksOfTwo {
    std::vector<double> mLags;  // frames
    uint64_t mMissed = ~uint64_t(0);
};

/// A server that is late plays or hears a click a cycle late, which is not what is judged here: where there was no
/// recording without that, of the best one the clicks of the middle half count.
std::vector<double> Judged(ClicksOfTwo best)
{
    if (best.mMissed == 0) return best.mLags;
    std::ranges::sort(best.mLags);
    const auto quarter = static_cast<std::ptrdiff_t>(best.mLags.size() / 4);
    return {best.mLags.begin() + quarter, best.mLags.end() - quarter};
}

// Both click with the host clock; the microphone's crystal is off.
TEST_F(GraphRecordTest, ClicksOfAnApplicationAndOfAMicrophoneLandTogetherAndStayThere)
{
    ClicksOfTwo best;
    for (int i = 0; i < kTries && best.mMissed > 0; ++i) {
        mPipeWire.SetQuantum(1024);
        auto game = mPipeWire.Play({"--name", "game", "--clicks", "--from-host-time"});
        auto microphone = mPipeWire.PlugMicrophone({"--name", "mic", "--ppm", "200", "--quantum", "1024"});
        const Recording recording = Record({"--source", "app:game", "--source", "input:mic", "-c", "0", "-d", "20"});
        ASSERT_EQ(recording.mChannels, 3) << "the application's two and the microphone's one";
        const uint64_t missed = mMissed + MissedBy(game) + MissedBy(microphone);
        if (missed < best.mMissed)
            best = {support::Lags(Clicks(recording.Channel(0)), Clicks(recording.Channel(2))), missed};
    }
    ASSERT_GT(best.mLags.size(), 30u);
    const std::vector<double> lags = Judged(best);
    const auto [earliest, latest] = std::ranges::minmax(lags);
    std::printf("lags of %g to %g frames, %llu frames missed\n", earliest, latest,
                static_cast<unsigned long long>(best.mMissed));
    EXPECT_LT(std::max(std::fabs(earliest), std::fabs(latest)), 0.0015 * kRateHz);
    const auto [first, last] = std::ranges::minmax(std::span(lags).last(16));
    EXPECT_LE(last - first, 2) << "once the crystal is known";
}

TEST_F(GraphRecordTest, AMixHoldsEverySourceAndAnInputThatGoesSilentIsTold)
{
    auto tone = mPipeWire.Play({"--name", "tone", "--frequency", "997", "--amplitude", "0.25"});
    auto microphone = mPipeWire.PlugMicrophone({"--name", "mic"});
    CommandRun run({"record", "--json", "--force", "--source", "app:tone", "--source", "input:mic", "-d", "8", File()});
    support::WaitForSize(File(), 3 * kRateHz * kFrameBytes);
    kill(microphone.ID(), SIGSTOP);
    run.WaitForError("input:mic brings no sound");
    kill(microphone.ID(), SIGCONT);
    run.WaitForError("input:mic brings sound again");
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
    EXPECT_NE(wrong.Errors().find("There are: mic"), std::string::npos) << wrong.Errors();
    const Recording recording = Record({"--source", "input:default", "-c", "1", "-d", "3"});
    EXPECT_EQ(recording.mChannels, 1);
    EXPECT_GT(Clicks(recording.Channel(0)).size(), 3u);
}

}  // namespace
}  // namespace desktop
