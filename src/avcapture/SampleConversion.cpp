#include "avcapture/SampleConversion.h"

#include "platform/vector/VectorKernels.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstring>

namespace avcapture {
namespace {

constexpr size_t kPieceSamples = 1024;  // stays in the nearest cache between copy and conversion
constexpr float kFullScale = 32767;

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

}  // namespace

void ConvertSamples(uint32_t outputType, const void* ring, bool swapped, void* to, size_t samples) noexcept
{
    uintptr_t from = reinterpret_cast<uintptr_t>(ring);
    if (outputType == kOutputFloat) return CopyShared(from, swapped, static_cast<char*>(to), samples);
    if (outputType == kOutputNone) return;

    const auto order = outputType == kOutputInt16Big ? std::endian::big : std::endian::little;
    auto* out = static_cast<uint16_t*>(to);
    std::array<float, kPieceSamples> piece;
    while (samples > 0) {
        const size_t count = std::min(samples, kPieceSamples);
        CopyShared(from, swapped, reinterpret_cast<char*>(piece.data()), count);
        platform::vector::ToInt16(piece.data(), kFullScale, order != std::endian::native, out, count);
        from += count * sizeof(float);
        out += count;
        samples -= count;
    }
}

}  // namespace avcapture
