#include "platform/machine/linux/pipewire/Filter.h"

#include "platform/machine/linux/LinuxClock.h"
#include "platform/machine/linux/pipewire/Objects.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

// Weak: libraries that have no more than one data thread lack it.
extern "C" [[gnu::weak]] pw_loop* pw_filter_get_data_loop(pw_filter* filter);

namespace platform::machine::pipewire {

namespace {

// Between the loss of a node and the next try: a server that refuses it is not asked without end.
constexpr uint64_t kPauseNanos = 200'000'000;

// Any process may drive, and may write while this reads: what is checked has to be what is used.
spa_io_clock CopyOf(const volatile spa_io_clock& shared) noexcept
{
    spa_io_clock copy{};
    copy.id = shared.id;
    copy.nsec = shared.nsec;
    copy.rate.denom = shared.rate.denom;
    copy.position = shared.position;
    copy.duration = shared.duration;
    copy.delay = shared.delay;
    copy.rate_diff = shared.rate_diff;
    return copy;
}

// A cycle that no server has would be divided by its rate, and walked through piece by piece.
bool IsPossible(const spa_io_clock& clock) noexcept
{
    constexpr uint64_t kMostFrames = 65536;
    return clock.duration >= 1 && clock.duration <= kMostFrames && clock.rate.denom != 0;
}

std::string UniqueNodeName(const std::string& name)
{
    static std::atomic<unsigned> sCount{0};  // only unique; no order
    return name + "." + std::to_string(getpid()) + "." + std::to_string(sCount.fetch_add(1, std::memory_order_relaxed));
}

}  // namespace

const pw_filter_events Filter::kEvents = {
    .version = PW_VERSION_FILTER_EVENTS,
    .state_changed = [](void* self, pw_filter_state, pw_filter_state state,
                        const char*) { static_cast<Filter*>(self)->OnState(state); },
    .process = [](void* self, spa_io_position* position) { static_cast<Filter*>(self)->Process(position); },
};

const pw_core_events Filter::kCoreEvents = {
    .version = PW_VERSION_CORE_EVENTS,
    .error =
        [](void* self, uint32_t id, int, int result, const char*) {
            if (id == PW_ID_CORE && result == -EPIPE) static_cast<Filter*>(self)->Break();
        },
};

Filter::Filter(Context& context, const FilterKind& kind, const std::string& name,
               std::span<const ChannelPosition> positions, FilterClient& client, std::function<void()> over)
    : mContext(context),
      mKind(kind),
      mPause(context.GetLoop(),
             [this, over = std::move(over)] {
                 mOver = true;
                 over();
             }),
      mClient(&client)
{
    if (!Connect(name, positions)) Break();
}

bool Filter::Connect(const std::string& name, std::span<const ChannelPosition> positions)
{
    mCore = pw_context_connect(mContext.Get(), nullptr, 0);
    if (mCore == nullptr) return false;
    pw_core_add_listener(mCore, &mCoreHook, &kCoreEvents, this);
    // No class and no latency: a class would have the session manager route it, and a latency would change
    // the cycle of whatever it is linked to.
    mFilter = pw_filter_new(mCore, name.c_str(),
                            pw_properties_new(PW_KEY_NODE_NAME, UniqueNodeName(name).c_str(), PW_KEY_NODE_DESCRIPTION,
                                              name.c_str(), PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY,
                                              mKind.mCategory, kRoleKey, mKind.mRole, nullptr));
    if (mFilter == nullptr) return false;
    pw_filter_add_listener(mFilter, &mHook, &kEvents, this);
    for (const ChannelPosition position : positions)
        if (!HasPort(position)) AddPort(position);
    return pw_filter_connect(mFilter, PW_FILTER_FLAG_RT_PROCESS, nullptr, 0) >= 0;
}

Filter::~Filter()
{
    mClient.store(nullptr, std::memory_order_release);
    FinishCycle();
    if (mFilter != nullptr) {
        spa_hook_remove(&mHook);
        pw_filter_destroy(mFilter);
    }
    if (mCore == nullptr) return;
    spa_hook_remove(&mCoreHook);
    pw_core_disconnect(mCore);
}

DataThread Filter::CycleThread() const
{
    pw_loop* control = mContext.GetLoop().Get();
    if (mFilter == nullptr) return {nullptr, control};
    if (pw_filter_get_data_loop != nullptr) return {pw_filter_get_data_loop(mFilter), control};
    return {pw_data_loop_get_loop(pw_context_get_data_loop(mContext.Get())), control};
}

void Filter::OnState(pw_filter_state state)
{
    if (state == PW_FILTER_STATE_ERROR || state == PW_FILTER_STATE_UNCONNECTED) Break();
    // When the filter comes to rest: its first cycle afterwards may run before it is said to stream again.
    if (state == PW_FILTER_STATE_PAUSED) mResumed.store(true, std::memory_order_relaxed);
}

void Filter::Break()
{
    if (std::exchange(mBroken, true)) return;
    mPause.Arm(kPauseNanos);
}

std::optional<uint32_t> Filter::NodeID() const
{
    const uint32_t id = mBroken ? PW_ID_ANY : pw_filter_get_node_id(mFilter);
    return id == PW_ID_ANY ? std::nullopt : std::optional(id);
}

bool Filter::HasPort(ChannelPosition position) const
{
    return std::ranges::any_of(Ports(), [&](const FilterPort* port) { return port->mPosition == position; });
}

void Filter::EnsurePort(ChannelPosition position)
{
    // The data thread walks the filter's list of ports in every cycle. The library adds a port on the control thread or
    // under its lock only.
    if (!mBroken && !HasPort(position)) CycleThread().RunBetweenCycles([&] { AddPort(position); });
}

void Filter::AddPort(ChannelPosition position)
{
    const unsigned count = mPortCount.load(std::memory_order_relaxed);
    const std::string channel = NameOf(position);
    void* port = pw_filter_add_port(
        mFilter, mKind.mDirection, PW_FILTER_PORT_FLAG_MAP_BUFFERS, sizeof(FilterPort),
        pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio", PW_KEY_PORT_NAME,
                          (mKind.mPortPrefix + channel).c_str(), PW_KEY_AUDIO_CHANNEL, channel.c_str(), nullptr),
        nullptr, 0);
    if (port == nullptr) return;
    mPorts[count] = new (port) FilterPort{position};
    mPortCount.store(count + 1, std::memory_order_release);
}

void Filter::Process(const spa_io_position* position) CORVANE_REALTIME
{
    const kernel::RealtimeScope scope;
    FilterClient* client = mClient.load(std::memory_order_acquire);
    if (client == nullptr || position == nullptr) return;
    spa_io_clock clock = CopyOf(position->clock);
    if (!IsPossible(clock)) return;
    const CycleMoment moment =
        mClock.Take(clock.id, {clock.nsec, clock.position}, clock.duration, LinuxClock().NowNanos());
    clock.nsec = moment.mHostNanos;
    clock.position = moment.mPosition;
    client->Process(clock, Ports(), mResumed.exchange(false, std::memory_order_relaxed));
}

}  // namespace platform::machine::pipewire
