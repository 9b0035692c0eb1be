// Silencer: keeps chosen streams from being heard, while they go on playing.
// Why a hole: a stream that is moved to a sink of ours plays on into nothing, and is moved back by the session
// manager itself when our connection ends, however it ends. Streams that may not be moved lose their links to
// output devices instead; those are put back on release, but not when this process dies.
#pragma once

#include "platform/machine/linux/pipewire/FilterLinks.h"
#include "platform/machine/linux/pipewire/Registry.h"

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace platform::machine::pipewire {

/// A sink of ours in the server that plays nothing and shows up nowhere; its name is used once.
class Hole {
public:
    Hole(Registry& registry, const std::string& home);

    const std::string& Name() const { return mName; }
    /// Whether streams can be moved here.
    bool IsReady() const;
    /// Whether the server took it away or refused it.
    bool IsGone() const { return mGone; }

private:
    static const pw_proxy_events kEvents;

    Registry& mRegistry;
    std::string mName;
    bool mGone = false;
    Proxy mProxy;
};

class Silencer {
public:
    /// @param home the stable name of the output device whose streams are to be silenced
    Silencer(Registry& registry, std::string home) : mRegistry(registry), mHome(std::move(home)) {}
    /// Releases what is silenced.
    ~Silencer();
    Silencer(const Silencer&) = delete;
    Silencer& operator=(const Silencer&) = delete;

    /// Silences exactly these streams as far as they play at home; releases others.
    ///
    /// @param streams their lasting numbers
    void Update(std::span<const uint32_t> streams);

    /// Forgets everything without a word to the server, which is gone.
    void Forget();

private:
    enum class Way { Moved, Unlinked, Yielded };
    struct CutLink {
        uint32_t mOutputPort;
        std::string mInputNode;  // by name: numbers may stand for something else by the time of release
        std::string mInputChannel;
        bool operator==(const CutLink&) const = default;
    };
    struct Silenced {
        uint32_t mStream = 0;  // the lasting number
        uint32_t mNode = 0;    // the server's number
        Way mWay = Way::Moved;
        std::optional<Metadata::Value> mOldTarget;  // what the stream was to play on before
        bool mFollowedDefault = false;
        bool mNoted = false;  // the server has told us of our own note
        std::vector<CutLink> mCuts;
    };

    bool PlaysAtHome(const Node& stream) const;
    bool HomeStands(const Silenced& silenced) const;
    void DropLostHole();
    void ReleaseOthers(std::span<const uint32_t> streams);
    void Silence(const Node& stream);
    void Move(Silenced& silenced);
    void Cut(Silenced& silenced);
    /// Gives way where somebody else has moved the stream meanwhile, or where its home is another one now.
    void Follow(Silenced& silenced);
    void Release(const Silenced& silenced);
    void RestoreTarget(const Silenced& silenced);
    void RestoreLinks(const Silenced& silenced);

    Registry& mRegistry;
    std::string mHome;
    std::unique_ptr<Hole> mHole;
    std::map<uint32_t, Silenced> mSilenced;  // by lasting number
};

/// Takes back the wish to play into holes that are not there any more: their processes died.
void ForgetLostHoles(Registry& registry);

/// Ends the holding of a home for streams that are heard on an output device again.
void SettleHomes(Registry& registry);

}  // namespace platform::machine::pipewire
