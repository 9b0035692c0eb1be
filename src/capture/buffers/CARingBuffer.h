// CARingBuffer: audio addressed by sample time, between one writer thread and one reader thread.
// Why: sources push at their own pace; the mixer pulls on the I/O thread and must never wait.
// Start at Store and Fetch. The memory-order argument stands at the top of CARingBuffer.cpp.
//
// The class is a template over the memory that the two threads share, so that the very code that runs is what
// the weak-memory tests explore. Everyone else says CARingBuffer.
#pragma once

#include "capture/buffers/RingMemory.h"
#include "platform/audio/CoreAudioTypes.h"

#include <cstddef>
#include <cstdint>

enum RingStatus : int {
    RingWayBehind = -2,       ///< the read ends before the valid span
    RingSlightlyBehind = -1,  ///< it starts before the span and ends inside it
    RingOK = 0,
    RingSlightlyAhead = 1,  ///< it starts inside and ends past the end
    RingWayAhead = 2,       ///< it starts past the end
    RingTooMuch = 3,        ///< it is larger than the span on both sides, or a store is larger than the ring
    RingCPUOverload = 4,    ///< the writer was too fast for a consistent reading of the span
};

template <class Memory>
class BasicRingBuffer {
public:
    BasicRingBuffer() = default;
    ~BasicRingBuffer() { Deallocate(); }
    BasicRingBuffer(const BasicRingBuffer&) = delete;
    BasicRingBuffer& operator=(const BasicRingBuffer&) = delete;

    /// Makes the storage, touched and silent, and an empty span at time 0. Neither thread may be at work.
    ///
    /// @param bytesPerFrame  bytes of a frame in one of the `channels` buffers
    /// @param frames         rounded up to a power of two
    /// @throws               std::bad_alloc; the ring is then without storage
    void Allocate(int channels, uint32_t bytesPerFrame, uint32_t frames);

    /// Gives the storage up. Neither thread may be at work.
    void Deallocate();

    /// Empties the span, at time 0; the samples stay. From the reader's side it may be undone by a store in flight.
    void Reset() noexcept;

    /// Publishes the valid span [start, end). @thread the writer @realtime yes
    void SetTimeBounds(int64_t start, int64_t end) noexcept;

    /// Reads the valid span. @return RingOK or RingCPUOverload @thread any @realtime yes
    int GetTimeBounds(int64_t& start, int64_t& end) const noexcept;

    /// How [startRead, endRead) lies to the valid span. @return a RingStatus @thread any @realtime yes
    int CheckTimeBounds(int64_t startRead, int64_t endRead) const noexcept;

    /// Puts frames into the ring. A gap since the last store becomes silence; a step back in time empties the ring.
    /// Of a gap of more than 1 MiB each store silences that much. The span grows by it, and holds the frames beyond the
    /// gap when that is done. Where the ring holds nothing from before the gap, the span begins 1 MiB before the
    /// frames.
    ///
    /// @param list        one buffer a channel, or one interleaved buffer whose frames are bytesPerFrame wide
    /// @param frames      at most the capacity
    /// @param startWrite  sample time of the first frame
    /// @return            RingOK, or RingTooMuch with nothing changed
    /// @thread            the writer; one at a time
    /// @realtime          yes: no lock, allocation or system call; O(frames + gap), at most 1 MiB of a gap
    int Store(const AudioBufferList* list, uint32_t frames, int64_t startWrite) noexcept;

    /// Copies frames out of the ring, or says by status why it cannot.
    ///
    /// @param list       as for Store; byte sizes are left as they are
    /// @param frames     frames to copy, 1 .. capacity
    /// @param startRead  sample time of the first frame
    /// @return           RingOK, or the status of the span: before the copy, with `list` untouched, or after it,
    ///                   and then `list` holds bytes that may be torn
    /// @thread           the reader; one at a time
    /// @realtime         yes: no lock, allocation or system call; O(frames)
    int Fetch(AudioBufferList* list, uint32_t frames, int64_t startRead, bool) noexcept;

    uint32_t GetCapacityFrames() const noexcept { return mCapacityFrames; }

private:
    // Every field is stored by the writer alone, save for Reset, and loaded by both threads; orders as argued.
    struct TimeBounds {
        typename Memory::template Atomic<int64_t> mStartTime{0};
        typename Memory::template Atomic<int64_t> mEndTime{0};
        typename Memory::template Atomic<uint32_t> mUpdateCounter{0};
    };
    static constexpr uint32_t kQueueEntries = Memory::kTimeBoundsEntries;
    static constexpr uint32_t kQueueMask = kQueueEntries - 1;
    static constexpr int kReadTries = 8;
    static constexpr uint32_t kSilenceBytes = 1u << 20;  // a tenth of a millisecond's work

    // One piece of the storage of a channel, in bytes.
    struct Piece {
        uint32_t mOffset;
        uint32_t mBytes;
    };
    // The frames of a span of the timeline: one piece, or two around the end of the storage.
    struct Pieces {
        Piece mFirst;
        Piece mSecond;
    };
    Pieces PiecesOf(int64_t start, int64_t end) const noexcept;
    uint32_t OffsetOf(int64_t time) const noexcept;

    const TimeBounds& WritersBounds() const noexcept;
    void GiveUpWhatIsOverwritten(int64_t startWrite, int64_t endWrite) noexcept;
    bool IsEmpty() const noexcept;
    bool HasOpenGap() const noexcept;
    void CloseGap() noexcept;
    int64_t SilenceUpTo(int64_t end, int64_t mostFrames) noexcept;
    void Silence(int64_t start, int64_t end) noexcept;
    void CopyIn(const AudioBufferList& list, const Pieces& pieces) noexcept;
    void CopyOut(AudioBufferList& list, const Pieces& pieces) const noexcept;

    std::byte** mChannelPointers = nullptr;  // owned: one block of this table and then each channel's samples
    int32_t mNumberChannels = 0;
    uint32_t mBytesPerFrame = 0;
    uint32_t mCapacityFrames = 0;
    uint32_t mCapacityFramesMask = 0;
    uint32_t mCapacityBytes = 0;
    uint32_t mSilenceFrames = 0;  // of one store

    // A gap that is silenced over several stores: the writer's. Frames lie stored from its end to mStoredEnd.
    struct Gap {
        int64_t mSilencedEnd = 0;  // as published: another end means that the ring was emptied meanwhile
        int64_t mEnd = 0;          // beyond that: it is open
        int64_t mStoredEnd = 0;
    };
    Gap mGap;

    TimeBounds mTimeBoundsQueue[kQueueEntries];
    // Which entry holds now; only ever grows. Stored by the writer (release), loaded by the reader (acquire).
    typename Memory::template Atomic<uint32_t> mTimeBoundsQueuePtr{0};
};

using CARingBuffer = BasicRingBuffer<RingMemory>;
extern template class BasicRingBuffer<RingMemory>;
