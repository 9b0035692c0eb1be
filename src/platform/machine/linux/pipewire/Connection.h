// Connection: the control connection to the server, kept up.
// Why: a server may be started late, killed and restarted; everything above starts anew with each connection.
#pragma once

#include "platform/machine/linux/pipewire/Context.h"
#include "platform/machine/linux/pipewire/Loop.h"
#include "platform/machine/linux/pipewire/Socket.h"

#include <pipewire/pipewire.h>

#include <string>

namespace platform::machine::pipewire {

class Connection {
public:
    /// Called on the loop's thread, or by Open under its lock.
    class Owner {
    public:
        /// A connection was made; what is bound now is known in full at OnSettled.
        virtual void OnConnected(pw_core* core) = 0;
        virtual void OnSettled() = 0;
        /// The server went. Everything made with the core has to be gone on return.
        virtual void OnDisconnected() = 0;

    protected:
        ~Owner() = default;
    };

    Connection(Loop& loop, Context& context, Owner& owner);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Tries at once, and from then on whenever there is hope. Under the loop's lock.
    void Open();
    /// Gives the connection up for good. Under the loop's lock.
    void Close();

    const std::string& Path() const { return mPath; }

private:
    void Try();
    void TrySoon();
    void Drop();
    void OnDone(uint32_t id, int sequence);
    void OnError(uint32_t id, int result);

    static const pw_core_events kEvents;

    Context& mContext;
    Owner& mOwner;
    std::string mPath = SocketPath();
    pw_core* mCore = nullptr;
    spa_hook mHook{};
    int mSync = 0;
    int mRoundTrips = 0;
    uint64_t mPauseNanos = 0;
    LoopEvent mLost;
    LoopTimer mRetry;
    SocketWatch mWatch;
};

}  // namespace platform::machine::pipewire
