#include "capture/buffers/CAAudioBufferList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

namespace {

using testing::Each;
using testing::ElementsAre;

struct Release {
    void operator()(AudioBufferList* list) const { CAAudioBufferList::Deallocate(list); }
};
using List = std::unique_ptr<AudioBufferList, Release>;

AudioBuffer& At(const List& list, uint32_t index)
{
    AudioBuffer* const all = list->mBuffers;
    return all[index];
}

float* Samples(const List& list, uint32_t index)
{
    return static_cast<float*>(At(list, index).mData);
}

std::vector<float> Contents(const List& list, uint32_t index)
{
    const float* const samples = Samples(list, index);
    return {samples, samples + At(list, index).mDataByteSize / 4};
}

// One buffer for each count of channels; sample k of channel c, counted through the list, is 1000 * (c + 1) + k.
List Make(const std::vector<uint32_t>& channels, uint32_t frames)
{
    List list(CAAudioBufferList::Create(uint32_t(channels.size()), 0));
    uint32_t before = 0;
    for (uint32_t index = 0; index < channels.size(); ++index) {
        List memory(CAAudioBufferList::Create(1, frames * channels[index] * 4));
        std::swap(At(list, index), At(memory, 0));
        At(list, index).mNumberChannels = channels[index];
        for (uint32_t at = 0; at < frames * channels[index]; ++at)
            Samples(list, index)[at] = float(1000 * (before + at % channels[index] + 1) + at / channels[index]);
        before += channels[index];
    }
    return list;
}

TEST(CAAudioBufferList, ListsAreMadeAsTheFormatWantsThem)
{
    AudioStreamBasicDescription format{
        48000, kAudioFormatLinearPCM, 9 | kAudioFormatFlagIsNonInterleaved, 4, 1, 4, 2, 32, 0};
    const List split(CAAudioBufferList::Create(&format, 100));
    ASSERT_EQ(split->mNumberBuffers, 2u);
    for (uint32_t index = 0; index < 2; ++index) {
        EXPECT_EQ(At(split, index).mNumberChannels, 1u);
        EXPECT_EQ(At(split, index).mDataByteSize, 400u);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(At(split, index).mData) % 4096, 0u);
        EXPECT_THAT(Contents(split, index), Each(0.0f));
    }
    format.mFormatFlags = 9;
    const List woven(CAAudioBufferList::Create(&format, 0));
    ASSERT_EQ(woven->mNumberBuffers, 1u);
    EXPECT_EQ(At(woven, 0).mNumberChannels, 2u);
    EXPECT_EQ(At(woven, 0).mDataByteSize, 0u);
    EXPECT_EQ(At(woven, 0).mData, nullptr);
    EXPECT_EQ(CAAudioBufferList::CalculateByteSize(3), 56u);
}

TEST(CAAudioBufferList, HasDataLooksAtBitsUpToTheLastWord)
{
    const List list(CAAudioBufferList::Create(3, 64));
    EXPECT_FALSE(CAAudioBufferList::HasData(*list));
    Samples(list, 2)[15] = -0.0f;
    EXPECT_TRUE(CAAudioBufferList::HasData(*list));
    CAAudioBufferList::Clear(*list);
    EXPECT_FALSE(CAAudioBufferList::HasData(*list));
    const List bare(CAAudioBufferList::Create(2));
    At(bare, 0).mDataByteSize = 64;
    CAAudioBufferList::Clear(*bare);
    EXPECT_FALSE(CAAudioBufferList::HasData(*bare));
}

TEST(CAAudioBufferList, AChannelIsFoundThroughTheWholeList)
{
    const List list = Make({2, 1, 3}, 1);
    EXPECT_EQ(CAAudioBufferList::GetTotalNumberChannels(*list), 6u);
    const uint32_t expected[][2] = {{0, 0}, {0, 1}, {1, 0}, {2, 0}, {2, 1}, {2, 2}};
    uint32_t buffer = 0, channel = 0;
    for (uint32_t wanted = 0; wanted < 6; ++wanted) {
        ASSERT_TRUE(CAAudioBufferList::GetBufferForChannel(*list, wanted, buffer, channel));
        EXPECT_EQ(std::pair(buffer, channel), std::pair(expected[wanted][0], expected[wanted][1]));
    }
    EXPECT_FALSE(CAAudioBufferList::GetBufferForChannel(*list, 6, buffer, channel));
}

