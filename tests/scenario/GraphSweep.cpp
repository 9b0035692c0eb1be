#include "scenario/GraphSweep.h"

#include "support/Forked.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>

namespace graph {

namespace {

constexpr nanoseconds kLateWakeups = 1ms;
constexpr unsigned kSources = 4;
constexpr char kFormat[] =
    "status %d sounding %d; start: spread %lf by stamps %lf inputs %lf taps %lf; end: %lf %lf %lf; moved %lf step %lf "
    "silent %lu of %lu broken %lu steps %lu\n";

/// What a seed stands for.
class Dice {
public:
    explicit Dice(uint64_t seed) : mRandom(seed) {}

    double Between(double least, double most)
    {
        return least + (most - least) * static_cast<double>(mRandom() >> 11) * 0x1p-53;
    }
    nanoseconds Time(nanoseconds most)
    {
        return nanoseconds(static_cast<int64_t>(mRandom() % static_cast<uint64_t>(most.count())));
    }
    uint32_t Rate()
    {
        constexpr uint32_t kRates[] = {44'100, 48'000, 96'000};
        return kRates[mRandom() % 3];
    }

    template <class D>
    D& Set(D& device, const SweepSetting& setting)
    {
        const uint32_t rate = Rate();
        const double frames = std::exp2(Between(6, 12));  // 64 .. 4096
        mLongestSeconds = std::max(mLongestSeconds, std::round(frames) / rate);
        return device.rate(rate)
            .quantum(static_cast<uint32_t>(std::round(frames)))
            .crystal(Crystal(setting.mCrystalPPM))
            .jitter(setting.mLateStamps, mRandom())
            .startsLate(Time(500ms));
    }

    double mLongestSeconds = 0;

private:
    double Crystal(double ppm)
    {
        const double chance = Between(-300, 300);
        if (ppm == 0) return chance;
        return mDevices++ % 4 % 3 == 0 ? -ppm : ppm;  // two of four, a tap and an input, to either side
    }

    unsigned mDevices = 0;
    std::mt19937_64 mRandom;
};

double Seconds(nanoseconds length)
{
    return std::chrono::duration<double>(length).count();
}

void Judge(Rig& rig, nanoseconds until, Outcome& outcome)
{
    rig.RunUntil(until);
    outcome.mStatus = rig.mStatus;
    outcome.mAllSound = rig.AllSound();
    outcome.mStartSpread = rig.Spread(&Track::mFirstOff);
    outcome.mStartByStamps = rig.Spread(&Track::mFirstByStamps);
    outcome.mStartInputs = rig.MostOff(&Track::mFirstOff, false);
    outcome.mStartTaps = rig.MostOff(&Track::mFirstOff, true);
    outcome.mEndSpread = rig.Spread(&Track::mOff);
    outcome.mEndInputs = rig.MostOff(&Track::mOff, false);
    outcome.mEndTaps = rig.MostOff(&Track::mOff, true);
    outcome.mMoved = rig.Most(&Track::mMostMoved);
    outcome.mStep = rig.Most(&Track::mWorstStep);
    outcome.mSilent = rig.Most(&Track::mSilent);
    outcome.mBroken = rig.Most(&Track::mBroken);
    outcome.mSteps = rig.Most(&Track::mSteps);
}

}  // namespace

void Outcome::Worsen(const Outcome& other)
{
    const auto worsen = [&](auto... field) { ((this->*field = std::max(this->*field, other.*field)), ...); };
    mAllSound = mAllSound && other.mAllSound;
    worsen(&Outcome::mStatus, &Outcome::mStartSpread, &Outcome::mStartByStamps, &Outcome::mStartInputs,
           &Outcome::mStartTaps, &Outcome::mEndSpread, &Outcome::mEndInputs, &Outcome::mEndTaps, &Outcome::mMoved,
           &Outcome::mStep, &Outcome::mSilent, &Outcome::mMostSilent, &Outcome::mBroken, &Outcome::mSteps);
}

std::string Outcome::Line() const
{
    char line[400];
    std::snprintf(line, sizeof line, kFormat, mStatus, int{mAllSound}, mStartSpread, mStartByStamps, mStartInputs,
                  mStartTaps, mEndSpread, mEndInputs, mEndTaps, mMoved, mStep, mSilent, mMostSilent, mBroken, mSteps);
    return line;
}

Outcome PlaySeed(const SweepSetting& setting)
{
    Scenario s;
    Dice dice(setting.mSeed);
    Rig rig(s, setting.mSeed % 2 ? 48'000 : 44'100, setting.mSeed % 2 ? 512 : 441);
    s.lateWakeups(kLateWakeups, setting.mSeed);
    rig.mLatePulls = kLateWakeups;
    for (unsigned i = 0; i < kSources; ++i) {
        const std::string number = std::to_string(i);
        if (i % 2 == 0) {
            auto& output = dice.Set(s.output("output " + number), setting);
            s.application("application " + number, static_cast<pid_t>(200 + i)).plays(TheTone(), output);
            rig.AddTap(output);
        } else {
            rig.AddInput(dice.Set(s.input("input " + number), setting).plays(TheTone()));
        }
    }
    s.machine().GetAudioServer().SetLongestCycle(static_cast<uint64_t>(4096 * 1e9 / 44'100));
    s.runUntil(dice.Time(20ms));

    rig.mPause = dice.Time(20ms);

    Outcome outcome;
    outcome.mStatus = rig.Start();
    if (outcome.mStatus) return outcome;
    const nanoseconds end = s.now() + setting.mLength;
    for (nanoseconds hour = s.now() + 1h; setting.mEachHour && hour < end; hour += 1h) {
        Judge(rig, hour, outcome);
        setting.mEachHour(outcome);
    }
    Judge(rig, end, outcome);
    if (const int status = rig.Stop()) outcome.mStatus = status;
    const double cycles = (dice.mLongestSeconds + Seconds(kLateWakeups)) / rig.CycleSeconds();
    outcome.mMostSilent = kSources * static_cast<uint64_t>(std::ceil(cycles));
    return outcome;
}

Outcome PlaySeedForked(const SweepSetting& setting)
{
    const support::Forked forked = support::RunForked([&] { std::puts(PlaySeed(setting).Line().c_str()); });
    Outcome outcome;
    int sounding = 0;
    const int read = std::sscanf(
        forked.mOutput.c_str(), kFormat, &outcome.mStatus, &sounding, &outcome.mStartSpread, &outcome.mStartByStamps,
        &outcome.mStartInputs, &outcome.mStartTaps, &outcome.mEndSpread, &outcome.mEndInputs, &outcome.mEndTaps,
        &outcome.mMoved, &outcome.mStep, &outcome.mSilent, &outcome.mMostSilent, &outcome.mBroken, &outcome.mSteps);
    if (read != 15) std::fputs(forked.mOutput.c_str(), stderr), outcome.mStatus = -1;
    outcome.mAllSound = sounding;
    return outcome;
}

}  // namespace graph
