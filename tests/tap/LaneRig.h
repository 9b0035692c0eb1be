// LaneRig: one lane between a scripted device and a pacer's calls, run as fast as it goes.
// The device's stamps come from its own clock; `mStampOf` spoils them as real ones are spoilt.
// Start at Play.
#pragma once

#include "tap/Lane.h"

#include <cmath>
#include <complex>
#include <functional>
#include <numbers>
#include <span>
#include <vector>

struct LaneRig {
    static constexpr uint64_t kStart = 1'000'000'000'000'007;
    static constexpr uint64_t kLatency = 52'666'666;

    /// What plays now. Positions are the driver's; the signal goes by the moments at which frames happen.
    struct Device {
        uint32_t mRateHz = 48000;
        double mScalar = 1;  // of its crystal
        uint32_t mQuantum = 1024;
        uint32_t mClockID = 1;
        int64_t mPosition = 777;       // of the next cycle
        double mNanos = kStart + 5e6;  // at which the next cycle truly begins
    };

    explicit LaneRig(uint32_t tapHz = 48000, unsigned channels = 1)
        : mTapHz(tapHz),
          mSchedule(tap::FixedRate(tapHz) << 32, kStart),
          mChannels(channels),
          mLane(mSchedule, kLatency, tap::StereoMix(channels), channels)
    {
    }

    /// Runs for so long: cycles arrive when they begin, late by mLateNanos, and blocks are taken when due.
    void Play(double seconds)
    {
        const auto blocks = uint64_t(seconds * mTapHz / tap::kBlockFrames);
        for (uint64_t i = 0; i < blocks; ++i) TakeBlock();
    }

    void TakeBlock()
    {
        const uint64_t due = mSchedule.TimeOf(mFrames + tap::kBlockFrames);
        while (mPlaying && mDevice.mNanos + double(mLateNanos) <= double(due)) Deliver();
        std::vector<float> block(tap::kBlockFrames * mChannels);
        mLane.RenderBlock(mFrames, block.data());
        if (mOnBlock)
            mOnBlock(mFrames, block);
        else
            mOutput.insert(mOutput.end(), block.begin(), block.end());
        mFrames += tap::kBlockFrames;
    }

    /// A late server: a cycle comes under the stamp of the one after it, which is still to come under that stamp too.
    void DeliverUnderTheNextStamp() { Deliver(mDevice.mQuantum); }

    /// The device runs on without us for so many frames.
    void Miss(int64_t frames)
    {
        mDevice.mPosition += frames;
        mDevice.mNanos += double(frames) * FrameNanos();
    }

    double FrameNanos() const { return 1e9 / (mDevice.mRateHz * mDevice.mScalar); }

    uint32_t mTapHz;
    tap::Schedule mSchedule;
    unsigned mChannels;
    tap::Lane mLane;
    Device mDevice;
    bool mPlaying = true;
    uint64_t mLateNanos = 0;  // of delivery; stamps are not touched by it
    std::function<uint64_t(double)> mStampOf = [](double nanos) { return uint64_t(nanos); };
    /// Samples of a cycle: by the moment of the first in seconds since kStart, the seconds of a frame, and the
    /// number of the first since the beginning.
    std::function<void(double, double, uint64_t, std::span<float>)> mSignal;
    std::function<void(uint64_t, const std::vector<float>&)> mOnBlock;
    std::vector<float> mOutput;
    uint64_t mFrames = 0, mPlayed = 0;

private:
    void Deliver(uint32_t stampedLateFrames = 0)
    {
        std::vector<float> samples(mDevice.mQuantum);
        mSignal((mDevice.mNanos - double(kStart)) * 1e-9, FrameNanos() * 1e-9, mPlayed, samples);
        const tap::StereoMix::Channel channels[] = {{platform::machine::ChannelPosition::FrontLeft, samples.data()},
                                                    {platform::machine::ChannelPosition::FrontRight, samples.data()}};
        mLane.Render({.mHostNanos = mStampOf(mDevice.mNanos + stampedLateFrames * FrameNanos()),
                      .mSampleTime = mDevice.mPosition + stampedLateFrames,
                      .mRateScalar = 1,
                      .mRateHz = mDevice.mRateHz,
                      .mFrames = mDevice.mQuantum,
                      .mClockID = mDevice.mClockID,
                      .mChannels = channels});
        mPlayed += mDevice.mQuantum;
        Miss(mDevice.mQuantum);
    }
};

/// Where a sine of known frequency stands, against the tap's own clock, piece by piece.
class PhaseMeter {
public:
    static constexpr size_t kWindow = 512;

    struct Piece {
        double mLateSeconds;  // the sine lags the moment that its frame stands for; wraps at half a period
        double mNoiseDB;      // what is not the sine, against it
    };

    /// Least squares over kWindow frames.
    static Piece Measure(const float* samples, uint64_t firstFrame, double frequencyHz, double tapHz)
    {
        double ss = 0, cc = 0, sc = 0, sx = 0, cx = 0, energy = 0;
        for (size_t i = 0; i < kWindow; ++i) {
            const double angle = Angle(firstFrame + i, frequencyHz, tapHz);
            const double s = std::sin(angle), c = std::cos(angle), x = samples[i];
            ss += s * s, cc += c * c, sc += s * c, sx += s * x, cx += c * x, energy += x * x;
        }
        const double determinant = ss * cc - sc * sc;
        const double in = (sx * cc - cx * sc) / determinant, quadrature = (cx * ss - sx * sc) / determinant;
        const double rest = std::max(0.0, energy - in * sx - quadrature * cx);
        return {-std::atan2(quadrature, in) / (2 * std::numbers::pi * frequencyHz),
                10 * std::log10(rest / energy + 1e-30)};
    }

    /// A sine from `startSeconds` on, by rotation: an hour of it is to take no longer than it must.
    static void Fill(double startSeconds, double stepSeconds, double frequencyHz, std::span<float> samples)
    {
        std::complex<double> now = std::polar(0.5, 2 * std::numbers::pi * std::fmod(startSeconds * frequencyHz, 1));
        const auto step = std::polar(1.0, 2 * std::numbers::pi * stepSeconds * frequencyHz);
        for (float& sample : samples) {
            sample = float(now.imag());
            now *= step;
        }
    }

private:
    static double Angle(uint64_t frame, double frequencyHz, double tapHz)
    {
        const double heard = double(frame) / tapHz - double(LaneRig::kLatency) * 1e-9;
        return 2 * std::numbers::pi * std::fmod(heard * frequencyHz, 1);
    }
};
