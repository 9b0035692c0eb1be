#include "avcapture/SampleConversion.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstring>

namespace avcapture {
namespace {

constexpr size_t kPieceSamples = 1024;

// Acquire loads of the samples themselves, against the writer's release stores: a sample of the next pass
// that got into the copy brings along the tail that was moved before it was written, so the look at the
// tail after the copy cannot miss it. A stand-alone fence would do the same, but no race detector models it.
template <class Word>
Word LoadShared(uintptr_t address)
{
    return std::atomic_ref(*reinterpret_cast<Word*>(address)).load(std::memory_order_acquire);
}

template <class Word>
void MoveWord(uintptr_t& from, char*& to)
{
    const Word word = LoadShared<Word>(from);
    std::memcpy(to, &word, sizeof(Word));
    from += sizeof(Word);
    to += sizeof(Word);
}

/// Unrolled by hand, since compilers do not unroll atomic loads; half the time of single ones.
void MoveSixteen(uintptr_t& from, char*& to)
{
    MoveWord<uint64_t>(from, to);
    MoveWord<uint64_t>(from, to);
    MoveWord<uint64_t>(from, to);
    MoveWord<uint64_t>(from, to);
    MoveWord<uint64_t>(from, to);
    MoveWord<uint64_t>(from, to);
    MoveWord<uint64_t>(from, to);
    MoveWord<uint64_t>(from, to);
}

void SwapSamples(char* samples, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        uint32_t word;
        std::memcpy(&word, samples + i * 4, 4);
        word = __builtin_bswap32(word);
        std::memcpy(samples + i * 4, &word, 4);
    }
}

void CopyShared(uintptr_t from, bool swapped, char* to, size_t samples)
{
    char* const start = to;
    size_t left = samples;
    if (left > 0 && from % sizeof(uint64_t) != 0) {
        MoveWord<uint32_t>(from, to);
        --left;
    }
    for (; left >= 16; left -= 16) MoveSixteen(from, to);
    for (; left >= 2; left -= 2) MoveWord<uint64_t>(from, to);
    if (left > 0) MoveWord<uint32_t>(from, to);
    if (swapped) SwapSamples(start, samples);
}

// The choice comes before the cast: a float beyond the integer's range must not be cast at all.
uint16_t ToInt16(float sample)
{
    const float scaled = sample * 32767.0f;
    const float inRange = std::fabs(scaled) < 2147483648.0f ? scaled : 0.0f;
    return uint16_t(uint32_t(int32_t(inRange)));
}

template <std::endian kOrder>
void ToInt16(const float* from, char* to, size_t samples)
{
    for (size_t i = 0; i < samples; ++i) {
        uint16_t value = ToInt16(from[i]);
        if constexpr (kOrder != std::endian::native) value = uint16_t(value << 8 | value >> 8);
        std::memcpy(to + i * 2, &value, 2);
    }
}

}  // namespace

void ConvertSamples(uint32_t outputType, const void* ring, bool swapped, void* to, size_t samples) noexcept
{
    uintptr_t from = reinterpret_cast<uintptr_t>(ring);
    char* out = static_cast<char*>(to);
    if (outputType == kOutputFloat) return CopyShared(from, swapped, out, samples);
    if (outputType == kOutputNone) return;

    std::array<float, kPieceSamples> piece;
    while (samples > 0) {
        const size_t count = std::min(samples, kPieceSamples);
        CopyShared(from, swapped, reinterpret_cast<char*>(piece.data()), count);
        if (outputType == kOutputInt16Little)
            ToInt16<std::endian::little>(piece.data(), out, count);
        else
            ToInt16<std::endian::big>(piece.data(), out, count);
        from += count * sizeof(float);
        out += count * sizeof(uint16_t);
        samples -= count;
    }
}

}  // namespace avcapture
