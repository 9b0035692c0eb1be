// NotificationCenter: who wants to hear of what in this process, and telling them.
// Why: removal promises that nothing of an observer runs any more, whatever thread it runs on and from wherever the
// removal is asked for. An observer is called on the run loop that was current when it was added, so that it needs no
// lock against its own timers. Start at Post.
#pragma once

#include "platform/foundation/CFNotificationCenter.h"
#include "platform/foundation/CFObjects.h"

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace cf {

struct Notification {
    Ref<String> mName;
    Ref<String> mObject;  // null: of nothing in particular
    Ref<Dictionary> mUserInfo;
};

/// What an observer asked for, as it asked.
struct Observation {
    const void* mObserver;
    CFNotificationCallback mCallback;
    std::string mName;
    std::optional<std::string> mObject;  // nothing: any
};

class NotificationCenter {
public:
    NotificationCenter();
    virtual ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    /// The observer is called on the calling thread's run loop; where that thread has none, on the thread that tells.
    virtual void Add(Observation observation);
    /// Nothing for a name or an object: whichever.
    void Remove(const void* observer, const std::optional<std::string>& name, const std::optional<std::string>& object);
    virtual void Post(const Notification& notification) { Tell(notification); }

protected:
    void Tell(const Notification& notification);
    bool IsObserved(std::string_view name);

private:
    struct Observer;
    using Observers = std::vector<std::shared_ptr<Observer>>;

    Observers Whom(const Notification& notification);
    void Call(Observer& observer, const Notification& notification);

    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t mCalled;  // a callback of a removed observer has returned
    Observers mObservers;    // in the order in which they came
};

}  // namespace cf
