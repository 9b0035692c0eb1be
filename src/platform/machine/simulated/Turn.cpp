#include "platform/machine/simulated/Turn.h"

#include <linux/futex.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <utility>

namespace platform::machine::simulated {

namespace {

bool sByHand = false;
SwitchedContext* sLeaving = nullptr;  // has left its stack for good, and is to be sent home

void Post(uint32_t& word) noexcept
{
    __atomic_store_n(&word, 1, __ATOMIC_RELEASE);
    syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void Await(const uint32_t& word) noexcept
{
    while (__atomic_load_n(&word, __ATOMIC_ACQUIRE) == 0)
        syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
}

void Take(uint32_t& word) noexcept
{
    Await(word);
    __atomic_store_n(&word, 0, __ATOMIC_RELAXED);
}

/// What whoever has the turn anew does first.
void SendHome() noexcept
{
    if (sLeaving) Post(std::exchange(sLeaving, nullptr)->mHome);
}

}  // namespace

void Turn::Begin() noexcept
{
    sByHand = CanSwitch();
    if (!sByHand) return;
    mContext = &OwnContext();
    mWord = 1;
}

void Turn::Arrive() noexcept
{
    if (!sByHand) return Take(mWord);
    // A signal's handler would run where the thread is parked, on a stack that is lent. It never gets one any more: the
    // program's signals go to the main thread, and at home again it only ends.
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, nullptr);
    mContext = &OwnContext();
    CorvaneParkContext(mContext, &mWord);
    SendHome();
}

void Turn::HandTo(Turn& next) noexcept
{
    if (!sByHand) {
        Post(next.mWord);
        return Take(mWord);
    }
    Await(next.mWord);
    CorvaneSwitchContext(mContext, next.mContext);
    SendHome();
}

void Turn::LeaveTo(Turn& next) noexcept
{
    if (!sByHand) return Post(next.mWord);
    Await(next.mWord);
    sLeaving = mContext;
    CorvaneSwitchContext(mContext, next.mContext);
}

}  // namespace platform::machine::simulated
