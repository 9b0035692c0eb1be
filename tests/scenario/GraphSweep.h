// GraphSweep: random graphs of four sources, each the same for the same seed, and the worst of what the oracle saw.
// Why: the tests play a few seeds, `make soak` as many as there is time for.
#pragma once

#include "scenario/GraphRig.h"

#include <functional>

namespace graph {

/// Frames are of the output.
struct Outcome {
    int mStatus = 0;
    bool mAllSound = false;     // all sources were heard at the end
    double mStartSpread = 0;    // how far apart the inputs were in the first cycles in which they sounded
    double mStartByStamps = 0;  // the same by the stamps that they gave
    double mStartInputs = 0;    // how far inputs and taps were off what the graph states of its frames, then
    double mStartTaps = 0;
    double mEndSpread = 0;  // the same at the end
    double mEndInputs = 0;
    double mEndTaps = 0;
    double mMoved = 0;         // the furthest that a source ever was from where it began
    double mStep = 0;          // the furthest that a frame was from the place after the one before it
    uint64_t mSilent = 0;      // cycles
    uint64_t mMostSilent = 0;  // as many as the longest buffer and late wake-ups account for
    uint64_t mBroken = 0;      // cycles
    uint64_t mSteps = 0;       // frames lost or doubled

    /// Nothing that could be heard as a fault, however the sources' clocks go.
    bool IsWhole() const { return mStatus == 0 && mAllSound && mSteps == 0 && mBroken == 0 && mSilent <= mMostSilent; }
    void Worsen(const Outcome& other);
    std::string Line() const;
};

struct SweepSetting {
    uint64_t mSeed = 1;
    nanoseconds mLength = 3s;
    nanoseconds mLateStamps = 1ms;                  // of devices
    double mCrystalPPM = 0;                         // how far all are off, to either side; 0: by chance, up to 300
    std::function<void(const Outcome&)> mEachHour;  // told how it stands
};

/// Plays a scenario, so that it has to have a process of its own.
Outcome PlaySeed(const SweepSetting& setting);

/// The same in a process of its own.
Outcome PlaySeedForked(const SweepSetting& setting);

}  // namespace graph
