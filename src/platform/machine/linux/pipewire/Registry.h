// Registry: a mirror of what the server holds, kept up by its announcements.
// Why: questions about the graph are answered here without a round trip, at one consistent moment.
// All of it under the loop's lock.
#pragma once

#include "platform/machine/linux/pipewire/Metadata.h"
#include "platform/machine/linux/pipewire/Objects.h"

#include <functional>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

namespace platform::machine::pipewire {

class Registry {
public:
    /// @param changed called with every change, on the loop's thread: may be often, should do little
    explicit Registry(std::function<void()> changed);
    ~Registry();

    void Attach(pw_core* core);
    /// Forgets everything: the server is gone. Numbers handed out before are not used again.
    void Detach();
    /// Null while detached.
    pw_core* Core() const { return mCore; }

    const std::map<uint32_t, std::unique_ptr<Node>>& Nodes() const { return mNodes; }
    const std::map<uint32_t, Port>& Ports() const { return mPorts; }
    const std::map<uint32_t, Link>& Links() const { return mLinks; }

    Node* FindNode(uint32_t id) const;
    /// The output device, or the hole, of that name: streams may call themselves the same.
    Node* FindSink(std::string_view name) const;
    /// The input device of that name.
    Node* FindSource(std::string_view name) const;
    /// The stream that is shown above this folder under that number.
    Node* FindStream(uint32_t lastingID) const;
    const Client* FindClient(uint32_t id) const;

    struct NumberedPort {
        uint32_t mID;
        const Port* mPort;
    };
    /// The node's ports of one direction, monitors of outputs left out, in the node's order.
    std::vector<NumberedPort> PortsOf(uint32_t node, bool output) const;

    /// Notes about defaults and streams; null while no session manager is there.
    Metadata* Defaults() const { return mDefaults.get(); }
    /// The server's settings; null while none are known.
    Metadata* Settings() const { return mSettings.get(); }

    /// Has the server take any object of its own away.
    void Destroy(uint32_t id);
    /// Has the server take a link away. Asks once: its number may soon stand for something else.
    void DestroyLink(uint32_t id);

private:
    void OnGlobal(uint32_t id, std::string_view type, const spa_dict* properties);
    void OnGlobalRemove(uint32_t id);
    void AddNode(uint32_t id, const spa_dict* properties);
    void AddMetadata(uint32_t id, const spa_dict* properties);

    static const pw_registry_events kEvents;

    std::function<void()> mChanged;
    pw_core* mCore = nullptr;
    std::unique_ptr<Proxy> mProxy;
    std::map<uint32_t, std::unique_ptr<Node>> mNodes;
    std::map<uint32_t, std::unique_ptr<Client>> mClients;
    std::map<uint32_t, Port> mPorts;
    std::map<uint32_t, Link> mLinks;
    std::unique_ptr<Metadata> mDefaults;
    std::unique_ptr<Metadata> mSettings;
    uint32_t mBaseID = 0;  // above every number given out on earlier connections
    uint32_t mLastID = 0;
};

}  // namespace platform::machine::pipewire
