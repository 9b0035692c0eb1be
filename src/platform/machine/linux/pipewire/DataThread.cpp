#include "platform/machine/linux/pipewire/DataThread.h"

#include "platform/machine/linux/HostTimespec.h"

#include <pipewire/pipewire.h>
#include <pthread.h>
#include <semaphore.h>
#include <time.h>

#include <cerrno>

namespace platform::machine::pipewire {

namespace {

// A port is added in some 50 us. The bound makes a caller that loses the processor, or a library that waits for its
// data thread while it adds a port, cost cycles instead of hanging the process.
constexpr long kLongestStandNanos = 20'000'000;

class Semaphore {
public:
    Semaphore() { sem_init(&mSemaphore, 0, 0); }
    ~Semaphore() { sem_destroy(&mSemaphore); }
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    void Post() { sem_post(&mSemaphore); }
    void Wait()
    {
        while (sem_wait(&mSemaphore) != 0 && errno == EINTR) {
        }
    }
    void WaitUntil(const timespec& deadline)
    {
        while (sem_clockwait(&mSemaphore, CLOCK_MONOTONIC, &deadline) != 0 && errno == EINTR) {
        }
    }

private:
    sem_t mSemaphore;
};

/// Where the caller and the data thread meet. The caller owns it, and the data thread's last access is a Post for which
/// the caller waits.
struct Meeting {
    const pthread_t mCaller = pthread_self();
    Semaphore mDataThread;  // posted by the data thread when it is there, and when it goes
    Semaphore mCallerDone;
};

int Pass(spa_loop*, bool, uint32_t, const void*, size_t, void* meeting)
{
    static_cast<Meeting*>(meeting)->mDataThread.Post();
    return 0;
}

timespec StandDeadline()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return HostTimespec(uint64_t(now.tv_sec) * 1'000'000'000 + uint64_t(now.tv_nsec + kLongestStandNanos));
}

int Stand(spa_loop*, bool, uint32_t, const void*, size_t, void* given)
{
    Meeting& meeting = *static_cast<Meeting*>(given);
    // A loop whose thread does not run has the caller do it.
    const bool isCaller = pthread_equal(meeting.mCaller, pthread_self()) != 0;
    meeting.mDataThread.Post();
    if (!isCaller) meeting.mCallerDone.WaitUntil(StandDeadline());
    meeting.mDataThread.Post();
    return 0;
}

/// Lets the data thread go on, also where the caller's action throws.
class Release {
public:
    explicit Release(Meeting& meeting) : mMeeting(meeting) {}
    ~Release()
    {
        mMeeting.mCallerDone.Post();
        mMeeting.mDataThread.Wait();
    }
    Release(const Release&) = delete;
    Release& operator=(const Release&) = delete;

private:
    Meeting& mMeeting;
};

void Send(pw_loop* loop, spa_invoke_func_t action, Meeting& meeting)
{
    constexpr timespec kPause{.tv_sec = 0, .tv_nsec = 1'000'000};
    // It is refused while the loop's queue is full, and the data thread empties that.
    while (pw_loop_invoke(loop, action, 0, nullptr, 0, false, &meeting) < 0) nanosleep(&kPause, nullptr);
}

}  // namespace

void DataThread::FinishCycle() const
{
    if (mCycles == nullptr) return;
    Meeting meeting;
    Send(mCycles, Pass, meeting);
    meeting.mDataThread.Wait();
}

void DataThread::RunBetweenCycles(const std::function<void()>& action) const
{
    if (mCycles == nullptr) return action();
    Meeting meeting;
    Send(mCycles, Stand, meeting);
    meeting.mDataThread.Wait();
    const Release release(meeting);
    action();
}

}  // namespace platform::machine::pipewire
