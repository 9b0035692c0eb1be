// Filter: a node of ours through which sound comes or goes, and the data thread's way to who works on it.
// Why a connection of its own: more than some sixteen nodes on one lose track of their shared memory.
#pragma once

#include "platform/kernel/Realtime.h"
#include "platform/machine/AudioServer.h"
#include "platform/machine/linux/pipewire/Channels.h"
#include "platform/machine/linux/pipewire/Context.h"
#include "platform/machine/linux/pipewire/DataThread.h"
#include "platform/machine/linux/pipewire/DriverClock.h"

#include <pipewire/filter.h>
#include <pipewire/pipewire.h>

#include <array>
#include <atomic>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace platform::machine::pipewire {

/// One port of a filter; the library's port begins with it.
struct FilterPort {
    ChannelPosition mPosition;
};

/// What a filter's data thread does in a cycle.
class FilterClient {
public:
    /// @param clock    what this uses of the cycle's clock, within bounds; the rest of it is 0
    /// @param resumed  whether this is the first cycle since the server let the node rest
    /// @thread         the server's data thread
    /// @realtime       yes
    virtual void Process(const spa_io_clock& clock, std::span<FilterPort* const> ports,
                         bool resumed) CORVANE_REALTIME = 0;

protected:
    ~FilterClient() = default;
};

/// Which way the sound of a filter goes, and how the server is told so.
struct FilterKind {
    spa_direction mDirection;
    const char* mCategory;
    const char* mRole;
    const char* mPortPrefix;
};
constexpr FilterKind kCaptureFilter{PW_DIRECTION_INPUT, "Capture", "capture", "input_"};
constexpr FilterKind kPlaybackFilter{PW_DIRECTION_OUTPUT, "Playback", "playback", "output_"};

class Filter {
public:
    /// Puts the node on the server, with ports for `positions`. Control calls, as all here, are made under
    /// the loop's lock.
    ///
    /// @param over called on the loop's thread when the node was refused or taken away from us, after a
    ///             pause: this object is of no more use then
    Filter(Context& context, const FilterKind& kind, const std::string& name,
           std::span<const ChannelPosition> positions, FilterClient& client, std::function<void()> over);
    /// After this no Process of the client runs and none will.
    ~Filter();
    Filter(const Filter&) = delete;
    Filter& operator=(const Filter&) = delete;

    spa_direction Direction() const { return mKind.mDirection; }

    /// Whether it should be replaced by another.
    bool IsOver() const { return mOver; }

    /// The node's number on the server; nothing before the server gave one.
    std::optional<uint32_t> NodeID() const;

    /// Returns when every cycle that had begun at the time of the call is over.
    void FinishCycle() const { CycleThread().FinishCycle(); }

    /// Makes sure that the node has a port for `position`.
    void EnsurePort(ChannelPosition position);

private:
    DataThread CycleThread() const;
    bool Connect(const std::string& name, std::span<const ChannelPosition> positions);
    std::span<FilterPort* const> Ports() const
    {
        return std::span(mPorts).first(mPortCount.load(std::memory_order_acquire));
    }
    bool HasPort(ChannelPosition position) const;
    void AddPort(ChannelPosition position);
    void Process(const spa_io_position* position) CORVANE_REALTIME;
    void Break();
    void OnState(pw_filter_state state);

    static const pw_filter_events kEvents;
    static const pw_core_events kCoreEvents;

    Context& mContext;
    const FilterKind& mKind;
    pw_core* mCore = nullptr;
    spa_hook mCoreHook{};
    pw_filter* mFilter = nullptr;
    spa_hook mHook{};
    bool mBroken = false;
    bool mOver = false;
    LoopTimer mPause;
    DriverClock mClock;  // the data thread's
    std::array<FilterPort*, kPositions> mPorts{};
    std::atomic<unsigned> mPortCount{0};  // stored by control calls (release), read by the data thread (acquire)
    std::atomic<FilterClient*> mClient;   // stored by the destructor (release), read by the data thread (acquire)
    std::atomic<bool> mResumed{false};    // stored by the loop's thread, taken by the data thread; no order needed
};

}  // namespace platform::machine::pipewire
