#include "cli/StopSignals.h"

#include "platform/kernel/HostTime.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>

namespace cli {

namespace {

constexpr uint64_t kSameSignalNanos = 200'000'000;
constexpr std::array kStopSignals{SIGINT, SIGTERM, SIGHUP};

// Stored by the handler, loaded by the main thread; relaxed, each for itself.
std::atomic<int> sFirst{0};
std::atomic<int> sCount{0};
std::atomic<uint64_t> sFirstNanos{0};
std::atomic<uint64_t> sCountedNanos{0};  // the handler's own: host time of the last signal that counted
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<uint64_t>::is_always_lock_free);

void Count(int number)
{
    const int error = errno;
    const uint64_t now = mach_absolute_time();
    const int count = sCount.load(std::memory_order_relaxed);
    const bool isNew = number != SIGHUP && now - sCountedNanos.load(std::memory_order_relaxed) >= kSameSignalNanos;
    if (count == 0 || isNew) {
        if (count == 0) {
            sFirst.store(number, std::memory_order_relaxed);
            sFirstNanos.store(now, std::memory_order_relaxed);
        }
        sCountedNanos.store(now, std::memory_order_relaxed);
        sCount.store(count + 1, std::memory_order_relaxed);
    }
    errno = error;
}

struct sigaction ActionFor(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    for (const int number : kStopSignals) sigaddset(&action.sa_mask, number);  // the handler runs once at a time
    return action;
}

bool IsIgnored(int number)
{
    struct sigaction action = {};
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void Handle(void (*handler)(int))
{
    const struct sigaction action = ActionFor(handler);
    for (const int number : kStopSignals)
        if (number != SIGHUP || !IsIgnored(number)) sigaction(number, &action, nullptr);
}

}  // namespace

void CatchStopSignals()
{
    sFirst.store(0, std::memory_order_relaxed);
    sCount.store(0, std::memory_order_relaxed);
    mach_absolute_time();  // makes the machine here and not in the handler
    Handle(Count);
}

void ReleaseStopSignals()
{
    Handle(SIG_DFL);
}

int StopSignal()
{
    return sFirst.load(std::memory_order_relaxed);
}

uint64_t StopSignalNanos()
{
    return sFirstNanos.load(std::memory_order_relaxed);
}

int StopSignalCount()
{
    return sCount.load(std::memory_order_relaxed);
}

void IgnoreWriteSignals()
{
    for (const int number : {SIGPIPE, SIGXFSZ, SIGTTOU}) std::signal(number, SIG_IGN);
}

}  // namespace cli
