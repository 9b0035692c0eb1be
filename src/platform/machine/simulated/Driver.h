// Driver: one clock domain of the simulated server. It counts cycles on a crystal of its own.
// Why: whether a device or the hole into which silenced streams play, what has a clock has a rate that is not
// quite what it says, a quantum, and stamps that are never early and now and then late.
// Start at Settings.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/simulated/Signal.h"

#include <cstdint>
#include <functional>
#include <random>

namespace platform::machine::simulated {

class Agenda;

class Driver {
public:
    /// A change counts from the next cycle on; frames and time go on from where they are.
    struct Settings {
        uint32_t mRateHz = 48'000;
        uint32_t mQuantumFrames = 1024;
        double mCrystalPPM = 0;      // above 0: faster than the host clock
        double mSaidRateScalar = 1;  // what it says of its crystal
        uint64_t mJitterNanos = 0;   // a cycle is late, and stamped late, by up to this
        uint64_t mSeed = 0;          // of the lateness

        double FramesASecond() const { return mRateHz * (1 + mCrystalPPM * 1e-6); }
        bool operator==(const Settings&) const = default;
    };

    /// What a cycle is, while it runs.
    struct Cycle {
        uint64_t mHostNanos = 0;  // when it runs, which is its stamp
        int64_t mSampleTime = 0;
        Settings mSettings;
        uint32_t mClockID = 0;
        double mSeconds = 0;  // when its first frame truly happens, in host time since the scenario's start

        /// The same cycle as frames of a source that has counted so many before.
        Stretch FramesFrom(uint64_t first) const;
        /// The same cycle as a client of the server meets it.
        CaptureCycle WithChannels(std::span<const CaptureCycle::Channel> channels) const;
    };

    /// @param onCycle  called on the data thread at each cycle's stamp
    Driver(Agenda& agenda, std::function<void(Driver&)> onCycle) : mAgenda(agenda), mOnCycle(std::move(onCycle)) {}
    ~Driver();
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;

    Settings mSettings;

    /// Begins another timeline, with the first cycle after `delayNanos`.
    void Start(uint32_t clockID, uint64_t delayNanos = 0);
    void Stop();
    bool IsRunning() const { return mRunning; }
    /// Stood still for so long: the next cycle is as far off as it was before.
    void Shift(uint64_t nanos);

    /// Its count moves by `frames` at once; what happens, and when, does not.
    void Jump(int64_t frames);

    const Cycle& Now() const { return mCycle; }

private:
    void Run();
    void ScheduleNext();
    double NanosSinceAnchor() const;
    uint64_t IdealNanos() const;

    Agenda& mAgenda;
    std::function<void(Driver&)> mOnCycle;
    bool mRunning = false;
    Cycle mCycle;
    int64_t mNextFrame = 0;
    // Times are computed from here, never by adding up periods.
    uint64_t mAnchorNanos = 0;
    int64_t mAnchorFrame = 0;
    std::mt19937_64 mRandom;
};

}  // namespace platform::machine::simulated
