#include "platform/vector/FrameQueue.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <thread>

#include <gtest/gtest.h>

namespace platform::vector {
namespace {

TEST(FrameQueue, TakesAllOrNothingAndKeepsTheOrderAcrossTheWrap)
{
    FrameQueue queue(2, 100);
    ASSERT_EQ(queue.Capacity(), 128u);
    std::vector<float> in(2 * 128), out(2 * 128, -1);
    std::iota(in.begin(), in.end(), 1.0f);

    EXPECT_TRUE(queue.Write(in.data(), 90));
    EXPECT_FALSE(queue.Write(in.data(), 39));
    EXPECT_EQ(queue.Available(), 90u);
    EXPECT_EQ(queue.Skip(70), 70u);
    EXPECT_TRUE(queue.Write(in.data(), 60));
    EXPECT_TRUE(queue.Write(nullptr, 48));
    EXPECT_FALSE(queue.Write(nullptr, 1));

    EXPECT_EQ(queue.Read(out.data(), 20), 20u);
    EXPECT_TRUE(std::equal(out.begin(), out.begin() + 40, in.begin() + 140));
    EXPECT_EQ(queue.Read(out.data(), 1000), 108u);
    EXPECT_TRUE(std::equal(out.begin(), out.begin() + 120, in.begin()));
    EXPECT_TRUE(std::all_of(out.begin() + 120, out.begin() + 216, [](float sample) { return sample == 0; }));
    EXPECT_EQ(queue.Read(out.data(), 1) + queue.Skip(1) + queue.Available(), 0u);
}

TEST(FrameQueue, TwoThreadsLoseDoubleAndTearNothing)
{
    constexpr unsigned kFrames = 1 << 20;
    FrameQueue queue(3, 500);
    std::thread writer([&queue] {
        std::mt19937 random(1);
        std::vector<float> block(3 * 200);
        for (unsigned frame = 0; frame < kFrames;) {
            const unsigned count = std::min<unsigned>(random() % 200, kFrames - frame);
            for (unsigned i = 0; i < count * 3; ++i) block[i] = static_cast<float>(frame + i / 3);
            if (queue.Write(block.data(), count))
                frame += count;
            else
                std::this_thread::yield();
        }
    });
    std::mt19937 random(2);
    std::vector<float> block(3 * 300);
    unsigned wrong = 0;
    for (unsigned frame = 0; frame < kFrames;) {
        const size_t ready = queue.Available();
        const size_t asked = random() % 300;
        const size_t count = queue.Read(block.data(), asked);
        wrong += count < std::min(ready, asked);  // what was ready stays so
        for (size_t i = 0; i < count * 3; ++i) wrong += block[i] != static_cast<float>(frame + i / 3);
        frame += static_cast<unsigned>(count);
        if (count == 0)
            std::this_thread::yield();
        else if (random() % 8 == 0)
            frame += static_cast<unsigned>(queue.Skip(random() % 50));
    }
    writer.join();
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(queue.Available(), 0u);
}

}  // namespace
}  // namespace platform::vector
