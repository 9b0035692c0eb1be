// Resampler: variable-ratio conversion of float channels, exact at ratio 1.
// Why: every source here has a crystal of its own. The kernel has its zeros at the integers, so that at
// phase 0 it is the identity and unity is bit exact by construction; the ratio is ramped over a block, so
// that a moving ratio makes no products; nothing is allocated after Configure.
// Pull it in two steps: InputFramesFor, then Process with exactly that many.
#pragma once

#include <cstdint>
#include <memory>

namespace platform::vector {

enum class ResamplerStage {
    Low,   ///< 64 taps: distortion and noise below -130 dB up to 15 kHz of 48, 32 frames of delay near ratio 1
    High,  ///< 96 taps: below -138 dB up to 21 kHz of 48, 48 frames
};

class Resampler {
public:
    Resampler();
    ~Resampler();
    Resampler(Resampler&&) noexcept;
    Resampler& operator=(Resampler&&) noexcept;

    /// Makes the tables and the history for conversions around one ratio; clears all state.
    ///
    /// @param channels         1 .. 64
    /// @param nominalRatio     input frames an output frame, 1/16 .. 16; ratios given later may differ from
    ///                         it by up to 5 percent. At most 1.05: the interpolating kernel without
    ///                         band limit (an image-free one below 1); above: band limited to the output rate.
    /// @param maxOutputFrames  most frames of one Process, 1 .. 65,536
    /// @param delayFrames      input frames to delay by, a fraction included, at most 65,536; less than the kernel
    ///                         needs is taken as what it needs. Chains of any ratio and stage delay by one and the
    ///                         same time where each is given that time x its input rate.
    /// @return                 false where a parameter is out of range or memory is short; then not usable
    /// @realtime               no: allocates
    bool Configure(unsigned channels, double nominalRatio, unsigned maxOutputFrames, ResamplerStage stage,
                   double delayFrames = 0);

    /// The input frames that the kernel itself needs to delay by: the least that Configure makes it.
    static unsigned LeastDelayFrames(double nominalRatio, ResamplerStage stage) noexcept;

    /// Silence in the history, the phase back at its start, ratio back at the nominal. Allocates nothing.
    void Reset() noexcept;

    /// Delay in input frames: output frame k of a Configured stream lies at input position k * ratio - Delay.
    /// What Configure was asked for, to 2^-33 frames, or LeastDelayFrames. A whole one begins at phase 0, so that unity
    /// is bit exact; a fraction is where the phase begins.
    double DelayFrames() const noexcept;

    /// Input frames that Process will consume for this block: exactly the whole part of the position's
    /// advance. The advance is the integral of the ratio on its way from `last` to `ratio`, which is
    /// outputFrames x (last + ratio) / 2 without any rounding, so that the frames consumed differ from the
    /// integral by less than one, for ever. To land on a whole frame choose a ratio by this formula from Phase():
    /// what it misses by less than 2^-33 frames counts as landed, and is remembered.
    ///
    /// @realtime yes
    unsigned InputFramesFor(unsigned outputFrames, double ratio) const noexcept;
    /// The most that InputFramesFor can answer for `outputFrames`.
    unsigned MaxInputFramesFor(unsigned outputFrames) const noexcept;

    /// Converts one block. The ratio moves linearly from where the last block left it (after Configure and
    /// Reset the nominal one) to `ratio`; one outside the promised range is taken as the nearest inside it.
    ///
    /// @param input   one pointer a channel, each to InputFramesFor(outputFrames, ratio) frames
    /// @param output  one pointer a channel, each with room for outputFrames; must not overlap the input
    /// @realtime      yes
    void Process(const float* const* input, float* const* output, unsigned outputFrames, double ratio) noexcept;

    /// The fraction of an input frame that the next output frame lies beyond a whole one, 0 .. below 1; exactly
    /// 0 where ratio 1 is bit exact.
    double Phase() const noexcept;

private:
    struct State;
    std::unique_ptr<State> mState;
};

}  // namespace platform::vector
