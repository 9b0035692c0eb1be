#include "platform/machine/linux/pipewire/Loop.h"

#include <pipewire/pipewire.h>

#include <cstdlib>
#include <mutex>
#include <new>
#include <utility>

namespace platform::machine::pipewire {

namespace {

bool HostUsesTheLibrary()
{
    spa_support support;
    return pw_get_support(&support, 1) != 0;  // empty until the first initialisation
}

void InitialiseLibrary()
{
    static std::once_flag sOnce;
    std::call_once(sOnce, [] {
        const bool logIsTheHosts = HostUsesTheLibrary() || std::getenv("PIPEWIRE_DEBUG") != nullptr;
        pw_init(nullptr, nullptr);
        // A program that does not know of the library should not find its remarks among its own output. The level is
        // one for the whole process.
        if (!logIsTheHosts) pw_log_set_level(SPA_LOG_LEVEL_NONE);
    });
}

}  // namespace

Loop::Loop()
{
    InitialiseLibrary();
    mLoop = pw_thread_loop_new("corvane-server", nullptr);
    if (mLoop == nullptr) throw std::bad_alloc();
}

Loop::~Loop()
{
    Stop();
    pw_thread_loop_destroy(mLoop);
}

void Loop::Start()
{
    const BlockedSignals inherited;
    if (pw_thread_loop_start(mLoop) < 0) throw std::bad_alloc();
}

void Loop::Stop()
{
    pw_thread_loop_stop(mLoop);
}

pw_loop* Loop::Get() const
{
    return pw_thread_loop_get_loop(mLoop);
}

Loop::Guard::Guard(Loop& loop) : mLoop(loop)
{
    pw_thread_loop_lock(mLoop.mLoop);
}
Loop::Guard::~Guard()
{
    pw_thread_loop_unlock(mLoop.mLoop);
}

LoopSource::LoopSource(const Loop& loop, Action action) : mLoop(loop.Get()), mAction(std::move(action)) {}

LoopSource::~LoopSource()
{
    if (mSource != nullptr) pw_loop_destroy_source(mLoop, mSource);
}

void LoopSource::Run(void* self)
{
    static_cast<LoopSource*>(self)->mAction();
}

LoopEvent::LoopEvent(const Loop& loop, Action action) : LoopSource(loop, std::move(action))
{
    mSource = pw_loop_add_event(
        mLoop, [](void* self, uint64_t) { Run(self); }, static_cast<LoopSource*>(this));
}

void LoopEvent::Signal()
{
    if (mSource != nullptr) pw_loop_signal_event(mLoop, mSource);  // there is none where descriptors have run out
}

LoopTimer::LoopTimer(const Loop& loop, Action action) : LoopSource(loop, std::move(action))
{
    mSource = pw_loop_add_timer(
        mLoop, [](void* self, uint64_t) { Run(self); }, static_cast<LoopSource*>(this));
}

void LoopTimer::Arm(uint64_t nanosFromNow)
{
    if (mSource == nullptr) return;  // descriptors have run out
    constexpr uint64_t kSecond = 1'000'000'000;
    timespec value{static_cast<time_t>(nanosFromNow / kSecond), static_cast<long>(nanosFromNow % kSecond)};
    if (nanosFromNow == 0) value.tv_nsec = 1;  // all zero would disarm it
    pw_loop_update_timer(mLoop, mSource, &value, nullptr, false);
}

LoopReader::LoopReader(const Loop& loop, int descriptor, Action action) : LoopSource(loop, std::move(action))
{
    mSource = pw_loop_add_io(
        mLoop, descriptor, SPA_IO_IN, false, [](void* self, int, uint32_t) { Run(self); },
        static_cast<LoopSource*>(this));
}

}  // namespace platform::machine::pipewire
