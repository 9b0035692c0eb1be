#include "platform/vector/ClockFollower.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace platform::vector {
namespace {

constexpr uint64_t kStartNanos = 1'000'000'000'000'007;
constexpr int64_t kStartPosition = 100'000'000'000;
constexpr double kHz = 48000;

using Lateness = std::function<double(std::mt19937&)>;  // seconds

/// A driver whose crystal is off by `ppm`, and a follower that is fed with its stamps.
struct Driver {
    Driver(double offPPM, int64_t framesACycle, Lateness howLate, unsigned seed)
        : mPPM(offPPM), mCycle(framesACycle), mLate(std::move(howLate)), mRandom(seed)
    {
        mFollower.Start(kHz, static_cast<double>(kStartPosition), kStartNanos);
    }

    uint64_t NanosAt(int64_t frame) const  // exact: days of nanoseconds do not fit a double
    {
        return kStartNanos + static_cast<uint64_t>(static_cast<long double>(frame) * 1e9L / kHz / (1 + mPPM * 1e-6L));
    }
    void Cycle()
    {
        const auto lateNanos = static_cast<uint64_t>(mLate(mRandom) * 1e9);
        mFollower.AddStamp(kStartPosition + mFrames, NanosAt(mFrames) + lateNanos);
        mFrames += mCycle;
    }
    double Seconds() const { return static_cast<double>(mFrames) / kHz; }
    void RunTo(double seconds)
    {
        while (Seconds() < seconds) Cycle();
    }
    /// How far the handed-out line lies off, in frames.
    double PhaseError() const
    {
        return mFollower.PositionAt(NanosAt(mFrames)) - static_cast<double>(kStartPosition + mFrames);
    }
    double RateErrorPPM(double scalar) const { return (scalar - 1) * 1e6 - mPPM; }

