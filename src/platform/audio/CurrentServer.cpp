#include "platform/audio/CurrentServer.h"

#include "platform/machine/Clock.h"
#include "platform/machine/Machine.h"

#include <atomic>

namespace platform::audio {

namespace {

constexpr uint64_t kFirstLookNanos = 2'000'000'000;

std::atomic<bool> sWaited{false};  // stored and read by any thread; two that wait both is harmless

}  // namespace

machine::ServerSnapshot LookAtServer()
{
    machine::Machine& current = machine::Machine::Current();
    machine::AudioServer& server = current.GetAudioServer();
    if (!sWaited.load(std::memory_order_relaxed)) {
        // What became of it stands in the snapshot.
        static_cast<void>(server.WaitUntilReady(current.GetClock().NowNanos() + kFirstLookNanos));
        sWaited.store(true, std::memory_order_relaxed);
    }
    return server.Snapshot();
}

}  // namespace platform::audio
