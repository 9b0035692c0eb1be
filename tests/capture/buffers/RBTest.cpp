#include "capture/buffers/RB.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class RBTest : public testing::Test {
protected:
    RBTest() { EXPECT_EQ(RB_Create(&mRing, 8), 0); }
    ~RBTest() override { EXPECT_EQ(RB_Destroy(&mRing), 0); }

    int Write(const std::string& text) { return RB_Write(mRing, text.data(), int(text.size())); }
    std::string Read(uint32_t length)
    {
        std::string text(length, '?');
        EXPECT_EQ(RB_Read(mRing, text.data(), &length), 0);
        return text;
    }
    uint32_t Amount() { return Get(RB_GetAmount); }
    uint32_t Written() { return Get(RB_GetAmountWritten); }
    uint32_t BytesRead() { return Get(RB_GetAmountRead); }
    uint32_t Space() { return Get(RB_GetSpace); }

    RB_Record* mRing = nullptr;

private:
    uint32_t Get(int (*get)(const RB_Record*, uint32_t*))
    {
        uint32_t value = 999;
        EXPECT_EQ(get(mRing, &value), 0);
        return value;
    }
};

TEST_F(RBTest, AWriteOfTheSizeFitsAndOneByteMoreChangesNothing)
{
    EXPECT_EQ(Write("123456789"), 1);
    EXPECT_EQ(Amount(), 0u);
    EXPECT_EQ(Write("12345678"), 0);
    EXPECT_EQ(Space(), 0u);
    EXPECT_EQ(Read(8), "12345678");
}

TEST_F(RBTest, AWriteAroundTheEndReadsInOrderAndCountsOnlyItsLaterPart)
{
    Write("abcdef");
    EXPECT_EQ(Read(6), "abcdef");
    Write("ghijk");
    EXPECT_EQ(Written(), 6u + 3u);
    EXPECT_EQ(Amount(), 5u);
    EXPECT_EQ(Read(5), "ghijk");
    EXPECT_EQ(BytesRead(), 11u);
}

TEST_F(RBTest, AnOverrunShowsInTheClampedAmountAlone)
{
    Write("abcdef");
    Write("ghijk");
    EXPECT_EQ(Amount(), 8u);
    EXPECT_EQ(Read(8), "ijkdefgh");  // from where the read head stood
    EXPECT_EQ(Read(3), "ijk");       // beyond what is held: stale bytes
    EXPECT_EQ(Amount(), 0u);
}

TEST_F(RBTest, BurningTakesFromTheReadSideAndBurningTheTailFromTheWriteSide)
{
    Write("abcdef");
    RB_Burn(mRing, 2);
    RB_BurnTail(mRing, 1);
    EXPECT_EQ(Amount(), 3u);
    EXPECT_EQ(BytesRead(), 2u);
    EXPECT_EQ(Written(), 6u);
    RB_Burn(mRing, 99);
    EXPECT_EQ(Amount(), 0u);
    EXPECT_EQ(RB_Burn(nullptr, 1), 0);
    EXPECT_EQ(RB_BurnTail(nullptr, 1), 0);
}

TEST_F(RBTest, TakingTheTailBackToTheBaseLeavesTheHeadAtTheEnd)
{
    Write("abcd");
    RB_BurnTail(mRing, 4);
    EXPECT_EQ(mRing->mWriteHead, mRing->mEnd);
    Write("xy");
    EXPECT_EQ(Amount(), 2u);
    EXPECT_EQ(Read(2), "xy");
}

TEST_F(RBTest, ResetsClearNoMoreThanTheyPromise)
{
    const auto fill = [this] {
        RB_Reset(mRing);
        Write("abcdef");
        Read(2);
    };
    fill();
    RB_ResetReadHead(mRing);
    EXPECT_EQ(mRing->mWriteHead, mRing->mBase);
    EXPECT_EQ(std::tuple(Amount(), Written(), BytesRead()), std::tuple(4u, 6u, 2u));
    fill();
    RB_ResetNoClearAmounts(mRing, true, false);
    EXPECT_EQ(std::tuple(Amount(), Written(), BytesRead()), std::tuple(4u, 6u, 0u));
    fill();
    RB_ResetNoClear(mRing);
    EXPECT_EQ(std::tuple(Amount(), Written(), BytesRead()), std::tuple(4u, 0u, 0u));
    EXPECT_EQ(Read(6), "abcdef");
    fill();
    RB_Reset(mRing);
    EXPECT_EQ(std::tuple(Amount(), Written(), BytesRead()), std::tuple(0u, 0u, 0u));
    EXPECT_EQ(Read(6), std::string(6, '\0'));
}

TEST(RB, AnEmptyRingAndNoRingAreHarmless)
{
    RB_Record* ring = nullptr;
    ASSERT_EQ(RB_Create(&ring, 0), 0);
    uint32_t value = 3;
    char bytes[3];
    EXPECT_EQ(RB_Write(ring, bytes, 1), 1);
    EXPECT_EQ(RB_Read(ring, bytes, &value), 0);
    EXPECT_EQ(RB_Destroy(&ring), 0);
    EXPECT_EQ(ring, nullptr);
    EXPECT_EQ(RB_Destroy(&ring), 0);
    EXPECT_EQ(RB_Destroy(nullptr), 0);
    EXPECT_EQ(RB_GetAmount(nullptr, &value), -50);
    EXPECT_EQ(RB_GetSize(nullptr, &value), -50);
    EXPECT_EQ(RB_GetAmountWritten(nullptr, &value), 1);
    EXPECT_EQ(RB_GetAmountRead(nullptr, &value), 1);
}

}  // namespace
