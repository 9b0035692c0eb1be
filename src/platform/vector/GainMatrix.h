// GainMatrix: the gains between all inputs and all outputs of a mixer, set by anyone and heard without a click.
// Why: volumes change while a cycle renders. Each crosspoint therefore moves evenly, over one block, from the gain
// that was last heard; and only those that are not zero cost anything.
// Start at SetGain and Mix.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "platform/vector/VectorKernels.h"

namespace platform::vector {

class GainMatrix {
public:
    /// In place of an input or an output: the gain of all of them.
    static constexpr unsigned kAll = 0xFFFF;

    /// Makes room for the gains: every crosspoint 0, all others 1, heard as they are set at the first Mix.
    ///
    /// @param inputs   channels, below kAll
    /// @param outputs  likewise
    /// @return         false where there are too many or memory is short; then not usable
    /// @thread         none other may be using it
    /// @realtime       no: allocates
    bool Configure(unsigned inputs, unsigned outputs);

    /// Sets one factor: of a crosspoint, of all of an input's or an output's (kAll for the other), or of everything
    /// (kAll for both). What is heard of an input in an output is the product of the four. Takes effect over the
    /// next block.
    ///
    /// @return    false where there is no such input or output, or the gain is not finite
    /// @thread    any
    /// @realtime  yes
    bool SetGain(unsigned input, unsigned output, float gain) noexcept;
    std::optional<float> Gain(unsigned input, unsigned output) const noexcept;

    /// Mixes one block, as MixMatrix does.
    ///
    /// @thread    one at a time
    /// @realtime  yes; O(inputs x outputs) more where a gain has changed or moved in the block before
    void Mix(const float* const* inputs, float* const* outputs, size_t frames) noexcept;

private:
    std::atomic<float>* At(unsigned input, unsigned output) const noexcept;
    float Product(unsigned input, unsigned output) const noexcept;
    void List() noexcept;

    unsigned mInputs = 0;
    unsigned mOutputs = 0;
    // Rows of outputs, then one for all; columns likewise. Stored by SetGain, loaded by Mix, both relaxed: mChanged
    // says when.
    std::unique_ptr<std::atomic<float>[]> mGains;
    std::atomic<bool> mChanged{false};  // stored by SetGain (release), taken by Mix (acquire)

    // Of the mixing thread alone.
    std::vector<float> mHeard;  // where the last block left each crosspoint, rows of outputs
    std::vector<Crosspoint> mList;
    bool mMoving = false;  // whether one of them moved in the last block
    bool mBegun = false;
};

}  // namespace platform::vector
