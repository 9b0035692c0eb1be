#include "utility/CAPThread.h"

#include "platform/kernel/MutexGuard.h"
#include "utility/CAException.h"

#include <array>
#include <memory>

namespace kernel = platform::kernel;

namespace {

constexpr uint32_t kDefaultPriority = 31;
constexpr pthread_t kStarting = ~pthread_t{0};
constexpr OSStatus kNoHandle = 11;  // what the platform answers when it has no room for a thread

template <size_t kWords>
void SetPolicy(pthread_t thread, int flavour, const std::array<int32_t, kWords>& words)
{
    CAException::ThrowIf(
        kernel::thread_policy_set(kernel::pthread_mach_thread_np(thread), flavour, words.data(), kWords));
}

template <size_t kWords>
std::array<int32_t, kWords> GetInfo(pthread_t thread, int flavour)
{
    std::array<int32_t, kWords> words{};
    uint32_t count = kWords;
    CAException::ThrowIf(kernel::thread_info(kernel::pthread_mach_thread_np(thread), flavour, words.data(), &count));
    return words;
}

class DetachedAttributes {
public:
    DetachedAttributes() { CAException::ThrowIf(kernel::pthread_attr_init(&mAttributes)); }
    ~DetachedAttributes() { kernel::pthread_attr_destroy(&mAttributes); }
    void Detach() { CAException::ThrowIf(kernel::pthread_attr_setdetachstate(&mAttributes, PTHREAD_CREATE_DETACHED)); }
    const pthread_attr_t* Get() const { return &mAttributes; }

private:
    pthread_attr_t mAttributes;
};

/// Holds a new thread back until its creator has stored its handle. On the heap, since the creator may leave first.
struct Launch {
    explicit Launch(CAPThread& object) : mObject(object) {}

    /// Called by the new thread, which owns this.
    static CAPThread& Await(Launch* launch)
    {
        const std::unique_ptr<Launch> mine(launch);
        const kernel::MutexGuard guard(mine->mMutex);
        return mine->mObject;
    }

    CAPThread& mObject;
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;  // the creator's until the handle is stored
};

}  // namespace

CAPThread::CAPThread(Routine entry, void* argument, uint32_t period, uint32_t computation, uint32_t constraint,
                     bool preemptible, bool autoDelete, const char* name)
    : mSpawningPriority(getScheduledPriority(pthread_self(), kScheduledPriority)),
      mEntry(entry),
      mArgument(argument),
      mPriority(kDefaultPriority),
      mPeriod(period),
      mComputation(computation),
      mConstraint(constraint),
      mPreemptible(preemptible),
      mTimeConstraintSet(true),
      mFixedPriority(false),
      mAutoDelete(autoDelete),
      mName(name)
{
}

CAPThread::CAPThread(Routine entry, void* argument, uint32_t priority, bool fixed, bool autoDelete, const char* name)
    : mSpawningPriority(getScheduledPriority(pthread_self(), kScheduledPriority)),
      mEntry(entry),
      mArgument(argument),
      mPriority(priority),
      mPeriod(0),
      mComputation(0),
      mConstraint(0),
      mPreemptible(true),
      mTimeConstraintSet(false),
      mFixedPriority(fixed),
      mAutoDelete(autoDelete),
      mName(name)
{
}

void CAPThread::Start()
{
    pthread_t none = 0;
    if (!mThread.compare_exchange_strong(none, kStarting)) return;
    try {
        CreateThread();
    } catch (...) {
        mThread.store(0);
        throw;
    }
}

// Touches nothing of the object once the thread may go on: it may be over already, and the object with it.
void CAPThread::CreateThread()
{
    DetachedAttributes attributes;
    attributes.Detach();
    auto launch = std::make_unique<Launch>(*this);
    const kernel::MutexGuard guard(launch->mMutex);
    pthread_t thread = 0;
    CAException::ThrowIf(kernel::pthread_create(&thread, attributes.Get(), &CAPThread::Entry, launch.get(), mName));
    if (thread == 0) throw CAException(kNoHandle);
    static_cast<void>(launch.release());  // Await owns it
    mThread.store(thread);
}

