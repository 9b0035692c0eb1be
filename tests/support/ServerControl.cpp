#include "support/ServerControl.h"

#include <chrono>
#include <stdexcept>

namespace support {

using platform::machine::pipewire::Loop;

ServerControl::ServerControl()
{
    const Loop::Guard guard(mLoop);
    mCore = pw_context_connect(mContext.Get(), nullptr, 0);
    if (mCore == nullptr) throw std::runtime_error("the private server cannot be reached");
    mRegistry.Attach(mCore);
    mLoop.Start();
}

ServerControl::~ServerControl()
{
    mLoop.Stop();
    mRegistry.Detach();
    pw_core_disconnect(mCore);
}

void ServerControl::NoteChange()
{
    const std::lock_guard guard(mMutex);
    ++mChanges;
    mCondition.notify_all();
}

void ServerControl::With(const std::function<void(Registry&)>& action)
{
    const Loop::Guard guard(mLoop);
    action(mRegistry);
}

void ServerControl::WaitUntil(const std::string& what, const std::function<bool(Registry&)>& condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (bool holds = false;;) {
        uint64_t seen = 0;
        {
            const std::lock_guard guard(mMutex);
            seen = mChanges;
        }
        With([&](Registry& registry) { holds = condition(registry); });
        if (holds) return;
        std::unique_lock guard(mMutex);
        if (!mCondition.wait_until(guard, deadline, [&] { return mChanges != seen; }))
            throw std::runtime_error("the private server did not get there: " + what);
    }
}

}  // namespace support
