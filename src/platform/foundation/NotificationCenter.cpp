#include "platform/foundation/NotificationCenter.h"

#include "platform/kernel/MutexGuard.h"

#include <algorithm>
#include <utility>

namespace kernel = platform::kernel;
using kernel::MutexGuard;

namespace cf {

namespace {

// An observer whose loop has not come to so many learns nothing from another one: what he then reads is newer than all.
constexpr int kMostWaiting = 64;

}  // namespace

struct NotificationCenter::Observer {
    Observer(CFRunLoopRef loop, Observation observation) : mLoop(loop), mWish(std::move(observation))
    {
        if (mLoop) CFRetain(mLoop);
    }
    ~Observer()
    {
        if (mLoop) CFRelease(mLoop);
    }
    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;

    bool Wants(const Notification& notification) const
    {
        if (mWish.mName != notification.mName.Get()->Text()) return false;
        return !mWish.mObject || (notification.mObject && *mWish.mObject == notification.mObject.Get()->Text());
    }

    bool IsRunningHere() const
    {
        return std::ranges::any_of(mRunningOn, [](pthread_t each) { return pthread_equal(each, pthread_self()); });
    }

    const CFRunLoopRef mLoop;
    const Observation mWish;
    int mWaiting = 0;  // calls handed to the loop and not begun
    bool mIsRemoved = false;
    std::vector<pthread_t> mRunningOn;  // one for each call that has begun and not ended
};

NotificationCenter::NotificationCenter()
{
    kernel::pthread_cond_init(&mCalled, nullptr);
}

NotificationCenter::~NotificationCenter()
{
    kernel::pthread_cond_destroy(&mCalled);
}

void NotificationCenter::Add(Observation observation)
{
    auto observer = std::make_shared<Observer>(CFRunLoopGetCurrent(), std::move(observation));
    const MutexGuard guard(mMutex);
    mObservers.push_back(std::move(observer));
}

void NotificationCenter::Remove(const void* observer, const std::optional<std::string>& name,
                                const std::optional<std::string>& object)
{
    Observers gone;  // ends after the lock is given up
    const MutexGuard guard(mMutex);
    const auto first = std::stable_partition(mObservers.begin(), mObservers.end(), [&](const auto& each) {
        const Observation& wish = each->mWish;
        return wish.mObserver != observer || (name && wish.mName != *name) || (object && wish.mObject != object);
    });
    gone.assign(std::move_iterator(first), std::move_iterator(mObservers.end()));
    mObservers.erase(first, mObservers.end());
    for (const auto& each : gone) each->mIsRemoved = true;
    for (const auto& each : gone)
        while (!each->mRunningOn.empty() && !each->IsRunningHere()) kernel::pthread_cond_wait(&mCalled, &mMutex);
}

bool NotificationCenter::IsObserved(std::string_view name)
{
    const MutexGuard guard(mMutex);
    return std::ranges::any_of(mObservers, [&](const auto& each) { return each->mWish.mName == name; });
}

void NotificationCenter::Tell(const Notification& notification)
{
    for (const auto& observer : Whom(notification)) {
        if (observer->mLoop)
            Perform(observer->mLoop, [this, observer, notification] { Call(*observer, notification); });
        else
            Call(*observer, notification);
    }
}

NotificationCenter::Observers NotificationCenter::Whom(const Notification& notification)
{
    Observers whom;
    const MutexGuard guard(mMutex);
    for (const auto& each : mObservers) {
        if (!each->Wants(notification) || each->mWaiting == kMostWaiting) continue;
        if (each->mLoop) ++each->mWaiting;
        whom.push_back(each);
    }
    return whom;
}

void NotificationCenter::Call(Observer& observer, const Notification& notification)
{
    {
        const MutexGuard guard(mMutex);
        if (observer.mLoop) --observer.mWaiting;
        if (observer.mIsRemoved) return;
        observer.mRunningOn.push_back(pthread_self());
    }
    observer.mWish.mCallback(this, const_cast<void*>(observer.mWish.mObserver), notification.mName.Get(),
                             notification.mObject.Get(), notification.mUserInfo.Get());
    const MutexGuard guard(mMutex);
    observer.mRunningOn.erase(
        std::ranges::find_if(observer.mRunningOn, [](pthread_t each) { return pthread_equal(each, pthread_self()); }));
    if (observer.mIsRemoved) kernel::pthread_cond_broadcast(&mCalled);
}

}  // namespace cf
