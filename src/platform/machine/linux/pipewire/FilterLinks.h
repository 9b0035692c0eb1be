// FilterLinks: the links from captured streams, or an input device, to a node of ours, or from it to an output device,
// kept as wanted.
#pragma once

#include "platform/machine/linux/pipewire/Filter.h"
#include "platform/machine/linux/pipewire/Registry.h"

#include <map>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace platform::machine::pipewire {

/// A port on the server that is not ours, and the position that its sound has with us.
struct LinkedPort {
    uint32_t mID;
    ChannelPosition mPosition;
};

/// Where each of them belongs.
std::vector<ChannelPosition> PositionsOf(std::span<const LinkedPort> ports);

/// A link that we had the server make, and that goes with us.
class OwnedLink {
public:
    OwnedLink(pw_core* core, uint32_t outputPort, uint32_t inputPort);

    /// Whether the server took it away or refused it.
    bool IsGone() const { return mGone; }

private:
    static const pw_proxy_events kEvents;

    bool mGone = false;
    Proxy mProxy;
};

class FilterLinks {
public:
    FilterLinks(Registry& registry, Filter& filter) : mRegistry(registry), mFilter(filter) {}

    /// Links these ports as far as both ends are there; takes other links away.
    void Update(std::span<const LinkedPort> ports);

private:
    using Ends = std::pair<uint32_t, uint32_t>;  // the numbers of the output port and the input port

    std::optional<Ends> EndsOf(const LinkedPort& port);

    Registry& mRegistry;
    Filter& mFilter;
    std::map<Ends, OwnedLink> mLinks;
};

/// Makes a link that stays when we go.
void MakeLastingLink(pw_core* core, uint32_t outputPort, uint32_t inputPort);

}  // namespace platform::machine::pipewire
