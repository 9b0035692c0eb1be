#include "platform/kernel/Threads.h"

#include "platform/kernel/HostTime.h"
#include "support/FakeMachine.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>
#include <algorithm>
#include <climits>
#include <string>

namespace kernel = platform::kernel;
using platform::machine::LinuxThreads;
using platform::machine::SchedulingWish;

namespace {

class Threads : public testing::Test {
protected:
    support::FakeMachine& mMachine = support::FakeMachine::Installed();
};

bool TakesSignals()
{
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, SIGALRM) == 0;
}

struct Meeting {
    pthread_mutex_t mMutex;
    pthread_cond_t mCondition;
    bool mThere = false;
    std::string mName;
    int mDetachState = -1;
    bool mTakesSignals = true;

    Meeting()
    {
        kernel::pthread_mutex_init(&mMutex, nullptr);
        kernel::pthread_cond_init(&mCondition, nullptr);
    }
    ~Meeting()
    {
        kernel::pthread_cond_destroy(&mCondition);
        kernel::pthread_mutex_destroy(&mMutex);
    }

    static void* Arrive(void* argument)
    {
        Meeting& meeting = *static_cast<Meeting*>(argument);
        kernel::pthread_mutex_lock(&meeting.mMutex);
        char name[16] = "";
        pthread_getname_np(pthread_self(), name, sizeof name);
        meeting.mName = name;
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getdetachstate(&attributes, &meeting.mDetachState);
        pthread_attr_destroy(&attributes);
        meeting.mTakesSignals = TakesSignals();
        meeting.mThere = true;
        kernel::pthread_cond_signal(&meeting.mCondition);
        kernel::pthread_mutex_unlock(&meeting.mMutex);
        return argument;
    }

    /// Waits for the other side with `wait` as the limit of each single wait.
    int Await(const timespec& wait)
    {
        kernel::pthread_mutex_lock(&mMutex);
        return AwaitLocked(wait);
    }
    int AwaitLocked(const timespec& wait)
    {
        int result = 0;
        while (!mThere && result == 0) result = kernel::pthread_cond_timedwait_relative_np(&mCondition, &mMutex, &wait);
        kernel::pthread_mutex_unlock(&mMutex);
        return result;
    }
};

int32_t PolicyOf(pthread_t thread)
{
    int32_t words[10];
    uint32_t count = 10;
    EXPECT_EQ(kernel::thread_info(thread, kernel::THREAD_BASIC_INFO, words, &count), 0);
    return words[5];
}

int32_t BasePriorityOf(pthread_t thread)
{
    int32_t words[5];
    uint32_t count = 5;
    const int flavour =
        PolicyOf(thread) == kernel::POLICY_RR ? kernel::THREAD_SCHED_RR_INFO : kernel::THREAD_SCHED_TIMESHARE_INFO;
    EXPECT_EQ(kernel::thread_info(thread, flavour, words, &count), 0);
    return words[1];
}

}  // namespace

