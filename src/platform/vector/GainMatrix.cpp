#include "platform/vector/GainMatrix.h"

#include <cmath>
#include <new>

namespace platform::vector {

bool GainMatrix::Configure(unsigned inputs, unsigned outputs)
{
    mGains.reset();
    if (inputs >= kAll || outputs >= kAll) return false;
    const size_t crosspoints = size_t{inputs} * outputs, factors = (size_t{inputs} + 1) * (outputs + 1);
    try {
        mHeard.assign(crosspoints, 0);
        mList.clear();
        mList.reserve(crosspoints);
        mGains = std::make_unique<std::atomic<float>[]>(factors);
    } catch (const std::bad_alloc&) {
        return false;
    }
    mInputs = inputs;
    mOutputs = outputs;
    for (unsigned input = 0; input < inputs; ++input) SetGain(input, kAll, 1);
    for (unsigned output = 0; output < outputs; ++output) SetGain(kAll, output, 1);
    SetGain(kAll, kAll, 1);
    mMoving = mBegun = false;
    return true;
}

bool GainMatrix::SetGain(unsigned input, unsigned output, float gain) noexcept
{
    std::atomic<float>* const factor = At(input, output);
    if (!factor || !std::isfinite(gain)) return false;
    factor->store(gain, std::memory_order_relaxed);
    mChanged.store(true, std::memory_order_release);
    return true;
}

std::optional<float> GainMatrix::Gain(unsigned input, unsigned output) const noexcept
{
    const std::atomic<float>* const factor = At(input, output);
    if (!factor) return std::nullopt;
    return factor->load(std::memory_order_relaxed);
}

void GainMatrix::Mix(const float* const* inputs, float* const* outputs, size_t frames) noexcept
{
    if (frames == 0) return;
    if (mChanged.exchange(false, std::memory_order_acquire) || mMoving) List();
    MixMatrix(mList.data(), mList.size(), inputs, outputs, mOutputs, frames);
}

std::atomic<float>* GainMatrix::At(unsigned input, unsigned output) const noexcept
{
    if (!mGains || (input >= mInputs && input != kAll) || (output >= mOutputs && output != kAll)) return nullptr;
    const size_t row = output == kAll ? mOutputs : output, column = input == kAll ? mInputs : input;
    return &mGains[row * (mInputs + 1) + column];
}

float GainMatrix::Product(unsigned input, unsigned output) const noexcept
{
    float product = 1;
    for (const unsigned from : {input, kAll})
        for (const unsigned to : {output, kAll}) product *= At(from, to)->load(std::memory_order_relaxed);
    return product;
}

/// The crosspoints of the next block. Their room was made beforehand.
void GainMatrix::List() noexcept
{
    mList.clear();
    mMoving = false;
    for (unsigned output = 0; output < mOutputs; ++output) {
        for (unsigned input = 0; input < mInputs; ++input) {
            float& heard = mHeard[size_t{output} * mInputs + input];
            const float next = Product(input, output);
            const float gain = mBegun ? heard : next;
            if (gain != 0 || next != 0) mList.push_back({input, output, gain, next});
            mMoving |= gain != next;
            heard = next;
        }
    }
    mBegun = true;
}

}  // namespace platform::vector
