// The published scheduling policies, in terms of the machine's two kinds. What a thread runs under is asked
// of the machine each time, so that thread_info never tells of a policy that was refused.
#include "platform/kernel/Threads.h"
#include "platform/machine/Machine.h"
#include "platform/machine/Threads.h"

#include <algorithm>
#include <cmath>

namespace platform::kernel {

using machine::SchedulingWish;

namespace {

constexpr int kSuccess = 0;
constexpr int kInvalidArgument = 4;

// Priorities as published: threads start at 31, a program may ask up to 63 (79 is the end of that band), and
// threads with a time constraint lie above.
constexpr int kBasePriority = 31;
constexpr int kHighestPriority = 63;
constexpr int kEndOfBand = 79;
constexpr int kTimeConstraintPriority = 97;
constexpr int kRoundRobinQuantum = 10;

SchedulingWish Fixed(int priority)
{
    return {SchedulingWish::Kind::Fixed, float(std::clamp(priority, 0, kHighestPriority)) / kEndOfBand};
}

constexpr SchedulingWish kTimeConstraint{SchedulingWish::Kind::Fixed, 1.0f};

int BasePriorityOf(const SchedulingWish& scheduling)
{
    if (scheduling.mKind == SchedulingWish::Kind::Standard) return kBasePriority;
    if (scheduling.mLevel >= kTimeConstraint.mLevel) return kTimeConstraintPriority;
    return int(std::lround(scheduling.mLevel * kEndOfBand));
}

SchedulingWish SchedulingOf(thread_act_t thread)
{
    return machine::Machine::Current().GetThreads().GetScheduling(thread);
}

int Ask(thread_act_t thread, const SchedulingWish& wish)
{
    // A refusal is the machine's to remember and to tell; the caller's thread runs on, time-shared.
    static_cast<void>(machine::Machine::Current().GetThreads().Schedule(thread, wish));
    return kSuccess;
}

/// Importance moves a fixed priority. Time-shared threads share as equals, and a time constraint stands
/// above all importance.
int AskImportance(thread_act_t thread, int importance)
{
    const SchedulingWish scheduling = SchedulingOf(thread);
    const int base = BasePriorityOf(scheduling);
    if (scheduling.mKind == SchedulingWish::Kind::Standard || base == kTimeConstraintPriority) return kSuccess;
    const int64_t priority = int64_t(kBasePriority) + importance;
    return Ask(thread, Fixed(int(std::clamp<int64_t>(priority, 0, kHighestPriority))));
}

int Fill(int32_t* words, uint32_t* count, std::initializer_list<int32_t> values)
{
    if (*count < values.size()) return kInvalidArgument;
    std::copy(values.begin(), values.end(), words);
    *count = uint32_t(values.size());
    return kSuccess;
}

}  // namespace

thread_act_t pthread_mach_thread_np(pthread_t thread)
{
    return thread;
}

int thread_policy_set(thread_act_t thread, int flavour, const int32_t* words, uint32_t count)
{
    if (!thread) return kInvalidArgument;
    if (flavour == THREAD_STANDARD_POLICY && count == 0) return Ask(thread, {});
    if (flavour == THREAD_EXTENDED_POLICY && count == 1)
        return Ask(thread, words[0] ? SchedulingWish{} : Fixed(kBasePriority));
    if (flavour == THREAD_TIME_CONSTRAINT_POLICY && count == 4) return Ask(thread, kTimeConstraint);
    if (flavour == THREAD_PRECEDENCE_POLICY && count == 1) return AskImportance(thread, words[0]);
    return kInvalidArgument;
}

int thread_policy(thread_act_t thread, int policy, const int32_t* words, uint32_t count, bool)
{
    if (!thread || policy != POLICY_RR || count != 2) return kInvalidArgument;
    return Ask(thread, Fixed(words[0]));
}

int thread_info(thread_act_t thread, int flavour, int32_t* words, uint32_t* count)
{
    if (!thread) return kInvalidArgument;
    const SchedulingWish scheduling = SchedulingOf(thread);
    const int policy = scheduling.mKind == SchedulingWish::Kind::Standard ? POLICY_TIMESHARE : POLICY_RR;
    const int base = BasePriorityOf(scheduling);
    const int highest = std::max(base, kHighestPriority);
    switch (flavour) {
        case THREAD_BASIC_INFO:
            return Fill(words, count, {0, 0, 0, 0, 0, policy, 0, 0, 0, 0});
        case THREAD_SCHED_TIMESHARE_INFO:
            return Fill(words, count, {highest, base, base, 0, 0});
        case THREAD_SCHED_RR_INFO:
            return Fill(words, count, {highest, base, kRoundRobinQuantum, 0, 0});
        case THREAD_SCHED_FIFO_INFO:
            return Fill(words, count, {highest, base, 0, 0});
        default:
            return kInvalidArgument;
    }
}

}  // namespace platform::kernel