    ClockFollower mFollower;
    double mPPM;
    int64_t mCycle;
    Lateness mLate;
    std::mt19937 mRandom;
    int64_t mFrames = 0;
};

double OnTime(std::mt19937&)
{
    return 0;
}
double UpToAMillisecond(std::mt19937& random)
{
    return std::uniform_real_distribution<>(0, 1e-3)(random);
}
double MostlyPrompt(std::mt19937& random)
{
    return random() % 100 == 0 ? UpToAMillisecond(random) : std::exponential_distribution<>(1 / 15e-6)(random);
}
double WithStalls(std::mt19937& random)
{
    return UpToAMillisecond(random) + (random() % 100 == 0 ? 10e-3 : 0);
}
double ToBothSides(std::mt19937& random)
{
    return std::max(0.0, std::normal_distribution<>(100e-6, 10e-6)(random));
}
double Filtered(std::mt19937& random)
{
    return std::uniform_real_distribution<>(0, 5e-6)(random);
}

/// Until `seconds`: by how many ppm the rate that was handed out is off, and by how many frames the place at worst.
std::pair<double, double> ErrorsUntil(Driver& driver, double seconds)
{
    double squares = 0, count = 0, worstFrames = 0;
    for (; driver.Seconds() < seconds; driver.Cycle(), ++count) {
        squares += std::pow(driver.RateErrorPPM(driver.mFollower.RateScalar()), 2);
        worstFrames = std::max(worstFrames, std::abs(driver.PhaseError()));
    }
    return {std::sqrt(squares / count), worstFrames};
}

TEST(ClockFollower, KnowsAGoodClockWithinAboutASecondAndHoldsItSteady)
{
    for (const auto& [late, knownWithin] : {std::pair(Lateness(OnTime), 1.25), {Lateness(Filtered), 5.0}})
        for (const int64_t cycle : {64, 512, 8192})
            for (const double ppm : {-300.0, -17.0, 0.0, 300.0}) {
                Driver driver(ppm, cycle, late, 5);
                for (; !driver.mFollower.IsKnown(); driver.Cycle()) ASSERT_EQ(driver.mFollower.RateScalar(), 1.0);
                EXPECT_LT(driver.Seconds(), knownWithin) << cycle;
                EXPECT_LT(std::abs(driver.RateErrorPPM(driver.mFollower.MeasuredScalar())), 2);
                driver.RunTo(60);
                EXPECT_LT(ErrorsUntil(driver, 120).first, 0.1) << cycle << ' ' << ppm;
                EXPECT_LT(std::abs(driver.PhaseError()), 0.2) << cycle << ' ' << ppm;
            }
}

TEST(ClockFollower, NoLateWakeUpShowsInTheRateWhateverTheBufferAndTheCrystal)
{
    for (const Lateness& late : {Lateness(MostlyPrompt), Lateness(UpToAMillisecond)})
        for (const int64_t cycle : {64, 512, 4096})
            for (const double ppm : {-300.0, -40.0, 300.0}) {
                Driver driver(ppm, cycle, late, 11);
                driver.RunTo(300);
                const auto [rate, worstFrames] = ErrorsUntil(driver, 900);
                EXPECT_LT(rate, 0.1) << cycle << ' ' << ppm;
                EXPECT_LT(worstFrames, 1) << cycle << ' ' << ppm << ": what was mis-said is paid back";
            }
}

TEST(ClockFollower, NeverClaimsToKnowARateThatIsOffByTwoPPM)
{
    std::vector<double> knownAfter;
    for (unsigned seed = 0; seed < 120; ++seed) {
        const double ppm = static_cast<double>(seed % 7) * 100 - 300;
        const Lateness late = std::array{UpToAMillisecond, WithStalls, ToBothSides}[seed % 3];
        Driver driver(ppm, int64_t{64} << (seed % 5), late, seed);
        while (driver.Seconds() < 90) {
            driver.Cycle();
            if (!driver.mFollower.IsKnown()) continue;
            if (knownAfter.size() == seed) knownAfter.push_back(driver.Seconds());
            ASSERT_LT(std::abs(driver.RateErrorPPM(driver.mFollower.MeasuredScalar())), 2) << seed;
        }
        ASSERT_EQ(knownAfter.size(), seed + 1) << "never known";
        EXPECT_LT(std::abs(driver.PhaseError()), kHz * 0.3e-3) << seed;  // paid back but for the lateness of all
    }
    std::ranges::sort(knownAfter);
    EXPECT_LT(knownAfter[60], 12);
    EXPECT_LT(knownAfter[110], 25);
}

TEST(ClockFollower, IsNotFooledByStampsWhoseOwnFilterStillSwings)
{
    for (const double startPPM : {-100.0, -20.0, 20.0, 100.0}) {
        for (const double settling : {0.3, 1.0, 3.0}) {  // seconds
            ClockFollower follower;
            follower.Start(kHz, 0, kStartNanos);
            for (int64_t frames = 0; frames < 90 * 48000; frames += 256) {
                const double seconds = static_cast<double>(frames) / kHz;
                const double swing = startPPM * 1e-6 * settling * (std::exp(-seconds / settling) - 1);
                follower.AddStamp(frames, kStartNanos + static_cast<uint64_t>(1e9 + (seconds + swing) * 1e9));
                if (!follower.IsKnown()) continue;
                ASSERT_LT(std::abs(follower.MeasuredScalar() - 1), 2e-6)
                    << startPPM << ' ' << settling << ' ' << seconds;
            }
            EXPECT_TRUE(follower.IsKnown()) << startPPM << " " << settling;
        }
    }
}

TEST(ClockFollower, ABadMinuteAndALateServerLeaveTheRateAlone)
{
    Driver driver(80, 512, OnTime, 3);
    double worst = 0;
    const auto runTo = [&](double seconds) {
        for (; driver.Seconds() < seconds; driver.Cycle())
            if (driver.mFollower.IsKnown())
                worst = std::max(worst, std::abs(driver.RateErrorPPM(driver.mFollower.MeasuredScalar())));
    };
    runTo(30);
    driver.mLate = [](std::mt19937& random) { return random() % 64 * 1e-3; };
    runTo(90);
    driver.mLate = [](std::mt19937&) { return 5e-3; };  // and 5 ms late for good
    runTo(240);
    EXPECT_LT(worst, 2);
    EXPECT_NEAR(driver.PhaseError(), -5e-3 * kHz, 0.1);
}

TEST(ClockFollower, HandsOutFloatsASecondAtATimeWhoseRoundingIsCarriedOn)
{
    Driver driver(200.062, 512, OnTime, 1);
    driver.RunTo(60);
    double held = driver.mFollower.RateScalar(), since = 0, sum = 0, count = 0;
    for (; driver.Seconds() < 660; driver.Cycle()) {
        const double scalar = driver.mFollower.RateScalar();
        ASSERT_EQ(scalar, static_cast<double>(static_cast<float>(scalar)));
        ASSERT_LT(std::abs(driver.RateErrorPPM(scalar)), 0.12) << "one step of a float";
        sum += scalar;
        ++count;
        if (scalar == held) continue;
        EXPECT_GT(driver.Seconds() - since, 0.99);
        held = scalar;
        since = driver.Seconds();
    }
    EXPECT_LT(std::abs(driver.RateErrorPPM(sum / count)), 0.005) << "a float alone would be off by 0.03";
}

TEST(ClockFollower, PaysBackAtABoundedSlewWithoutAStep)
{
    Driver driver(50, 480, OnTime, 1);
    driver.RunTo(20);
    uint64_t asked = driver.NanosAt(driver.mFrames);
    double last = driver.mFollower.PositionAt(asked), owed = 0;
    // The next driver's clock stands 10 ms behind what was handed out.
    driver.mFollower.Restart(kHz, kStartPosition + driver.mFrames - 480, driver.NanosAt(driver.mFrames));
    EXPECT_FALSE(driver.mFollower.IsKnown());
    for (int cycle = 1; cycle < 100 * 100; ++cycle) {
        const int64_t frames = driver.mFrames + 480 * cycle;
        driver.mFollower.AddStamp(kStartPosition + frames - 480, driver.NanosAt(frames));
        const uint64_t next = driver.NanosAt(frames) + 30'000'000 + cycle % 7 * 1000;  // as a consumer asks ahead
        const double position = driver.mFollower.PositionAt(next);
        const double scalar = (position - last) / (static_cast<double>(next - asked) * 1e-9 * kHz);
        ASSERT_LT(std::abs(scalar - 1), 560e-6) << cycle;
        asked = next;
        last = position;
        owed = driver.mFollower.MeasuredPositionAt(next) - position;
    }
    EXPECT_LT(std::abs(owed), 0.01);
}

TEST(ClockFollower, FollowsACrystalThatWandersForDays)
{
    // Two days, in which the rate goes 0.1 ppm a minute up and down. The time is kept in integers of the test's own.
    ClockFollower follower;
    follower.Start(kHz, static_cast<double>(kStartPosition), kStartNanos);
    long double nanos = 0;
    double worstRate = 0, worstPhase = 0;
    for (int64_t frames = 0; frames < static_cast<int64_t>(2 * 86400 * kHz); frames += 8192) {
        const double seconds = static_cast<double>(nanos) * 1e-9;
        const double ppm = 0.1 / 60 * (900 - std::abs(std::fmod(seconds, 3600) - 1800)) + 100;
        follower.AddStamp(kStartPosition + frames, kStartNanos + static_cast<uint64_t>(nanos));
        if (seconds > 60) {
            worstRate = std::max(worstRate, std::abs((follower.RateScalar() - 1) * 1e6 - ppm));
            worstPhase = std::max(worstPhase, std::abs(follower.PositionAt(kStartNanos + static_cast<uint64_t>(nanos)) -
                                                       static_cast<double>(kStartPosition + frames)));
        }
        nanos += 8192e9L / kHz / (1 + ppm * 1e-6L);
    }
    EXPECT_LT(worstRate, 0.3);
    EXPECT_LT(worstPhase, 0.2);
}

TEST(ClockFollower, IgnoresStampsThatDoNotGrow)
{
    Driver driver(100, 512, OnTime, 1);
    for (int cycle = 0; cycle < 500; ++cycle) {
        driver.Cycle();
        driver.mFollower.AddStamp(kStartPosition + driver.mFrames - 512, driver.NanosAt(driver.mFrames + 4000));
        driver.mFollower.AddStamp(kStartPosition + driver.mFrames + 9000, driver.NanosAt(driver.mFrames - 512));
        driver.mFollower.AddStamp(0, 0);
    }
    EXPECT_LT(std::abs(driver.RateErrorPPM(driver.mFollower.MeasuredScalar())), 0.01);
}

}  // namespace
}  // namespace platform::vector
