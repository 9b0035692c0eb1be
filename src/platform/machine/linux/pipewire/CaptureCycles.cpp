#include "platform/machine/linux/pipewire/CaptureCycles.h"

#include <utility>

namespace platform::machine::pipewire {

namespace {

// The sound of one port in this cycle, or null where nothing came. The buffer stays valid for the cycle
// after it was handed back.
const float* Samples(FilterPort* port, uint32_t frames) noexcept
{
    pw_buffer* buffer = pw_filter_dequeue_buffer(port);
    if (buffer == nullptr) return nullptr;
    const bool isEmpty = buffer->buffer->n_datas == 0;
    const spa_data& data = buffer->buffer->datas[0];
    pw_filter_queue_buffer(port, buffer);
    if (isEmpty) return nullptr;
    const uint32_t offset = data.chunk->offset;
    const bool holds = data.data != nullptr && (data.chunk->flags & SPA_CHUNK_FLAG_EMPTY) == 0 &&
                       offset <= data.maxsize && data.maxsize - offset >= frames * sizeof(float);
    return holds ? reinterpret_cast<const float*>(static_cast<const char*>(data.data) + offset) : nullptr;
}

}  // namespace

void CaptureCycles::Process(const spa_io_clock& clock, std::span<FilterPort* const> ports,
                            bool resumed) CORVANE_REALTIME
{
    const auto frames = static_cast<uint32_t>(clock.duration);
    size_t channels = 0;
    for (FilterPort* port : ports)
        if (const float* samples = Samples(port, frames)) mChannels[channels++] = {port->mPosition, samples};
    // A late server wakes us a second time in a cycle: with the cycle that it had not delivered, or with nothing.
    const bool again = std::exchange(mLastPosition, clock.position) == clock.position;
    if (again && channels == 0) return;
    mClient.Render({.mHostNanos = clock.nsec,
                    .mSampleTime = static_cast<int64_t>(clock.position),
                    .mRateScalar = clock.rate_diff,
                    .mRateHz = clock.rate.denom,
                    .mFrames = frames,
                    .mClockID = clock.id,
                    .mChannels = std::span(mChannels).first(channels),
                    .mResumed = resumed});
}

}  // namespace platform::machine::pipewire
