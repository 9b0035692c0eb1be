#include "cli/LiveLine.h"

#include "cli/Terminal.h"

#include <gtest/gtest.h>

#include <tuple>

namespace cli {
namespace {

using record::RecordingState;

constexpr LiveLineSettings kSettings{.mRateHz = 48000, .mBytesPerFrame = 8};

RecordingState Stereo(uint64_t lost = 0)
{
    return {.mFrames = 48000 * 62 + 14400, .mFramesLost = lost, .mPeaks = {0.25f, 0}, .mTracks = {{"system", 0, 2}}};
}

RecordingState Tracks(size_t count, uint64_t lost = 0)
{
    const std::string names[] = {"mic", "app:Firefox ESR", "app:日本語の名前", "app:e\u0301e\u0301e\u0301 Player"};
    RecordingState state{.mFrames = 48000 * 62 + 14400, .mFramesLost = lost};
    for (unsigned i = 0; i < count; ++i) {
        state.mTracks.push_back({names[i % 4], i, 1});
        state.mPeaks.push_back(i % 2 ? 1.0f : 0.1f);
    }
    return state;
}

TEST(LiveLine, EachWidthShowsWhatMattersMost)
{
    const std::tuple<RecordingState, size_t, const char*> cases[] = {
        {Stereo(), 80, "0:01:02.3  L ###############.... -12.0  R ...................  -inf dB  23.9 MB"},
        {Stereo(), 60, "0:01:02.3  L #######.. -12.0  R .........  -inf dB  23.9 MB"},
        {Stereo(), 40, "0:01:02.3  L ####. -12.0  R .....  -inf"},
        {Stereo(), 20, "0:01:02  ###. -12.0"},
        {Stereo(24000), 20, "0:01:02 lost 0.50 s"},
        {Stereo(48000 * 12), 40, "0:01:02.3  L -12.0  R   -inf  lost 12 s"},
        {Tracks(2), 80, "0:01:02.3  mic ###########...... -20.0  Firefox ESR #########   0.0 dB  23.9 MB"},
        {Tracks(2), 40, "0:01:02.3  mic ##. -20.0  Firefo…   0.0"},
        {Tracks(24), 40, "0:01:02.3  mic  -20.0  Fire…   0.0  +22"},
        {{.mPeaks = {0.5f}}, 40, "0:00:00.0  ##########.  -6.0 dB  0.0 kB"},
    };
    for (const auto& [state, columns, line] : cases)
        EXPECT_EQ(FormatLiveLine(state, kSettings, columns), line) << columns;
}

TEST(LiveLine, NoWidthMakesItWrap)
{
    RecordingState deafening = Stereo(1);
    deafening.mPeaks = {1e30f, 1e-30f};
    const RecordingState states[] = {Stereo(),  Stereo(1'000'000'000), deafening, Tracks(2, 1),
                                     Tracks(4), Tracks(64, 4800),      {},        {.mTracks = {{"gone", 5, 9}, {}}}};
    for (const RecordingState& state : states)
        for (size_t columns = 0; columns < 400; ++columns) {
            const std::string line = FormatLiveLine(state, kSettings, columns);
            ASSERT_LT(DisplayColumns(line), std::max<size_t>(columns, 1)) << line;
            ASSERT_GE(DisplayColumns(line) + 1, columns > 60 ? columns : 0) << "room is left: " << line;
        }
}

TEST(Terminal, TextIsCutByTheColumnsThatItTakes)
{
    const std::tuple<const char*, size_t, const char*> cases[] = {{"Firefox", 7, "Firefox"},
                                                                  {"Firefox", 6, "Firef…"},
                                                                  {"日本語", 5, "日本…"},
                                                                  {"e\u0301e\u0301e\u0301", 3, "e\u0301e\u0301e\u0301"},
                                                                  {"e\u0301e\u0301e\u0301", 2, "e\u0301…"},
                                                                  {"\xFF\xFE", 1, "…"}};
    for (const auto& [text, columns, cut] : cases) EXPECT_EQ(CutToColumns(text, columns), cut) << columns;
}

}  // namespace
}  // namespace cli
