#include "avcapture/RingShape.h"

namespace avcapture {
namespace {

// With 2^24 blocks in the largest quarter of a ring, sums of these stay below 2^63.
constexpr uint64_t kLongestBlockNanos = uint64_t(1) << 38;

bool FramesAreSane(const RingShape& shape, uint64_t audioRegionBytes)
{
    if (shape.mChannelCount == 0 || shape.mChannelCount > kMostChannels || shape.mBlockFrames == 0) return false;
    if (shape.mLoopFrames % shape.mBlockFrames != 0) return false;
    // The consumer waits for a quarter of the ring; with less than a block in it, it would never wait.
    if (shape.mLoopFrames / shape.mBlockFrames < 4) return false;
    const uint64_t frameBytes = shape.mChannelCount * kSampleBytes;
    if (shape.mLoopFrames * frameBytes > audioRegionBytes) return false;
    // A block is converted before the room for the next one is looked at, so one must always fit.
    return shape.mOutputFrames >= shape.mBlockFrames && shape.mOutputFrames * frameBytes <= kLargestRegionBytes;
}

bool TimesAreSane(const RingShape& shape)
{
    return shape.mNSPerFrame != 0 && shape.mNSPerLoop != 0 && shape.mNSPerBlock != 0 &&
           shape.mNSPerBlock <= kLongestBlockNanos;
}

}  // namespace

std::optional<RingShape> ReadRingShape(const StatusRegion& status, uint64_t audioRegionBytes,
                                       unsigned int extensionVersion)
{
    const RingShape shape{
        .mChannelCount = status.ChannelCount(),
        .mLoopFrames = status.LoopFrames(),
        .mBlockFrames = status.BlockFrames(),
        .mOutputFrames = extensionVersion >= 2 ? status.OutputFrames() : status.LegacyOutputFrames(),
        .mNSPerFrame = status.NSPerFrame(),
        .mNSPerLoop = status.NSPerLoop(),
        .mNSPerBlock = status.NSPerBlock(),
    };
    if (!FramesAreSane(shape, audioRegionBytes) || !TimesAreSane(shape)) return std::nullopt;
    return shape;
}

}  // namespace avcapture