TEST_F(Threads, ATimedWaitTakesAnyNumberOfNanosecondsAndGivesUpWithThePublishedNumber)
{
    for (const timespec past : {timespec{0, 0}, timespec{-1, 0}, timespec{LONG_MIN, LONG_MIN}}) {
        Meeting alone;
        EXPECT_EQ(alone.Await(past), kernel::kErrorTimedOut);
    }
    for (const timespec longer : {timespec{0, 60'000'000'000}, timespec{0, LONG_MAX}, timespec{LONG_MAX, LONG_MAX}}) {
        Meeting meeting;
        pthread_t thread;
        const uint64_t begin = mach_absolute_time();
        kernel::pthread_mutex_lock(&meeting.mMutex);  // keeps the other side from arriving before the wait
        ASSERT_EQ(kernel::pthread_create(&thread, nullptr, Meeting::Arrive, &meeting), 0);
        EXPECT_EQ(meeting.AwaitLocked(longer), 0);
        EXPECT_GE(mMachine.mThreads.mDeadlineNanos, begin + 60'000'000'000);
        void* result = nullptr;
        EXPECT_EQ(kernel::pthread_join(thread, &result), 0);
        EXPECT_EQ(result, &meeting);
    }
}

TEST_F(Threads, AWaitIsNeverOverBeforeItsTime)
{
    const uint64_t begin = mach_absolute_time();
    Meeting alone;
    EXPECT_EQ(alone.Await({0, 300'000}), kernel::kErrorTimedOut);
    const uint64_t between = mach_absolute_time();
    EXPECT_GE(between, begin + 300'000);
    kernel::usleep(200);
    EXPECT_GE(mach_absolute_time(), between + 200'000);
}

TEST_F(Threads, AThreadStartsUnderItsNameDetachedWhereAskedAndWithoutSignals)
{
    pthread_attr_t detached;
    pthread_attr_init(&detached);
    pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
    Meeting meeting;
    pthread_t thread;
    ASSERT_EQ(kernel::pthread_create(&thread, &detached, Meeting::Arrive, &meeting, "a name that is cut"), 0);
    EXPECT_EQ(meeting.Await({60, 0}), 0);
    EXPECT_EQ(meeting.mName, "a name that is ");
    EXPECT_EQ(meeting.mDetachState, PTHREAD_CREATE_DETACHED);
    EXPECT_FALSE(meeting.mTakesSignals);
    EXPECT_TRUE(TakesSignals());
    pthread_attr_destroy(&detached);
}

TEST_F(Threads, ThePriorityThatWasGrantedIsThePriorityThatIsTold)
{
    const pthread_t self = kernel::pthread_mach_thread_np(pthread_self());
    const int32_t shared = 0, importance = 20, immense = INT_MAX, constraint[] = {1000, 500, 1000, 1};
    EXPECT_EQ(kernel::thread_policy_set(self, kernel::THREAD_STANDARD_POLICY, nullptr, 0), 0);
    EXPECT_EQ(BasePriorityOf(self), 31);
    EXPECT_EQ(kernel::thread_policy_set(self, kernel::THREAD_EXTENDED_POLICY, &shared, 1), 0);
    EXPECT_EQ(PolicyOf(self), kernel::POLICY_RR);
    EXPECT_EQ(BasePriorityOf(self), 31);
    EXPECT_EQ(kernel::thread_policy_set(self, kernel::THREAD_PRECEDENCE_POLICY, &importance, 1), 0);
    EXPECT_EQ(BasePriorityOf(self), 51);
    EXPECT_EQ(kernel::thread_policy_set(self, kernel::THREAD_PRECEDENCE_POLICY, &immense, 1), 0);
    EXPECT_EQ(BasePriorityOf(self), 63);
    for (int32_t priority = -1; priority <= 64; ++priority) {
        const int32_t words[] = {priority, 10};
        EXPECT_EQ(kernel::thread_policy(self, kernel::POLICY_RR, words, 2, true), 0);
        EXPECT_EQ(BasePriorityOf(self), std::clamp(priority, 0, 63));
    }
    EXPECT_EQ(kernel::thread_policy_set(self, kernel::THREAD_TIME_CONSTRAINT_POLICY, constraint, 4), 0);
    EXPECT_EQ(kernel::thread_policy_set(self, kernel::THREAD_PRECEDENCE_POLICY, &importance, 1), 0);
    EXPECT_GT(BasePriorityOf(self), 63);
    EXPECT_EQ(kernel::thread_policy_set(self, kernel::THREAD_STANDARD_POLICY, nullptr, 0), 0);
    EXPECT_EQ(PolicyOf(self), kernel::POLICY_TIMESHARE);
}

TEST_F(Threads, ARefusedPolicyIsNoErrorAndTheThreadIsToldToShareItsTime)
{
    mMachine.mThreads.mGrants = false;
    const int32_t words[] = {63, 10}, shared = 0, importance = 5;
    EXPECT_EQ(kernel::thread_policy(pthread_self(), kernel::POLICY_RR, words, 2, true), 0);
    EXPECT_EQ(kernel::thread_policy_set(pthread_self(), kernel::THREAD_EXTENDED_POLICY, &shared, 1), 0);
    EXPECT_EQ(kernel::thread_policy_set(pthread_self(), kernel::THREAD_PRECEDENCE_POLICY, &importance, 1), 0);
    EXPECT_EQ(PolicyOf(pthread_self()), kernel::POLICY_TIMESHARE);
    EXPECT_EQ(BasePriorityOf(pthread_self()), 31);
}

// ---- The running system's scheduler, in a child whose limits the test may set.

namespace {

/// Leaves the child with a limit on fixed priorities, `limit` where that may be set, and no right beyond it.
/// @return the limit that stands, or -1
int LimitPriority(int limit)
{
    rlimit priorities{rlim_t(limit), rlim_t(limit)};
    setrlimit(RLIMIT_RTPRIO, &priorities);  // refused where it would be a raise, and then the old one stands
    if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) return -1;
    return getrlimit(RLIMIT_RTPRIO, &priorities) == 0 ? int(std::min<rlim_t>(priorities.rlim_cur, 80)) : -1;
}

/// A library's worker, started by a real-time thread. @return `mark` where it shares its time
void* IsTimeShared(void* mark)
{
    return sched_getscheduler(0) == SCHED_OTHER ? mark : nullptr;
}

/// Asks for the highest priority. @return whether what was had is at most `most`, told truly, and given back
bool TakesWhatIsLeft(int most)
{
    LinuxThreads threads;
    const int result = threads.Schedule(pthread_self(), {SchedulingWish::Kind::Fixed, 1.0f});
    const SchedulingWish had = threads.GetScheduling(pthread_self());
    if (result != 0) {
        return result == EPERM && had.mKind == SchedulingWish::Kind::Standard &&
               threads.DescribeScheduling().find("refused") != std::string::npos;
    }
    const int priority = platform::machine::FixedPriorityForLevel(had.mLevel);
    threads.Schedule(pthread_self(), {SchedulingWish::Kind::Fixed, 0.8f});
    if (threads.GetScheduling(pthread_self()).mLevel >= had.mLevel) return false;
    pthread_t worker;
    void* shared = nullptr;
    if (pthread_create(&worker, nullptr, IsTimeShared, &worker) != 0 || pthread_join(worker, &shared) != 0)
        return false;
    return shared != nullptr && priority == most &&
           threads.DescribeScheduling().find(std::to_string(priority)) != std::string::npos &&
           threads.Schedule(pthread_self(), {}) == 0 &&
           threads.GetScheduling(pthread_self()).mKind == SchedulingWish::Kind::Standard;
}

/// Takes every request.
class Broker final : public platform::machine::SchedulingBroker {
public:
    bool RequestPriority(int priority) override
    {
        mPriority = priority;
        return true;
    }
    int mPriority = 0;
};

/// Whether a thread that is refused has the broker asked for itself, and for no other thread; and exact timers for as
/// long as it wants to be real-time.
bool TurnsToTheBroker(pthread_t other)
{
    LinuxThreads threads;
    Broker broker;
    const SchedulingWish highest{SchedulingWish::Kind::Fixed, 1.0f};
    threads.SetBroker(&broker);
    const int usual = prctl(PR_GET_TIMERSLACK);
    if (LimitPriority(0) != 0) return true;  // nothing is refused here
    if (threads.Schedule(other, highest) == 0 || broker.mPriority != 0) return false;
    if (threads.Schedule(pthread_self(), highest) != 0 || broker.mPriority != 80) return false;
    const int exact = prctl(PR_GET_TIMERSLACK);
    return exact == 1 && threads.Schedule(pthread_self(), {}) == 0 && prctl(PR_GET_TIMERSLACK) == usual;
}

}  // namespace

TEST(LinuxThreads, ARefusedThreadTurnsToTheBrokerForItself)
{
    const auto turns = [] {
        Meeting held;
        pthread_t other;
        kernel::pthread_mutex_lock(&held.mMutex);
        if (LinuxThreads().Create(&other, false, "other", Meeting::Arrive, &held) != 0) return false;
        const bool result = TurnsToTheBroker(other);
        kernel::pthread_mutex_unlock(&held.mMutex);
        return LinuxThreads().Join(other, nullptr) == 0 && result;
    };
    EXPECT_EXIT(_exit(turns() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(LinuxThreads, TakesThePriorityThatTheLimitLeavesAndStaysTimeSharedWithoutOne)
{
    EXPECT_EXIT(_exit(TakesWhatIsLeft(80) ? 0 : 1), testing::ExitedWithCode(0), "");
    for (const int limit : {0, 20})
        EXPECT_EXIT(_exit(TakesWhatIsLeft(LimitPriority(limit)) ? 0 : 1), testing::ExitedWithCode(0), "");
}
