#include "platform/kernel/Realtime.h"

#include "platform/kernel/Memory.h"
#include "platform/kernel/Threads.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

using namespace platform;

#ifdef CORVANE_TRAP_REALTIME

namespace {

std::unique_ptr<int> sPlanted;  // outlives the cycle, so that no compiler takes the allocation out

void Allocate()
{
    sPlanted = std::make_unique<int>(1);
}

template <class Body>
void ExpectTrapped(const std::string& call, Body body)
{
    EXPECT_DEATH(
        {
            const kernel::RealtimeScope cycle;
            body();
        },
        "A cycle must not call " + call + "\\.");
}

}  // namespace

TEST(RealtimeDeathTest, ACycleThatAllocatesFreesOrMayWaitEndsTheProcessWithTheCallsName)
{
    ExpectTrapped("malloc", Allocate);
    Allocate();
    ExpectTrapped("free", [] { sPlanted.reset(); });
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    ExpectTrapped("pthread_mutex_lock", [&mutex] { kernel::pthread_mutex_lock(&mutex); });
    ExpectTrapped("usleep", [] { kernel::usleep(1); });
    vm_address_t pages;
    ExpectTrapped("vm_allocate", [&pages] { vm_allocate(mach_task_self(), &pages, 1, VM_FLAGS_ANYWHERE); });
}

TEST(RealtimeDeathTest, TheOuterCycleGoesOnAfterAnInnerOneAndAfterAnExemption)
{
    ExpectTrapped("malloc", [] {
        {
            const kernel::RealtimeScope inner;
        }
        Allocate();
    });
    ExpectTrapped("malloc", [] {
        {
            const kernel::RealtimeExemption exemption("a test");
        }
        Allocate();
    });
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
