// CaptureFilter: the node through which one capture's sound comes, and the data thread's way to its client.
// Why a connection of its own: more than some sixteen nodes on one lose track of their shared memory.
#pragma once

#include "platform/kernel/Realtime.h"
#include "platform/machine/AudioServer.h"
#include "platform/machine/linux/pipewire/Channels.h"
#include "platform/machine/linux/pipewire/Context.h"

#include <pipewire/filter.h>
#include <pipewire/pipewire.h>

#include <array>
#include <atomic>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace platform::machine::pipewire {

class CaptureFilter {
public:
    /// Puts the node on the server, with ports for `positions`. Control calls, as all here, are made under
    /// the loop's lock.
    ///
    /// @param over called on the loop's thread when the node was refused or taken away from us, after a
    ///             pause: this object is of no more use then
    CaptureFilter(Context& context, const std::string& name, std::span<const ChannelPosition> positions,
                  CaptureClient& client, std::function<void()> over);
    /// After this no Render runs and none will.
    ~CaptureFilter();
    CaptureFilter(const CaptureFilter&) = delete;
    CaptureFilter& operator=(const CaptureFilter&) = delete;

    /// Whether it should be replaced by another.
    bool IsOver() const { return mOver; }

    /// The node's number on the server; nothing before the server gave one.
    std::optional<uint32_t> NodeID() const;

    /// Makes sure that the node has a port for `position`.
    void EnsurePort(ChannelPosition position);

private:
    struct Input {
        ChannelPosition mPosition;
    };

    bool Connect(const std::string& name, std::span<const ChannelPosition> positions);
    bool HasPort(ChannelPosition position) const;
    void AddPort(ChannelPosition position);
    void Process(const spa_io_position* position) CORVANE_REALTIME;
    void Break();
    void OnState(pw_filter_state state);

    static const pw_filter_events kEvents;
    static const pw_core_events kCoreEvents;

    Context& mContext;
    pw_core* mCore = nullptr;
    spa_hook mCoreHook{};
    pw_filter* mFilter = nullptr;
    spa_hook mHook{};
    bool mBroken = false;
    bool mOver = false;
    LoopTimer mPause;
    std::array<Input*, kPositions> mInputs{};
    std::atomic<unsigned> mInputCount{0};  // stored by control calls (release), read by the data thread (acquire)
    std::atomic<CaptureClient*> mClient;   // stored by the destructor (release), read by the data thread (acquire)
    std::atomic<bool> mResumed{false};     // stored by the loop's thread, taken by the data thread; no order needed
    // The data thread's.
    std::array<CaptureCycle::Channel, kPositions> mChannels{};
    uint64_t mLastPosition = 0;
};

}  // namespace platform::machine::pipewire