TEST(CAAudioBufferList, ClipLimitsAsManySamplesAsTheDestinationHas)
{
    const List from = Make({1}, 40), to = Make({1}, 40);
    for (int at = 0; at < 40; ++at) Samples(from, 0)[at] = 0.25f * float(at) - 5;
    Samples(from, 0)[3] = std::numeric_limits<float>::quiet_NaN();
    At(to, 0).mDataByteSize = 37 * 4;
    EXPECT_EQ(CAAudioBufferList::Clip(-1, 1, *from, *to), 15u + 12) << "at full scale nothing is cut";
    for (int at = 0; at < 37; ++at)
        if (at != 3) {
            EXPECT_EQ(Samples(to, 0)[at], std::clamp(0.25f * float(at) - 5, -1.0f, 1.0f)) << at;
        }
    EXPECT_TRUE(std::isnan(Samples(to, 0)[3]));
    EXPECT_EQ(Samples(to, 0)[37], 1037.0f);
}

TEST(CAAudioBufferList, SumsAreOfEachSampleOrOfEachChannel)
{
    const List a = Make({1, 1}, 13), b = Make({1, 1}, 13), out = Make({1, 1}, 13);
    CAAudioBufferList::Sum(*a, *b, *out);
    for (int at = 0; at < 13; ++at) EXPECT_EQ(Samples(out, 1)[at], float(4000 + 2 * at));
    CAAudioBufferList::MultipliedSum(0.5f, *a, *b, *out);
    for (int at = 0; at < 13; ++at) EXPECT_EQ(Samples(out, 0)[at], 1.5f * float(1000 + at));
    const List woven = Make({2}, 13);
    CAAudioBufferList::Sum(*a, *woven);
    for (int at = 0; at < 26; ++at) EXPECT_EQ(Samples(woven, 0)[at], float(2 * (1000 * (at % 2 + 1) + at / 2)));
}

TEST(CAAudioBufferList, WeavingAndItsReverseKeepEverySampleForAnyCountOfChannelsAndFrames)
{
    for (uint32_t channels = 1; channels <= 21; ++channels) {
        for (const uint32_t frames : {1u, 3u, 4u, 7u, 64u, 127u}) {
            const List mono = Make(std::vector<uint32_t>(channels, 1), frames);
            const List expected = Make({channels}, frames);
            const List woven(CAAudioBufferList::Create(1, frames * channels * 4));
            CAAudioBufferList::Interleave(mono.get(), woven.get());
            ASSERT_EQ(Contents(woven, 0), Contents(expected, 0)) << channels << " x " << frames;
            const List back = Make(std::vector<uint32_t>(channels, 1), frames);
            CAAudioBufferList::Clear(*back);
            CAAudioBufferList::Deinterleave(woven.get(), back.get());
            for (uint32_t channel = 0; channel < channels; ++channel)
                ASSERT_EQ(Contents(back, channel), Contents(mono, channel)) << channels << " x " << frames;
        }
    }
}

TEST(CAAudioBufferList, CopyMovesAsManyFramesAsFitWhateverTheLayouts)
{
    const List from = Make({2}, 6);
    const List split = Make({1, 1}, 8), same = Make({2}, 6);  // with room beyond their frames
    At(split, 0).mDataByteSize = At(split, 1).mDataByteSize = 4 * 4;
    At(same, 0).mDataByteSize = 3 * 8;
    CAAudioBufferList::Copy(*from, 1, *split, 2);
    EXPECT_THAT(Contents(split, 0), ElementsAre(1000, 1001, 1001, 1002));
    EXPECT_THAT(Contents(split, 1), ElementsAre(2000, 2001, 2001, 2002));
    EXPECT_EQ(Samples(split, 1)[4], 2004);
    CAAudioBufferList::Copy(*from, 4, *same, 0);
    EXPECT_THAT(Contents(same, 0), ElementsAre(1004, 2004, 1005, 2005, 1002, 2002));
    CAAudioBufferList::Copy(*from, 6, *same, 0);
    CAAudioBufferList::Copy(*from, 0, *same, 3);
    EXPECT_THAT(Contents(same, 0), ElementsAre(1004, 2004, 1005, 2005, 1002, 2002));
    CAAudioBufferList::Copy(*from, 0, *same, 1);
    EXPECT_THAT(Contents(same, 0), ElementsAre(1004, 2004, 1000, 2000, 1001, 2001));
    EXPECT_EQ(Samples(same, 0)[6], 1003);
}

}  // namespace
