#include "record/Strand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <thread>

namespace record {
namespace {

using testing::ElementsAre;

/// Two channels whose samples tell their place on the grid.
std::vector<float> Frames(uint64_t first, size_t frames)
{
    std::vector<float> samples;
    for (uint64_t n = first; n < first + frames; ++n) samples.insert(samples.end(), {float(n), -float(n)});
    return samples;
}

class StrandTest : public testing::Test {
protected:
    void Put(uint64_t frame, uint32_t frames) { mStrand.Put(frame, Frames(frame, frames).data(), frames); }
    /// Takes the next frames, each of which is right for its place or is zero and listed. @return what is listed
    std::vector<FrameSpan> Take(uint64_t frames)
    {
        std::vector<FrameSpan> missing;
        std::vector<float> samples(2 * frames, 99);
        mStrand.Take({mAt, frames}, samples.data(), missing);
        auto expected = Frames(mAt, frames);
        for (const FrameSpan& span : missing)
            std::fill_n(expected.begin() + ptrdiff_t(2 * (span.mStart - mAt)), 2 * span.mFrames, 0.0F);
        EXPECT_EQ(samples, expected);
        mAt += frames;
        return missing;
    }

    Strand mStrand{2, 1000};
    uint64_t mAt = 100;
};

TEST_F(StrandTest, FramesKeepTheirPlaceAndWhatNeverCameIsListed)
{
    Put(90, 30);
    Put(120, 10);
    Put(150, 20);
    Put(140, 15);  // late in whole
    Put(165, 15);  // late in part
    EXPECT_EQ(mStrand.End(), 180u);
    EXPECT_THAT(Take(25), ElementsAre());
    EXPECT_THAT(Take(20), ElementsAre(FrameSpan{130, 15}));
    EXPECT_THAT(Take(15), ElementsAre(FrameSpan{145, 5}));
    EXPECT_THAT(Take(40), ElementsAre(FrameSpan{180, 20}));
    Put(190, 20);  // the first half comes after it was taken as missing
    EXPECT_THAT(Take(20), ElementsAre(FrameSpan{210, 10}));
    EXPECT_EQ(mStrand.RefusedEnd(), 0u);
}

TEST_F(StrandTest, WhatFindsNoRoomIsMissingInItsOwnPlaceOnly)
{
    for (int round = 0; round < 3; ++round) {  // across the end of the ring
        const uint64_t at = mAt;
        Put(at, 1000);
        Put(at + 1000, 100);
        EXPECT_EQ(mStrand.End(), at + 1100);
        EXPECT_EQ(mStrand.RefusedEnd(), at + 1100);
        EXPECT_THAT(Take(300), ElementsAre());
        Put(at + 1100, 200);
        EXPECT_THAT(Take(1000), ElementsAre(FrameSpan{at + 1000, 100}));
    }
    for (uint64_t n = 0; n < 10'000; ++n) Put(mAt + n, 0);
    Put(mAt, 10);
    EXPECT_THAT(Take(10), ElementsAre()) << "pieces of no frames take no room";
}

TEST(Strand, MorePiecesThanItHoldsAreRefusedAndListed)
{
    Strand strand(1, 100'000);
    constexpr uint64_t kPieces = 10'000;
    for (uint64_t n = 0; n < kPieces; ++n) {
        const float sample = float(2 * n + 1);
        strand.Put(2 * n + 1, &sample, 1);
    }
    std::vector<float> samples(2 * kPieces);
    std::vector<FrameSpan> missing;
    strand.Take({0, 2 * kPieces}, samples.data(), missing);
    size_t listed = 0, kept = 0;
    for (const FrameSpan& span : missing) listed += span.mFrames;
    for (size_t n = 0; n < samples.size(); ++n) kept += samples[n] == float(n) && n > 0;
    EXPECT_EQ(kept + listed, samples.size());
    EXPECT_EQ(strand.RefusedEnd(), 2 * kPieces);
}

TEST(Strand, TwoThreadsMoveAndTearNoFrame)
{
    constexpr uint64_t kFrames = 1 << 20;
    Strand strand(2, 4000);
    std::thread putter([&strand] {
        std::minstd_rand random(1);
        for (uint64_t frame = 1; frame < kFrames;) {
            frame += random() % 8 == 0 ? random() % 50 : 0;
            const auto frames = uint32_t(random() % 300);
            strand.Put(frame, Frames(frame, frames).data(), frames);
            frame += frames;
        }
    });
    std::minstd_rand random(2);
    std::vector<float> samples(2 * 500);
    std::vector<FrameSpan> missing;
    uint64_t wrong = 0, listed = 0, zeros = 0;
    for (FrameSpan span{1, 0}; span.mStart < kFrames; span.mStart += span.mFrames) {
        while (strand.End() <= span.mStart && strand.End() < kFrames) std::this_thread::yield();
        span.mFrames = 1 + random() % 499;
        missing.clear();
        strand.Take(span, samples.data(), missing);
        for (const FrameSpan& gap : missing) listed += gap.mFrames;
        for (uint64_t n = 0; n < span.mFrames; ++n) {
            const float left = samples[2 * n], right = samples[2 * n + 1];
            zeros += left == 0 && right == 0;
            wrong += !(left == 0 && right == 0) && (left != float(span.mStart + n) || right != -left);
        }
    }
    putter.join();
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(listed, zeros);
}

}  // namespace
}  // namespace record
