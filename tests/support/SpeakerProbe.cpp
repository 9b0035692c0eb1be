#include "support/SpeakerProbe.h"

#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>

namespace support {

using platform::machine::pipewire::Loop;

namespace {

constexpr unsigned kChannels = 2;
constexpr size_t kStretchFrames = 2400;

const spa_pod* BuildFormat(spa_pod_builder* builder)
{
    spa_audio_info_raw format{};
    format.format = SPA_AUDIO_FORMAT_F32;
    format.channels = kChannels;
    format.position[0] = SPA_AUDIO_CHANNEL_FL;
    format.position[1] = SPA_AUDIO_CHANNEL_FR;
    return spa_format_audio_raw_build(builder, SPA_PARAM_EnumFormat, &format);
}

}  // namespace

const pw_stream_events SpeakerProbe::kEvents = {
    .version = PW_VERSION_STREAM_EVENTS,
    .process = [](void* self) { static_cast<SpeakerProbe*>(self)->Process(); },
};

SpeakerProbe::SpeakerProbe(const std::string& sink)
{
    const Loop::Guard guard(mLoop);
    mCore = pw_context_connect(mContext.Get(), nullptr, 0);
    if (mCore == nullptr) throw std::runtime_error("the private server cannot be reached");
    mStream = pw_stream_new(
        mCore, "speaker-probe",
        pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_STREAM_CAPTURE_SINK,
                          "true", PW_KEY_TARGET_OBJECT, sink.c_str(), nullptr));
    pw_stream_add_listener(mStream, &mHook, &kEvents, this);
    std::array<uint8_t, 1024> space;
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, space.data(), space.size());
    const spa_pod* format = BuildFormat(&builder);
    const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                    PW_STREAM_FLAG_RT_PROCESS);
    pw_stream_connect(mStream, PW_DIRECTION_INPUT, PW_ID_ANY, flags, &format, 1);
    mLoop.Start();
}

SpeakerProbe::~SpeakerProbe()
{
    mLoop.Stop();
    pw_stream_destroy(mStream);
    pw_core_disconnect(mCore);
}

void SpeakerProbe::Process()
{
    pw_buffer* buffer = pw_stream_dequeue_buffer(mStream);
    if (buffer == nullptr) return;
    const spa_data& data = buffer->buffer->datas[0];
    const auto* samples = reinterpret_cast<const float*>(static_cast<const char*>(data.data) + data.chunk->offset);
    const size_t frames = data.chunk->size / (kChannels * sizeof(float));
    {
        const std::lock_guard guard(mMutex);
        for (size_t frame = 0; frame < frames; ++frame) mHeard.push_back(samples[frame * kChannels]);
    }
    mCondition.notify_all();
    pw_stream_queue_buffer(mStream, buffer);
}

std::vector<float> SpeakerProbe::Next(size_t frames)
{
    std::unique_lock guard(mMutex);
    const size_t start = mHeard.size();
    if (!mCondition.wait_for(guard, std::chrono::seconds(10), [&] { return mHeard.size() >= start + frames; }))
        throw std::runtime_error("nothing comes from the sink's monitor");
    const auto first = mHeard.begin() + static_cast<ptrdiff_t>(start);
    return {first, first + static_cast<ptrdiff_t>(frames)};
}

bool SpeakerProbe::Becomes(bool audible)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        const std::vector<float> stretch = Next(kStretchFrames);
        const auto sounds = std::ranges::count_if(stretch, [](float sample) { return sample != 0; });
        if (audible ? sounds > static_cast<ptrdiff_t>(kStretchFrames / 2) : sounds == 0) return true;
    }
    return false;
}

}  // namespace support
