#include "platform/kernel/Realtime.h"

#include "platform/kernel/Memory.h"
#include "platform/kernel/Threads.h"

#include <gtest/gtest.h>

#include <memory>

using namespace platform;

#ifdef CORVANE_TRAP_REALTIME

namespace {

std::unique_ptr<int> sPlanted;  // outlives the cycle, so that no compiler takes the allocation out

}  // namespace

TEST(RealtimeDeathTest, ACycleThatAllocatesOrFreesEndsTheProcessWithTheCallsName)
{
    EXPECT_DEATH(
        {
            const kernel::RealtimeScope cycle;
            sPlanted = std::make_unique<int>(1);
        },
        "A cycle must not call malloc\\.");
    sPlanted = std::make_unique<int>(1);
    EXPECT_DEATH(
        {
            const kernel::RealtimeScope cycle;
            sPlanted.reset();
        },
        "A cycle must not call free\\.");
}

TEST(RealtimeDeathTest, ACycleThatMayWaitEndsTheProcessWithTheCallsName)
{
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    EXPECT_DEATH(
        {
            const kernel::RealtimeScope cycle;
            kernel::pthread_mutex_lock(&mutex);
        },
        "A cycle must not call pthread_mutex_lock\\.");
    EXPECT_DEATH(
        {
            const kernel::RealtimeScope cycle;
            kernel::usleep(1);
        },
        "A cycle must not call usleep\\.");
    EXPECT_DEATH(
        {
            const kernel::RealtimeScope cycle;
            vm_address_t pages;
            vm_allocate(mach_task_self(), &pages, 1, VM_FLAGS_ANYWHERE);
        },
        "A cycle must not call vm_allocate\\.");
}

TEST(RealtimeDeathTest, TheOuterCycleGoesOnAfterAnInnerOneAndAfterAnExemption)
{
    EXPECT_DEATH(
        {
            const kernel::RealtimeScope cycle;
            {
                const kernel::RealtimeScope inner;
            }
            sPlanted = std::make_unique<int>(1);
        },
        "A cycle must not call malloc\\.");
    EXPECT_DEATH(
        {
            const kernel::RealtimeScope cycle;
            {
                const kernel::RealtimeExemption exemption("a test");
            }
            sPlanted = std::make_unique<int>(1);
        },
        "A cycle must not call malloc\\.");
}

#endif

TEST(Realtime, WhatIsExemptOrOutsideACycleMayDoAll)
{
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    ASSERT_EQ(kernel::pthread_mutex_lock(&mutex), 0);  // the first call of all makes the machine
    kernel::pthread_mutex_unlock(&mutex);
    {
        const kernel::RealtimeScope cycle;
        EXPECT_EQ(kernel::pthread_mutex_trylock(&mutex), 0);
        kernel::pthread_mutex_unlock(&mutex);
        const kernel::RealtimeExemption exemption("a test");
        EXPECT_TRUE(std::make_unique<int>(1));
        EXPECT_EQ(kernel::pthread_mutex_lock(&mutex), 0);
        kernel::pthread_mutex_unlock(&mutex);
    }
    EXPECT_TRUE(std::make_unique<int>(1));
}
