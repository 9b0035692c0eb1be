// OpenNode: what a capture of streams, an open input and an open output have in common: a node of ours with links,
// which outlives the server's connections and is made anew on each of them. Start at Feed.
#pragma once

#include "platform/machine/linux/pipewire/Filter.h"
#include "platform/machine/linux/pipewire/FilterLinks.h"
#include "platform/machine/linux/pipewire/Registry.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace platform::machine::pipewire {

class OpenNodes;

class OpenNode {
public:
    struct Surroundings {
        Loop& mLoop;
        Context& mContext;
        Registry& mRegistry;
        OpenNodes& mNodes;
        LoopEvent& mChanged;
    };

    OpenNode(const OpenNode&) = delete;
    OpenNode& operator=(const OpenNode&) = delete;

    /// Brings everything in line with the mirror, where the server is there. Under the loop's lock, as all here.
    virtual void Update() = 0;
    /// Lets go of everything on the server, which is gone.
    virtual void Detach();

protected:
    OpenNode(const Surroundings& surroundings, std::string uid, std::string name, const FilterKind& kind,
             FilterClient& client);
    ~OpenNode() = default;

    /// From Open on, until Close, this is told of changes.
    void Open();
    void Close();

    /// Puts the node on the server where it is not, and links exactly these ports with it.
    ///
    /// @param likely  positions that a new node has ports for from the start: a port that is there already lets the
    ///                first frame be caught
    void Feed(std::span<const ChannelPosition> likely, std::span<const LinkedPort> ports);

    /// The node that Feed put on the server.
    const Filter& OwnFilter() const { return *mFilter; }

    Surroundings mAround;
    const std::string mUID;

private:
    const std::string mName;
    const FilterKind& mKind;
    FilterClient& mClient;
    // In the order of making: links end before the node that they belong to.
    std::optional<Filter> mFilter;
    std::optional<FilterLinks> mLinks;
};

/// The open nodes of one server object.
class OpenNodes {
public:
    void Add(OpenNode* node) { mNodes.push_back(node); }
    void Remove(OpenNode* node) { std::erase(mNodes, node); }

    /// Brings all in line with the mirror while the server is there, and lets all go otherwise.
    void SetConnected(bool connected);
    bool IsConnected() const { return mConnected; }
    void Update();

private:
    bool mConnected = false;
    std::vector<OpenNode*> mNodes;
};

}  // namespace platform::machine::pipewire
