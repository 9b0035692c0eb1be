#include "record/SampleFormat.h"

#include <cmath>
#include <cstring>

namespace record {

unsigned BytesPerSample(SampleFormat format)
{
    switch (format) {
        case SampleFormat::Float32:
            return 4;
        case SampleFormat::Signed24:
            return 3;
        case SampleFormat::Signed16:
            return 2;
    }
    return 0;
}

int32_t ToInteger(float sample, unsigned bits, uint64_t& clipped)
{
    const double scale = double(1u << (bits - 1));
    const double value = std::nearbyint(double(sample) * scale);
    if (value > scale - 1) return ++clipped, int32_t(scale - 1);
    if (value < -scale) return ++clipped, int32_t(-scale);
    return std::isnan(value) ? 0 : int32_t(value);
}

void ConvertSamples(SampleFormat format, const float* samples, size_t count, std::vector<uint8_t>& bytes,
                    uint64_t& clipped)
{
    const unsigned width = BytesPerSample(format);
    bytes.resize(count * width);
    if (format == SampleFormat::Float32) {
        if (count > 0) std::memcpy(bytes.data(), samples, count * width);
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        const int32_t value = ToInteger(samples[i], 8 * width, clipped);
        for (unsigned b = 0; b < width; ++b) bytes[i * width + b] = uint8_t(uint32_t(value) >> (8 * b));
    }
}

}  // namespace record
