// SampleFormat: how one sample lies in a file, and the conversion from the float samples of a capture.
// Why: every kind of file rounds and clips by the same rule. All formats are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace record {

enum class SampleFormat { Float32, Signed24, Signed16 };

/// Bytes of one sample in the file.
unsigned BytesPerSample(SampleFormat format);

/// Rounds to the nearest integer of `bits`, full scale 2^(bits-1). NaN becomes 0.
///
/// @param clipped  raised by one where the sample lies beyond full scale
int32_t ToInteger(float sample, unsigned bits, uint64_t& clipped);

/// Replaces the content of `bytes` by `count` samples in `format`.
///
/// @param clipped  raised by the number of samples that an integer format clips
void ConvertSamples(SampleFormat format, const float* samples, size_t count, std::vector<uint8_t>& bytes,
                    uint64_t& clipped);

}  // namespace record
