// StatusRegion: the tap service's status, as it stands in memory that the service writes meanwhile.
// Why: every field is loaded through one function, so that no field is ever read twice where once was
// meant, none is read beyond the region, and the byte order is settled in one place.
// The layout is a wire format: offsets from the start of the region, in the byte order of the service.
#pragma once

#include "avcapture/AVCaptureDetails.h"
#include "platform/kernel/Memory.h"
#include "tap/wire/TapStatus.h"

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace avcapture {

/// The other byte order.
constexpr uint32_t Swapped(uint32_t value)
{
    return __builtin_bswap32(value);
}
constexpr uint64_t Swapped(uint64_t value)
{
    return __builtin_bswap64(value);
}

/// Where the writer stands: passes completed, and the frame after the newest valid one.
struct WritePosition {
    uint32_t mLoop;
    uint32_t mHeadFrame;
    bool operator==(const WritePosition&) const = default;
};

class StatusRegion {
public:
    static constexpr size_t kSmallestBytes = 100;
    static constexpr size_t kBytesWithCounters = 108;

    StatusRegion() = default;
    /// @param address  on an 8-byte boundary, of a region that outlives this view
    /// @param bytes    of the region, at least kSmallestBytes
    /// @param swapped  whether the service has the other byte order
    StatusRegion(vm_address_t address, vm_size_t bytes, bool swapped)
        : mAddress(address), mBytes(bytes), mSwapped(swapped)
    {
    }

    uint32_t LegacyOutputFrames() const { return Load<uint32_t, 0>() >> 16; }
    uint32_t ChannelCount() const { return Load<uint32_t, 4>(); }
    uint64_t NSPerFrame() const { return Load<uint64_t, 8>(); }
    uint32_t LoopFrames() const { return Load<uint32_t, 20>(); }
    uint64_t NSPerLoop() const { return Load<uint64_t, 24>(); }
    uint32_t BlockFrames() const { return Load<uint32_t, 36>(); }
    uint64_t NSPerBlock() const { return Load<uint64_t, 40>(); }
    uint32_t TailFrame() const { return Load<uint32_t, 68>(); }
    uint32_t OutputFrames() const { return Load<uint32_t, 96>(); }

    /// loopCount (offset 72) and headFrame (offset 76) by one load: apart, a new pass could be seen with an
    /// old head at the moment of a wrap, which puts the reader ahead of the writer and drops what it holds.
    WritePosition LoadWritePosition() const
    {
        const auto halves = std::bit_cast<std::array<uint32_t, 2>>(LoadRaw<uint64_t, 72>());
        return mSwapped ? WritePosition{Swapped(halves[0]), Swapped(halves[1])} : WritePosition{halves[0], halves[1]};
    }

    /// What the service counts for a person; zeros where it keeps no counters.
    AVCaptureLosses LoadLosses() const
    {
        constexpr uint32_t kCounters = 5;
        if (mBytes < kBytesWithCounters || Load<uint32_t, 104>() != kCounters) return {};
        return {Load<uint32_t, 80>(), Load<uint32_t, 84>(), Load<uint32_t, 100>()};
    }

    /// Whether the service says which moments its frames stand for, and keeps a log.
    bool HasTimeline() const
    {
        return mBytes >= tap::wire::kStatusBytes && Load<uint32_t, tap::wire::kTimeline>() == tap::wire::kTimelineMark;
    }
    /// @pre HasTimeline, as the two below
    uint64_t MomentOfFrame0() const { return Load<uint64_t, tap::wire::kMomentOfFrame0>(); }
    uint64_t LogCount() const { return Load<uint64_t, tap::wire::kLogCount>(); }
    tap::wire::LogEntry LoadLogEntry(uint64_t number) const
    {
        const size_t place = tap::wire::kLog + number % tap::wire::kLogEntries * tap::wire::kLogEntryBytes;
        const uint64_t words = LoadAt(place + 16);
        return {LoadAt(place), LoadAt(place + 8), tap::wire::LogKind(uint32_t(words)), uint32_t(words >> 32)};
    }

private:
    uint64_t LoadAt(size_t place) const
    {
        const auto word =
            std::atomic_ref(*reinterpret_cast<uint64_t*>(mAddress + place)).load(std::memory_order_acquire);
        return mSwapped ? Swapped(word) : word;
    }

    template <class Word, size_t kOffset>
    Word Load() const
    {
        const Word word = LoadRaw<Word, kOffset>();
        return mSwapped ? Swapped(word) : word;
    }

    // Acquire, against the service's release: what lies before a position is seen whole once the position is.
    template <class Word, size_t kOffset>
    Word LoadRaw() const
    {
        static_assert(kOffset % sizeof(Word) == 0 && kOffset + sizeof(Word) <= tap::wire::kLog);
        return std::atomic_ref(*reinterpret_cast<Word*>(mAddress + kOffset)).load(std::memory_order_acquire);
    }

    vm_address_t mAddress = 0;
    vm_size_t mBytes = 0;
    bool mSwapped = false;
};

}  // namespace avcapture
