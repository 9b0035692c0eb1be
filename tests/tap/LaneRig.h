// LaneRig: one lane between a scripted device and a pacer's calls, run as fast as it goes.
// The device's stamps come from its own clock; `mStampOf` spoils them as real ones are spoilt.
// Start at Play.
#pragma once

#include "support/SignalAnalysis.h"
#include "tap/Lane.h"

#include <cmath>
#include <complex>
#include <functional>
#include <numbers>
#include <span>
#include <utility>
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
    bool mResumes = false;    // with the next cycle
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
                      .mChannels = channels,
                      .mResumed = std::exchange(mResumes, false)});
        mPlayed += mDevice.mQuantum;
        Miss(mDevice.mQuantum);
    }
};

/// A sine from `startSeconds` on, by rotation: an hour of it is to take no longer than it must.
inline void FillSine(double startSeconds, double stepSeconds, double frequencyHz, std::span<float> samples)
{
    std::complex<double> now = std::polar(0.5, 2 * std::numbers::pi * std::fmod(startSeconds * frequencyHz, 1));
    const auto step = std::polar(1.0, 2 * std::numbers::pi * stepSeconds * frequencyHz);
    for (float& sample : samples) {
        sample = float(now.imag());
        now *= step;
    }
}

/// By how many seconds such a sine, fitted from the tap's frame `frame` on, lags the moment that the frame stands for;
/// wraps at half a period.
inline double LateSeconds(const support::SineFit& fit, uint64_t frame, double frequencyHz, double tapHz)
{
    const double heard = double(frame) / tapHz - double(LaneRig::kLatency) * 1e-9;
    return -std::remainder(fit.mPhase / (2 * std::numbers::pi) - std::fmod(heard * frequencyHz, 1), 1) / frequencyHz;
}
