// Strand: one source's frames on the recording's grid, from the thread that brings them to the thread that writes.
// Why: the thread that brings sound must never wait for a disk, and a frame that never came must not move those after
// it. Frames carry their place, and what is missing between them reads as silence.
// Start at Put and Take.
#pragma once

#include "platform/kernel/Realtime.h"
#include "platform/vector/FrameQueue.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

namespace record {

/// Frames of the grid: [mStart, mStart + mFrames).
struct FrameSpan {
    uint64_t mStart = 0;
    uint64_t mFrames = 0;

    uint64_t End() const { return mStart + mFrames; }
    bool operator==(const FrameSpan&) const = default;
};

class Strand {
public:
    /// Room for at least `frames` frames of `channels` floats. Allocates.
    Strand(unsigned channels, size_t frames) : mFrames(channels, frames, kUsuallyFilled) {}

    unsigned Channels() const noexcept { return mFrames.Channels(); }

    /// Appends frames at their place. Where there is no room they are dropped, and Take counts them as too late.
    ///
    /// @param frame    place of the first one on the grid; what lies before the end of the last Put is passed over
    /// @param samples  interleaved
    /// @thread         the one that brings the sound; one at a time
    /// @realtime       yes
    void Put(uint64_t frame, const float* samples, uint32_t frames) CORVANE_REALTIME;

    /// One past the last frame that was put, or was dropped for want of room; 0: none yet. @thread any @realtime yes
    uint64_t End() const noexcept { return mEnd.load(std::memory_order_acquire); }
    /// One past the last frame that was dropped for want of room; 0: none. @thread any @realtime yes
    uint64_t RefusedEnd() const noexcept { return mRefusedEnd.load(std::memory_order_relaxed); }

    /// Takes the frames of `span` out, and drops all frames before it. Spans follow one another.
    ///
    /// @param samples  room for the span, interleaved; what was never put becomes 0
    /// @param missing  what was never put is appended here
    /// @thread         the one that writes; one at a time
    void Take(const FrameSpan& span, float* samples, std::vector<FrameSpan>& missing);

private:
    static constexpr size_t kMostPieces = 8192;
    static constexpr size_t kUsuallyFilled = 32768;  // frames

    FrameSpan* FrontPiece() noexcept;
    void DropPieceUntil(FrameSpan& piece, uint64_t frame);
    void NoteTaken(FrameSpan& piece, uint64_t frames) noexcept;

    platform::vector::FrameQueue mFrames;
    std::array<FrameSpan, kMostPieces> mPieces{};
    // Pieces put and taken since the beginning, each stored by its own side (release), loaded by the other (acquire).
    alignas(64) std::atomic<uint64_t> mPut{0};
    alignas(64) std::atomic<uint64_t> mTaken{0};
    std::atomic<uint64_t> mEnd{0};         // stored by the side that puts (release), loaded by any (acquire)
    std::atomic<uint64_t> mRefusedEnd{0};  // stored by the side that puts, loaded by any; a bound, no order needed
    FrameSpan mFront{};                    // the reader's: what is left of the oldest piece
    bool mHasFront = false;
};

}  // namespace record
