#include "platform/audio/units/UnitRig.h"

#include <cmath>
#include <numbers>
#include <random>

using namespace support;

namespace {

constexpr double kRates[] = {44100, 48000, 96000};
constexpr UInt32 kBlocks[] = {512, 64, 127, 1};
constexpr double kVarispeedDelayFrames = 32;

/// Where the frames of a varispeed's output lie in its input, the speed going evenly over each block.
struct Positions {
    double mSpeed = 1, mBegin = 0;

    double Take(UInt32 frames, double speed, std::vector<double>& positions)
    {
        for (UInt32 i = 0; i < frames; ++i)
            positions.push_back(mBegin + i * (mSpeed + i * (speed - mSpeed) / (2.0 * frames)));
        mBegin += frames * (mSpeed + speed) / 2;
        mSpeed = speed;
        return mBegin;
    }
};

/// How many seconds later than `moments` say a sine of 1 kHz has arrived: by least squares over the later half.
double LateSeconds(const std::vector<float>& samples, const std::vector<double>& moments)
{
    constexpr double kRadiansASecond = 2 * std::numbers::pi * 1000;
    double ss = 0, sc = 0, cc = 0, ys = 0, yc = 0;
    for (size_t i = samples.size() / 2; i < samples.size(); ++i) {
        const double s = std::sin(kRadiansASecond * moments[i]), c = std::cos(kRadiansASecond * moments[i]);
        ss += s * s, sc += s * c, cc += c * c, ys += samples[i] * s, yc += samples[i] * c;
    }
    return -std::atan2(yc * ss - ys * sc, ys * cc - yc * sc) / kRadiansASecond;
}

}  // namespace

TEST(UnitChain, PassesEveryFrameUntouchedAtEqualRatesAndNormalSpeed)
{
    constexpr UInt32 kMostChannels = 11;
    for (const double rate : kRates) {
        for (const UInt32 flags : {kPlanar, kInterleaved}) {
            Chain chain(FloatFormat(rate, kMostChannels, flags), rate, {Noise});
            for (unsigned i = 0; i < 40; ++i) ASSERT_EQ(chain.Pull(kBlocks[i % 4]), 0);
            const auto delay = int64_t(rate * kConverterDelaySeconds + kVarispeedDelayFrames);
            const auto frames = int64_t(chain.mOutput[0].size());
            EXPECT_EQ(chain.mSource.mGiven, frames);
            for (UInt32 channel = 0; channel < kMostChannels; ++channel) {
                for (int64_t i = 0; i < frames; ++i)
                    ASSERT_EQ(chain.mOutput[channel][size_t(i)], i < delay ? 0 : Noise(channel, i - delay));
            }
        }
    }
}

TEST(UnitChain, AsksForItsRatioOfFramesAndDelaysByOneTimeWhateverTheRatio)
{
    for (const double from : kRates) {
        for (const double to : kRates) {
            for (const Float32 speed : {1.0f, 1.0003f, 0.9997f}) {
                Chain chain(FloatFormat(from, 1), to, {[from](unsigned, int64_t frame) {
                                return float(0.5 * std::sin(2 * std::numbers::pi * std::fmod(1000 * frame / from, 1)));
                            }});
                ASSERT_EQ(chain.SetSpeed(speed), 0);
                Positions positions;
                std::vector<double> moments;  // of the source's sound in each frame of output
                for (unsigned i = 0; i < 240; ++i) {
                    ASSERT_EQ(chain.Pull(kBlocks[i % 4]), 0);
                    const double needed = positions.Take(kBlocks[i % 4], speed, moments) * from / to;
                    // Each of the two rounds down to whole frames.
                    ASSERT_LE(double(chain.mSource.mGiven), needed + 1e-6);
                    ASSERT_GT(double(chain.mSource.mGiven), needed - from / to - 1);
                }
                for (double& moment : moments) moment = (moment - kVarispeedDelayFrames) / to - kConverterDelaySeconds;
                EXPECT_NEAR(LateSeconds(chain.mOutput[0], moments) * to, 0, 1e-5) << from << " " << to << " " << speed;
            }
        }
    }
}

TEST(UnitChain, ARefusedPullChangesNothing)
{
    std::mt19937 random(7);
    const auto speed = [](unsigned block) { return Float32(1 + 1e-4 * std::sin(block / 50.0)); };
    Chain refused(FloatFormat(44100, 2, kInterleaved), 48000, {Noise}), whole(FloatFormat(44100, 2), 48000, {Noise});
    for (unsigned block = 0; block < 2000; ++block) {
        for (Chain* const chain : {&whole, &refused}) ASSERT_EQ(chain->SetSpeed(speed(block)), 0);
        const UInt32 frames = kBlocks[random() % 4];
        ASSERT_EQ(whole.Pull(frames), 0);
        for (OSStatus status = 1; status != 0;) {
            status = random() % 2 ? 0 : random() % 2 ? OSStatus(1 + random() % 4) : -50;
            refused.mSource.mRefuse = [status] { return status; };
            const OSStatus result = refused.Pull(frames);
            if (frames > 1) {  // for a single one, none may be needed
                ASSERT_EQ(result, status);
            }
            status = result;
        }
    }
    EXPECT_EQ(refused.mSource.mGiven, whole.mSource.mGiven);
    EXPECT_EQ(refused.mOutput, whole.mOutput);
}

TEST(UnitChain, ForgetsWhatIsOnItsWayWhenReset)
{
    Chain chain(FloatFormat(44100, 1), 48000, {[](unsigned, int64_t) { return 1.0f; }});
    ASSERT_EQ(chain.Pull(5000), 0);
    chain.mSource.mSignal = [](unsigned, int64_t) { return 0.0f; };
    for (const AudioUnit unit : {chain.mConverter, chain.mVarispeed}) ASSERT_EQ(AudioUnitReset(unit, kGlobal, 0), 0);
    chain.mOutput[0].clear();
    ASSERT_EQ(chain.Pull(5000), 0);
    EXPECT_EQ(chain.mOutput[0], std::vector<float>(5000, 0.0f));
}

TEST(UnitChain, RendersASliceAtAnySpeedAroundOneAndSaysWhatItDelays)
{
    for (const UInt32 quality : {63u, 64u}) {
        Chain chain(FloatFormat(96000, 1), 48000, {Noise}, quality);
        EXPECT_EQ(chain.SetSpeed(1.05f), 0);
        for (const Float32 wrong : {0.0f, -1.0f, 1.1f, NAN, INFINITY})
            EXPECT_EQ(chain.SetSpeed(wrong), kAudioUnitErr_InvalidParameter);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(chain.Pull(8192), 0);
        EXPECT_NEAR(double(chain.mSource.mGiven), 96000 / 48000.0 * (3 * 1.05 - 0.025) * 8192, 3);
        EXPECT_EQ(chain.Pull(8193), kAudioUnitErr_TooManyFramesToProcess);

        Float64 converter = 0, varispeed = 0;
        EXPECT_EQ(Get(chain.mConverter, kAudioUnitProperty_Latency, kGlobal, 0, converter), 0);
        EXPECT_EQ(Get(chain.mVarispeed, kAudioUnitProperty_Latency, kGlobal, 0, varispeed), 0);
        EXPECT_EQ(converter, kConverterDelaySeconds);
        EXPECT_EQ(varispeed, (quality < 64 ? 32 : 48) / 48000.0);
    }
}
