// GraphRig: a capture graph on a simulated machine, pulled once a cycle, and the oracle that judges what comes out.
// Every source hears the same tone of host time: a sample pair of the output thus tells the moment that it stands for,
// source by source, whatever happened to it on the way. Each source keeps two channels of its own in the output.
// Start at AddTap and AddInput, then Start, then RunUntil.
#pragma once

#include "capture/CVNMatrixedCapture.h"
#include "platform/audio/DeviceInput.h"
#include "platform/machine/simulated/Scenario.h"
#include "scenario/GraphPicture.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace graph {

using namespace std::chrono_literals;
using namespace platform::machine::simulated;
using std::chrono::nanoseconds;

/// The tone that all sources hear: slow, so that a phase is a time of its own within two seconds.
constexpr double kToneHz = 0.5;
constexpr double kAmplitude = 0.5;
inline Signal TheTone()
{
    return HostTone(kToneHz, kAmplitude);
}

/// What a cycle of one source holds.
enum class Content { Nothing, Sound, Both };

/// Hears an input device itself, beside the graph: how far the stamps that it gives lie off the moments that its sound
/// tells.
class Witness final : platform::audio::DeviceInputClient {
public:
    explicit Witness(const std::string& uid);

    /// Seconds that the stamp of the frame at host time `hostNanos` is late.
    double StampOff(uint64_t hostNanos) const;

private:
    struct Heard {
        std::atomic<uint64_t> mHostNanos{0};
        std::atomic<double> mOff{0};
    };

    void TakeBuffer(const AudioTimeStamp& time, UInt32 frames,
                    std::span<const float* const> channels) noexcept override;

    std::array<Heard, 1024> mHeard;   // the latest buffers, in a round; each value stands alone
    std::atomic<size_t> mBuffers{0};  // stored by the data thread (release) after what it counts, loaded (acquire)
    platform::audio::DeviceInput mInput;
};

/// One source in the output, cycle by cycle.
class Track {
public:
    /// @param cosines, sines  the source's two channels of one cycle
    /// @param seconds         the moment that its first frame stands for, as the graph has it
    /// @param stampOff        seconds that the source's own stamps are off it
    void Hear(std::span<const float> cosines, std::span<const float> sines, double seconds, double stampOff,
              double frameSeconds);

    bool IsSounding() const { return mLast == Content::Sound; }

    Content mLast = Content::Nothing;
    double mHeld = 0;      // frames of the source's, that the ring holds for the read head
    double mOff = 0;       // frames, in the last sounding cycle: from the moment that it tells to the one it stands for
    double mFirstOff = 0;  // in the first one
    double mFirstByStamps = 0;  // the same, from the moment that the source's stamps tell
    double mMostMoved = 0;      // furthest from that so far
    uint64_t mSilent = 0;       // cycles without any sound, after the first sound
    uint64_t mBroken = 0;       // cycles that are sound in part, after the first whole one
    uint64_t mSteps = 0;        // frames that are not the next after the one before them, silence between taken out
    double mWorstStep = 0;      // how far, in frames

private:
    bool mBegun = false;
    float mCosine = 0, mSine = 0;  // of the last frame with sound
};

class Rig {
public:
    /// Pulls `frames` at `rateHz` in each cycle, from the start of the scenario on.
    Rig(Scenario& scenario, uint32_t rateHz, unsigned frames);
    ~Rig();

    /// The sound of all that plays on an output; a source that an application feeds with TheTone.
    void AddTap(const Output& output) { mPlans.push_back({output.UID(), true}); }
    void AddInput(const Input& input) { mPlans.push_back({input.UID(), false}); }

    /// Builds the graph and starts it. @return the first status that is not 0
    int Start();
    int Stop();
    void RunUntil(nanoseconds sinceStart);

    double FrameSeconds() const { return 1.0 / mRateHz; }
    double CycleSeconds() const { return mFrames * FrameSeconds(); }
    /// How far the inputs, or else the taps, are off the moments that the graph states, at the worst.
    double MostOff(double Track::*off, bool taps) const;
    /// How far apart the inputs are.
    double Spread(double Track::*off) const;
    bool AllSound() const;
    /// Draws the course so far.
    void Draw(const std::string& path) const { mPicture.Write(path, mScenario.trace().Text()); }
    /// A number that no source exceeds.
    template <class T>
    T Most(T Track::*number) const
    {
        return (*std::ranges::max_element(mTracks, {}, number)).*number;
    }

    CVNMatrixedCapture mCapture;
    std::vector<Track> mTracks;
    nanoseconds mPause = 0ns;      // from building the graph to starting it
    nanoseconds mLatePulls = 0ns;  // how late a pull may be
    int mStatus = 0;               // the first of a pull that was not 0

private:
    struct Plan {
        std::string mUID;
        bool mIsTap;
    };

    int Add(const Plan& plan);
    void Pull();
    int Render();
    void Listen();

    Scenario& mScenario;
    Picture mPicture;
    uint32_t mRateHz;
    unsigned mFrames;
    uint64_t mCycles = 0;
    uint64_t mGiven = 0;  // frames of sound since the graph was aligned
    std::minstd_rand mRandom;
    std::vector<Plan> mPlans;
    std::vector<std::unique_ptr<Witness>> mWitnesses;  // of each source; null for a tap
    AudioBufferList* mOutput = nullptr;
};

}  // namespace graph
