#include "platform/machine/linux/pipewire/PlaybackCycles.h"

#include <algorithm>
#include <cmath>

namespace platform::machine::pipewire {

namespace {

// The room of one port for this cycle's sound, or null where nothing takes it. It may be filled after it was handed
// back, until the cycle ends.
float* Room(FilterPort* port, uint32_t frames) noexcept
{
    pw_buffer* buffer = pw_filter_dequeue_buffer(port);
    if (buffer == nullptr) return nullptr;
    if (buffer->buffer->n_datas == 0) return pw_filter_queue_buffer(port, buffer), nullptr;
    const spa_data& data = buffer->buffer->datas[0];
    const size_t bytes = frames * sizeof(float);
    const bool fits = data.data != nullptr && data.maxsize >= bytes;
    *data.chunk = {.offset = 0, .size = fits ? static_cast<uint32_t>(bytes) : 0, .stride = sizeof(float), .flags = 0};
    pw_filter_queue_buffer(port, buffer);
    return fits ? static_cast<float*>(data.data) : nullptr;
}

// When the cycle's first frame is heard. Drivers do not agree on the sign of their way to the hardware, and any client
// may be a driver.
uint64_t HeardAt(const spa_io_clock& clock) noexcept
{
    constexpr double kLongestNanos = 10e9;
    const double nanos = std::fabs(static_cast<double>(clock.delay)) * 1e9 / clock.rate.denom;
    return clock.nsec + static_cast<uint64_t>(std::min(nanos, kLongestNanos));
}

}  // namespace

void PlaybackCycles::Announce(const Filter& filter, const std::vector<ChannelPosition>& channels)
{
    const uint32_t rateHz = mSeenHz.load(std::memory_order_relaxed);
    const bool known = rateHz == mAnnouncedHz.load(std::memory_order_relaxed) && channels == mChannels;
    if (known || rateHz == 0 || channels.empty()) return;
    mAnnouncedHz.store(0, std::memory_order_release);
    filter.FinishCycle();
    mChannels = channels;
    mSamples.resize(channels.size());
    mClient.SetPlaybackFormat(rateHz, channels);
    mAnnouncedHz.store(rateHz, std::memory_order_release);
}

bool PlaybackCycles::IsAnnounced(uint32_t rateHz) noexcept
{
    if (mSeenHz.exchange(rateHz, std::memory_order_relaxed) != rateHz) mChanged.Signal();
    return rateHz != 0 && mAnnouncedHz.load(std::memory_order_acquire) == rateHz;
}

// A port that the format does not have belongs to the device before, or to the one after.
bool PlaybackCycles::Place(FilterPort& port, float* samples, uint32_t frames) noexcept
{
    const auto channel = std::ranges::find(mChannels, port.mPosition);
    if (channel == mChannels.end()) return std::fill_n(samples, frames, 0.0f), false;
    mSamples[static_cast<size_t>(channel - mChannels.begin())] = samples;
    return true;
}

void PlaybackCycles::Process(const spa_io_clock& clock, std::span<FilterPort* const> ports, bool) CORVANE_REALTIME
{
    const auto frames = static_cast<uint32_t>(clock.duration);
    const bool announced = IsAnnounced(clock.rate.denom);
    if (announced) std::ranges::fill(mSamples, nullptr);
    bool wanted = false;
    for (FilterPort* port : ports) {
        float* samples = Room(port, frames);
        if (samples == nullptr) continue;
        if (announced)
            wanted |= Place(*port, samples, frames);
        else
            std::fill_n(samples, frames, 0.0f);
    }
    if (!wanted) return;
    mClient.Render({.mHostNanos = HeardAt(clock),
                    .mSampleTime = static_cast<int64_t>(clock.position),
                    .mFrames = frames,
                    .mChannels = mSamples});
}

}  // namespace platform::machine::pipewire
