#include "platform/machine/simulated/Agenda.h"

#include "platform/machine/simulated/Gate.h"
#include "platform/machine/simulated/SimulatedThreads.h"
#include "platform/machine/simulated/Unseen.h"

#include <algorithm>
#include <utility>

namespace platform::machine::simulated {

void Agenda::Start()
{
    mStarted = mThreads.CreatePunctual(&mThread, "data", Run, this) == 0;
}

void Agenda::Stop()
{
    if (!mStarted) return;
    {
        const Unseen unseen;
        mStop = true;
    }
    mGate.WakeAll(this);
    mThreads.Join(mThread, nullptr);
    mStarted = false;
}

void Agenda::At(uint64_t nanos, const void* owner, Event event)
{
    const Unseen unseen;
    mEntries.emplace(nanos, Entry{owner, std::move(event)});
    mGate.WakeAll(this);
}

void Agenda::Cancel(const void* owner)
{
    const Unseen unseen;
    std::erase_if(mEntries, [&](const auto& entry) { return entry.second.mOwner == owner; });
}

uint64_t Agenda::NowNanos() const
{
    return mGate.NowNanos();
}

void* Agenda::Run(void* self)
{
    const Unseen unseen;
    auto& agenda = *static_cast<Agenda*>(self);
    Event event;
    while (agenda.WaitForNext(&event)) event();
    return nullptr;
}

/// @return false when it is time to end
bool Agenda::WaitForNext(Event* event)
{
    while (!mStop) {
        const auto next = mEntries.begin();
        if (next != mEntries.end() && next->first <= mGate.NowNanos()) {
            *event = std::move(next->second.mEvent);
            mEntries.erase(next);
            return true;
        }
        mGate.Block(WaitFor::Work, this, next == mEntries.end() ? kForever : next->first);
    }
    return false;
}

}  // namespace platform::machine::simulated
