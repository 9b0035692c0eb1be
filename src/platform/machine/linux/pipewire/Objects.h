// Objects: the server's objects as the registry mirrors them.
#pragma once

#include "platform/machine/linux/pipewire/Properties.h"
#include "platform/machine/linux/pipewire/Proxy.h"

#include <functional>
#include <optional>
#include <string>

namespace platform::machine::pipewire {

/// Property that marks a node as ours. Such nodes are never shown above this folder and never captured.
constexpr const char* kRoleKey = "corvane.role";
/// On a hole: the stable name of the output device where the streams in it would be heard otherwise.
constexpr const char* kHomeKey = "corvane.home";
/// How the names of holes begin.
constexpr const char* kHolePrefix = "corvane.hole.";

/// An object of which the server tells more when asked; known once it answered.
struct Described {
    Described(uint32_t id, const spa_dict* announced, std::function<void()> changed)
        : mID(id), mProperties(announced), mChanged(std::move(changed))
    {
    }

    uint32_t mID;
    Properties mProperties;
    bool mKnown = false;
    std::function<void()> mChanged;
};

/// One connection of a program to the server.
struct Client : Described {
    Client(pw_registry* registry, uint32_t id, const spa_dict* announced, std::function<void()> changed);

private:
    static const pw_client_events kEvents;
    Proxy mProxy;
};

struct Node : Described {
    Node(pw_registry* registry, uint32_t id, uint32_t lastingID, const spa_dict* announced,
         std::function<void()> changed);

    const std::string& Name() const { return mProperties.Get(PW_KEY_NODE_NAME); }
    bool IsOurs() const { return !mProperties.Get(kRoleKey).empty(); }
    /// An output device or a hole.
    bool IsSink() const { return mProperties.Get(PW_KEY_MEDIA_CLASS).starts_with("Audio/Sink"); }
    bool IsOutputDevice() const { return mProperties.Get(PW_KEY_MEDIA_CLASS) == "Audio/Sink"; }
    bool IsInputDevice() const
    {
        const std::string& media = mProperties.Get(PW_KEY_MEDIA_CLASS);
        return media == "Audio/Source" || media == "Audio/Source/Virtual";
    }
    bool IsStream() const { return mProperties.Get(PW_KEY_MEDIA_CLASS) == "Stream/Output/Audio"; }

    uint32_t mLastingID;  // unlike mID, never used twice while this process lives
    bool mRunning = false;
    /// Where the stream would be heard, while its own links do not say so.
    std::optional<std::string> mHeldHome;

private:
    static const pw_node_events kEvents;
    Proxy mProxy;
};

struct Port {
    explicit Port(const spa_dict* announced);

    uint32_t mNode;
    uint32_t mIndex;
    bool mOutput;
    bool mMonitor;
    std::string mChannel;
};

struct Link {
    explicit Link(const spa_dict* announced);

    uint32_t mOutputNode, mOutputPort;
    uint32_t mInputNode, mInputPort;
    bool mDestroyed = false;  // the server was asked to
};

}  // namespace platform::machine::pipewire
