#include "platform/machine/linux/pipewire/Connection.h"

#include <algorithm>
#include <cerrno>

namespace platform::machine::pipewire {

namespace {

constexpr uint64_t kFirstPauseNanos = 5'000'000;        // a socket exists a moment before it is listened on
constexpr uint64_t kLongestPauseNanos = 1'000'000'000;  // only for what the watch of the folder cannot see
// The first trip ends the list of objects, the second what was asked of each of them.
constexpr int kTripsToSettle = 2;

}  // namespace

const pw_core_events Connection::kEvents = {
    .version = PW_VERSION_CORE_EVENTS,
    .done = [](void* self, uint32_t id, int sequence) { static_cast<Connection*>(self)->OnDone(id, sequence); },
    .error = [](void* self, uint32_t id, int, int result,
                const char*) { static_cast<Connection*>(self)->OnError(id, result); },
};

Connection::Connection(Loop& loop, Context& context, Owner& owner)
    : mContext(context),
      mOwner(owner),
      mLost(loop,
            [this] {
                Drop();
                Try();
            }),
      mRetry(loop, [this] { Try(); }),
      mWatch(loop, mPath, [this] { TrySoon(); })
{
}

Connection::~Connection()
{
    Close();
}

void Connection::Open()
{
    TrySoon();
}

void Connection::Close()
{
    Drop();
}

void Connection::TrySoon()
{
    mPauseNanos = kFirstPauseNanos;
    Try();
}

void Connection::Try()
{
    if (mCore != nullptr || mContext.Get() == nullptr) return;
    mWatch.Renew();
    mCore = pw_context_connect(mContext.Get(), nullptr, 0);
    if (mCore == nullptr) {
        mRetry.Arm(mPauseNanos);
        mPauseNanos = std::min(2 * mPauseNanos, kLongestPauseNanos);
        return;
    }
    pw_core_add_listener(mCore, &mHook, &kEvents, this);
    mRoundTrips = 0;
    mOwner.OnConnected(mCore);
    mSync = pw_core_sync(mCore, PW_ID_CORE, 0);
}

void Connection::Drop()
{
    if (mCore == nullptr) return;
    mOwner.OnDisconnected();
    spa_hook_remove(&mHook);
    pw_core_disconnect(mCore);
    mCore = nullptr;
    mPauseNanos = kFirstPauseNanos;
}

void Connection::OnDone(uint32_t id, int sequence)
{
    if (id != PW_ID_CORE || sequence != mSync || mRoundTrips == kTripsToSettle) return;
    if (++mRoundTrips == kTripsToSettle) return mOwner.OnSettled();
    mSync = pw_core_sync(mCore, PW_ID_CORE, 0);
}

void Connection::OnError(uint32_t id, int result)
{
    // A core cannot be taken down from inside its own event. Errors of single objects are theirs to see.
    if (id == PW_ID_CORE && result == -EPIPE) mLost.Signal();
}

}  // namespace platform::machine::pipewire