bool CAPThread::IsCurrentThread() const noexcept
{
    return pthread_equal(mThread.load(std::memory_order_relaxed), pthread_self()) != 0;
}

void CAPThread::SetPriority(uint32_t priority, bool fixed)
{
    mPriority = priority;
    mFixedPriority = fixed;
    mTimeConstraintSet = false;
    if (const pthread_t thread = StartedThread()) ApplyPriority(thread);
}

void CAPThread::SetTimeConstraints(uint32_t period, uint32_t computation, uint32_t constraint, bool preemptible)
{
    mPeriod = period;
    mComputation = computation;
    mConstraint = constraint;
    mPreemptible = preemptible;
    mTimeConstraintSet = true;
    if (const pthread_t thread = StartedThread()) ApplyTimeConstraints(thread);
}

pthread_t CAPThread::StartedThread() const noexcept
{
    const pthread_t thread = mThread.load();
    return thread == kStarting ? 0 : thread;
}

void CAPThread::ApplyScheduling(pthread_t thread) const
{
    if (mTimeConstraintSet)
        ApplyTimeConstraints(thread);
    else
        ApplyPriority(thread);
}

void CAPThread::ApplyPriority(pthread_t thread) const
{
    if (mFixedPriority) SetPolicy<1>(thread, kernel::THREAD_EXTENDED_POLICY, {0});
    const uint32_t base = getScheduledPriority(pthread_self(), kBasePriority);
    SetPolicy<1>(thread, kernel::THREAD_PRECEDENCE_POLICY, {static_cast<int32_t>(mPriority - base)});
}

void CAPThread::ApplyTimeConstraints(pthread_t thread) const
{
    SetPolicy<4>(thread, kernel::THREAD_TIME_CONSTRAINT_POLICY,
                 {static_cast<int32_t>(mPeriod), static_cast<int32_t>(mComputation), static_cast<int32_t>(mConstraint),
                  mPreemptible ? 1 : 0});
}

uint32_t CAPThread::GetScheduledPriority() const
{
    return getScheduledPriority(StartedThread(), kScheduledPriority);
}

uint32_t CAPThread::getScheduledPriority(pthread_t thread, int kind)
{
    if (thread == 0) return 0;
    const bool inEffect = kind == kScheduledPriority;
    switch (GetInfo<10>(thread, kernel::THREAD_BASIC_INFO)[5]) {
        case kernel::POLICY_TIMESHARE: {
            const auto words = GetInfo<5>(thread, kernel::THREAD_SCHED_TIMESHARE_INFO);
            return static_cast<uint32_t>(inEffect ? words[2] : words[1]);
        }
        case kernel::POLICY_RR: {
            const auto words = GetInfo<5>(thread, kernel::THREAD_SCHED_RR_INFO);
            return static_cast<uint32_t>(inEffect && words[3] ? words[4] : words[1]);
        }
        case kernel::POLICY_FIFO: {
            const auto words = GetInfo<4>(thread, kernel::THREAD_SCHED_FIFO_INFO);
            return static_cast<uint32_t>(inEffect && words[2] ? words[3] : words[1]);
        }
        default:
            return 0;
    }
}

void* CAPThread::Entry(void* launch)
{
    return Launch::Await(static_cast<Launch*>(launch)).Run();
}

void* CAPThread::Run() noexcept
{
    std::unique_ptr<CAPThread> self(mAutoDelete ? this : nullptr);
    void* result = nullptr;
    try {
        ApplyScheduling(pthread_self());
        if (mEntry) result = mEntry(mArgument);
    } catch (...) {  // nothing leaves the thread
    }
    mThread.store(0, std::memory_order_release);  // from here on the object may be its owner's to destroy
    return result;
}
