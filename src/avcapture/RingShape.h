// RingShape: the fixed fields of the status region, copied once and checked before anything relies on them.
// Why: the region stays the service's to write. What indexes memory is what was checked, never what stands
// there now.
#pragma once

#include "avcapture/StatusRegion.h"

#include <optional>

namespace avcapture {

constexpr uint64_t kLargestRegionBytes = 256u << 20;
constexpr uint32_t kMostChannels = 64;
constexpr size_t kSampleBytes = sizeof(float);

struct RingShape {
    uint32_t mChannelCount;  // of a frame in the ring, whatever was asked for
    uint32_t mLoopFrames;    // one pass of the ring, a multiple of mBlockFrames
    uint32_t mBlockFrames;
    uint32_t mOutputFrames;  // of the client's output buffer, at least one block
    uint64_t mNSPerFrame;
    uint64_t mNSPerLoop;
    uint64_t mNSPerBlock;

    size_t BlockSamples() const { return size_t(mBlockFrames) * mChannelCount; }
    /// Whether a whole block starts at `frame` and lies inside the ring.
    bool IsBlockStart(uint32_t frame) const { return frame < mLoopFrames && frame % mBlockFrames == 0; }
};

/// Reads the fixed fields. Nothing where one of them could make the client read or write out of bounds,
/// divide by zero, or turn round without ever waiting.
std::optional<RingShape> ReadRingShape(const StatusRegion& status, uint64_t audioRegionBytes,
                                       unsigned int extensionVersion);

}  // namespace avcapture
