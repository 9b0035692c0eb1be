// CaptureLinks: the links from captured streams, or an input device, to a node of ours, kept as wanted.
#pragma once

#include "platform/machine/linux/pipewire/CaptureFilter.h"
#include "platform/machine/linux/pipewire/Registry.h"

#include <map>
#include <memory>
#include <span>
#include <utility>

namespace platform::machine::pipewire {

/// An output port on the server, and the position that its sound is for.
struct LinkedPort {
    uint32_t mID;
    ChannelPosition mPosition;
};

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

class CaptureLinks {
public:
    CaptureLinks(Registry& registry, CaptureFilter& filter) : mRegistry(registry), mFilter(filter) {}

    /// Links these ports as far as both ends are there; takes other links away.
    void Update(std::span<const LinkedPort> ports);

private:
    using Ends = std::pair<uint32_t, uint32_t>;  // the numbers of the output port and the input port

    std::optional<uint32_t> InputFor(ChannelPosition position);

    Registry& mRegistry;
    CaptureFilter& mFilter;
    std::map<Ends, std::unique_ptr<OwnedLink>> mLinks;
};

/// Makes a link that stays when we go.
void MakeLastingLink(pw_core* core, uint32_t outputPort, uint32_t inputPort);

}  // namespace platform::machine::pipewire
