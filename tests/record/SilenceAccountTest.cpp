#include "record/SilenceAccount.h"

#include <gtest/gtest.h>

#include <functional>

namespace record {
namespace {

using enum SilenceCause;

struct Case {
    const char* mName;
    std::function<void(SilenceAccount&)> mDo;
    uint64_t mEnd;
    std::vector<Silence> mList;
    uint64_t mLost;
};

// Two sources; times in frames of the grid.
const Case kCases[] = {
    {"overlaps count once, under the cause that came first",
     [](SilenceAccount& a) {
         a.Add(0, NotDelivered, {100, 50});
         a.Add(0, TooSlow, {200, 50});
         a.Add(0, TooSlow, {90, 130});
         a.Add(0, NotDelivered, {110, 20});
     },
     1000,
     {{0, TooSlow, 90, 10}, {0, NotDelivered, 100, 50}, {0, TooSlow, 150, 100}},
     160},
    {"neighbours of one cause become one, of two causes stay two",
     [](SilenceAccount& a) {
         a.Add(0, TooSlow, {110, 10});
         a.Add(0, TooSlow, {100, 10});
         a.Add(0, TooSlow, {120, 10});
         a.Add(0, NotDelivered, {130, 10});
     },
     1000,
     {{0, TooSlow, 100, 30}, {0, NotDelivered, 130, 10}},
     40},
    {"lost frames are those of any source, and not playing is no loss",
     [](SilenceAccount& a) {
         a.Add(0, TooSlow, {100, 50});
         a.Add(1, NotDelivered, {140, 50});
         a.Add(1, NotPlaying, {300, 50});
         a.Add(0, TooSlow, {120, 100});
     },
     1000,
     {{0, TooSlow, 100, 120}, {1, NotDelivered, 140, 50}, {1, NotPlaying, 300, 50}},
     120},
    {"the server's absence and a stall give their cause to what they cover, and to nothing else",
     [](SilenceAccount& a) {
         a.NoteServer(false, 200);
         a.NoteServer(false, 250);
         a.NoteServer(true, 300);
         a.AddStall({400, 100});
         a.Add(0, NotDelivered, {190, 105});
         a.Add(0, NotDelivered, {300, 100});
         a.Add(0, TooSlow, {410, 20});
         a.Add(1, NotDelivered, {500, 10});
     },
     1000,
     {{0, NotDelivered, 190, 10},
      {0, ServerAway, 200, 95},
      {0, NotDelivered, 300, 100},
      {0, Stopped, 410, 20},
      {1, NotDelivered, 500, 10}},
     235},
    {"a stall causes the silence that it is a good part of, and none that was there anyway",
     [](SilenceAccount& a) {
         a.AddStall({100, 50});
         a.Add(0, NotPlaying, {90, 500});
         a.Add(1, NotPlaying, {90, 100});
     },
     1000,
     {{0, NotPlaying, 90, 500}, {1, Stopped, 90, 100}},
     100},
    {"an application that does not run is missed by its own source only, and not while the server is away",
     [](SilenceAccount& a) {
         a.NotePresence(0, true, 50);
         a.NotePresence(0, false, 100);
         a.AddStall({100, 10});
         a.Add(0, NotDelivered, {100, 10});
         a.Add(1, NotDelivered, {100, 10});
         a.NoteServer(false, 200);
         a.Add(0, NotDelivered, {200, 10});
         a.NoteServer(true, 220);
         a.NotePresence(0, true, 300);
         a.Add(0, NotDelivered, {300, 10});
     },
     1000,
     {{0, NotPlaying, 100, 10}, {1, Stopped, 100, 10}, {0, ServerAway, 200, 10}, {0, NotDelivered, 300, 10}},
     30},
    {"what lies before the start is forgotten, before and after it is known",
     [](SilenceAccount& a) {
         a.Add(0, TooSlow, {10, 40});
         a.Add(0, TooSlow, {90, 20});
         a.SetStart(100);
         a.Add(1, TooSlow, {20, 90});
         a.Add(0, NotDelivered, {60, 30});
     },
     1000,
     {{0, TooSlow, 0, 10}, {1, TooSlow, 0, 10}},
     10},
    {"what lies past the end is cut off",
     [](SilenceAccount& a) {
         a.Add(0, TooSlow, {90, 100});
         a.Add(0, NotDelivered, {300, 10});
     },
     120,
     {{0, TooSlow, 90, 30}},
     30},
};

TEST(SilenceAccount, EachFrameOfASourceCountsOnceUnderOneCause)
{
    for (const Case& row : kCases) {
        SilenceAccount account(2);
        row.mDo(account);
        bool cut = true;
        EXPECT_EQ(account.List(row.mEnd, cut), row.mList) << row.mName;
        EXPECT_FALSE(cut);
        for (const size_t source : {0u, 1u})
            for (const SilenceCause cause : kSilenceCauses) {
                uint64_t frames = 0;
                for (const Silence& one : row.mList)
                    frames += one.mSource == source && one.mCause == cause ? one.mFrames : 0;
                EXPECT_EQ(account.FramesOf(source, cause, row.mEnd), frames) << row.mName;
            }
        EXPECT_EQ(account.LostFrames(row.mEnd), row.mLost) << row.mName;
    }
}

TEST(SilenceAccount, CountsFollowTheListAndALongListIsCutAndSaysSo)
{
    SilenceAccount account(2);
    account.Add(1, TooSlow, {50, 100});
    account.SetStart(100);
    for (uint64_t n = 0; n < kMostSilences; ++n) account.Add(0, NotDelivered, {200 + 10 * n, 3});
    EXPECT_EQ(account.FramesOf(0, NotDelivered, UINT64_MAX), 3 * kMostSilences);
    bool cut = false;
    const auto list = account.List(UINT64_MAX, cut);
    EXPECT_TRUE(cut);
    ASSERT_EQ(list.size(), kMostSilences);
    EXPECT_EQ(list.front(), (Silence{1, TooSlow, 0, 50}));
    EXPECT_EQ(account.LostFrames(UINT64_MAX), 50 + 3 * kMostSilences) << "what was cut counts";
}

}  // namespace
}  // namespace record
