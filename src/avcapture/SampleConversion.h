// SampleConversion: samples of the shared ring, as the session's format has them.
// Why: the ring's writer may lap the reader while a block is copied. The copy must then be worthless, which
// its reader finds out afterwards, and never undefined.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

#include <cstddef>
#include <cstdint>

namespace avcapture {

constexpr uint32_t kOutputNone = 0;  // no samples leave the tap
constexpr uint32_t kOutputFloat = FourCC("fl32");
constexpr uint32_t kOutputInt16Little = FourCC("sowt");
constexpr uint32_t kOutputInt16Big = FourCC("twos");

/// Bytes of a sample of an output type.
constexpr unsigned int OutputSampleBytes(uint32_t outputType)
{
    if (outputType == kOutputNone) return 0;
    return outputType == kOutputFloat ? 4 : 2;
}

/// Copies samples out of the ring into an output buffer.
///
/// Integers are sample x 32767 in single precision, truncated towards zero, of which the low 16 bits are
/// kept: a sample at or beyond full scale wraps. What does not fit 32 bits, and what is no number, gives 0.
///
/// @param ring     `samples` floats on a 4-byte boundary, which another thread may overwrite meanwhile
/// @param swapped  whether the ring has the other byte order
/// @param to       OutputSampleBytes(outputType) x `samples` bytes, on a boundary of that size
/// @realtime       yes
void ConvertSamples(uint32_t outputType, const void* ring, bool swapped, void* to, size_t samples) noexcept;

}  // namespace avcapture
