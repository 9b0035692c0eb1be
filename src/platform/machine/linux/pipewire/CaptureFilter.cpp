#include "platform/machine/linux/pipewire/CaptureFilter.h"

#include "platform/machine/linux/pipewire/Objects.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace platform::machine::pipewire {

namespace {

// Between the loss of a node and the next try: a server that refuses it is not asked without end.
constexpr uint64_t kPauseNanos = 200'000'000;

// The sound of one port in this cycle, or null where nothing came. The buffer stays valid for the cycle
// after it was handed back.
const float* Samples(void* port, uint32_t frames) noexcept
{
    pw_buffer* buffer = pw_filter_dequeue_buffer(port);
    if (buffer == nullptr) return nullptr;
    const spa_data& data = buffer->buffer->datas[0];
    pw_filter_queue_buffer(port, buffer);
    const uint32_t offset = data.chunk->offset;
    const bool holds = data.data != nullptr && (data.chunk->flags & SPA_CHUNK_FLAG_EMPTY) == 0 &&
                       offset <= data.maxsize && data.maxsize - offset >= frames * sizeof(float);
    return holds ? reinterpret_cast<const float*>(static_cast<const char*>(data.data) + offset) : nullptr;
}

std::string UniqueNodeName(const std::string& name)
{
    static std::atomic<unsigned> sCount{0};  // only unique; no order
    return name + "." + std::to_string(getpid()) + "." + std::to_string(sCount.fetch_add(1, std::memory_order_relaxed));
}

}  // namespace

const pw_filter_events CaptureFilter::kEvents = {
    .version = PW_VERSION_FILTER_EVENTS,
    .state_changed = [](void* self, pw_filter_state, pw_filter_state state,
                        const char*) { static_cast<CaptureFilter*>(self)->OnState(state); },
    .process = [](void* self, spa_io_position* position) { static_cast<CaptureFilter*>(self)->Process(position); },
};

const pw_core_events CaptureFilter::kCoreEvents = {
    .version = PW_VERSION_CORE_EVENTS,
    .error =
        [](void* self, uint32_t id, int, int result, const char*) {
            if (id == PW_ID_CORE && result == -EPIPE) static_cast<CaptureFilter*>(self)->Break();
        },
};

CaptureFilter::CaptureFilter(Context& context, const std::string& name, std::span<const ChannelPosition> positions,
                             CaptureClient& client, std::function<void()> over)
    : mContext(context),
      mPause(context.GetLoop(),
             [this, over = std::move(over)] {
                 mOver = true;
                 over();
             }),
      mClient(&client)
{
    if (!Connect(name, positions)) Break();
}

bool CaptureFilter::Connect(const std::string& name, std::span<const ChannelPosition> positions)
{
    mCore = pw_context_connect(mContext.Get(), nullptr, 0);
    if (mCore == nullptr) return false;
    pw_core_add_listener(mCore, &mCoreHook, &kCoreEvents, this);
    // No class and no latency: a class would have the session manager route it, and a latency would change
    // the cycle of the applications that it listens to.
    mFilter = pw_filter_new(
        mCore, name.c_str(),
        pw_properties_new(PW_KEY_NODE_NAME, UniqueNodeName(name).c_str(), PW_KEY_NODE_DESCRIPTION, name.c_str(),
                          PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Capture", kRoleKey, "capture", nullptr));
    if (mFilter == nullptr) return false;
    pw_filter_add_listener(mFilter, &mHook, &kEvents, this);
    for (const ChannelPosition position : positions)
        if (!HasPort(position)) AddPort(position);
    return pw_filter_connect(mFilter, PW_FILTER_FLAG_RT_PROCESS, nullptr, 0) >= 0;
}

CaptureFilter::~CaptureFilter()
{
    mClient.store(nullptr, std::memory_order_release);
    mContext.RunOnDataThread({});
    if (mFilter != nullptr) {
        spa_hook_remove(&mHook);
        pw_filter_destroy(mFilter);
    }
    if (mCore == nullptr) return;
    spa_hook_remove(&mCoreHook);
    pw_core_disconnect(mCore);
}

void CaptureFilter::OnState(pw_filter_state state)
{
    if (state == PW_FILTER_STATE_ERROR || state == PW_FILTER_STATE_UNCONNECTED) Break();
    if (state == PW_FILTER_STATE_STREAMING) mResumed.store(true, std::memory_order_relaxed);
}

void CaptureFilter::Break()
{
    if (std::exchange(mBroken, true)) return;
    mPause.Arm(kPauseNanos);
}

std::optional<uint32_t> CaptureFilter::NodeID() const
{
    const uint32_t id = mBroken ? PW_ID_ANY : pw_filter_get_node_id(mFilter);
    return id == PW_ID_ANY ? std::nullopt : std::optional(id);
}

bool CaptureFilter::HasPort(ChannelPosition position) const
{
    const auto inputs = std::span(mInputs).first(mInputCount.load(std::memory_order_relaxed));
    return std::ranges::any_of(inputs, [&](const Input* input) { return input->mPosition == position; });
}

void CaptureFilter::EnsurePort(ChannelPosition position)
{
    // The data thread walks the filter's list of ports in every cycle, so that it has to stand still meanwhile.
    if (!mBroken && !HasPort(position)) mContext.RunOnDataThread([&] { AddPort(position); });
}

void CaptureFilter::AddPort(ChannelPosition position)
{
    const unsigned count = mInputCount.load(std::memory_order_relaxed);
    const std::string channel = NameOf(position);
    void* input = pw_filter_add_port(
        mFilter, PW_DIRECTION_INPUT, PW_FILTER_PORT_FLAG_MAP_BUFFERS, sizeof(Input),
        pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio", PW_KEY_PORT_NAME, ("input_" + channel).c_str(),
                          PW_KEY_AUDIO_CHANNEL, channel.c_str(), nullptr),
        nullptr, 0);
    if (input == nullptr) return;
    mInputs[count] = new (input) Input{position};
    mInputCount.store(count + 1, std::memory_order_release);
}

void CaptureFilter::Process(const spa_io_position* position) CORVANE_REALTIME
{
    const kernel::RealtimeScope scope;
    CaptureClient* client = mClient.load(std::memory_order_acquire);
    if (client == nullptr || position == nullptr) return;
    const spa_io_clock& clock = position->clock;
    const auto frames = static_cast<uint32_t>(clock.duration);
    size_t channels = 0;
    const unsigned inputs = mInputCount.load(std::memory_order_acquire);
    for (unsigned i = 0; i < inputs; ++i)
        if (const float* samples = Samples(mInputs[i], frames))
            mChannels[channels++] = {mInputs[i]->mPosition, samples};
    // A late server wakes us a second time in a cycle: with the cycle that it had not delivered, or with nothing.
    const bool again = std::exchange(mLastPosition, clock.position) == clock.position;
    if (again && channels == 0) return;
    client->Render({.mHostNanos = clock.nsec,
                    .mSampleTime = static_cast<int64_t>(clock.position),
                    .mRateScalar = clock.rate_diff,
                    .mRateHz = clock.rate.denom,
                    .mFrames = frames,
                    .mClockID = clock.id,
                    .mChannels = std::span(mChannels).first(channels),
                    .mResumed = mResumed.exchange(false, std::memory_order_relaxed)});
}

}  // namespace platform::machine::pipewire
