#include "platform/machine/linux/pipewire/FilterLinks.h"

#include <set>

namespace platform::machine::pipewire {

namespace {

pw_proxy* MakeLink(pw_core* core, uint32_t outputPort, uint32_t inputPort, bool lasting)
{
    pw_properties* properties = pw_properties_new(PW_KEY_OBJECT_LINGER, lasting ? "true" : "false", nullptr);
    pw_properties_setf(properties, PW_KEY_LINK_OUTPUT_PORT, "%u", outputPort);
    pw_properties_setf(properties, PW_KEY_LINK_INPUT_PORT, "%u", inputPort);
    void* link =
        pw_core_create_object(core, "link-factory", PW_TYPE_INTERFACE_Link, PW_VERSION_LINK, &properties->dict, 0);
    pw_properties_free(properties);
    return static_cast<pw_proxy*>(link);
}

}  // namespace

std::vector<ChannelPosition> PositionsOf(std::span<const LinkedPort> ports)
{
    std::vector<ChannelPosition> positions;
    for (const LinkedPort& port : ports) positions.push_back(port.mPosition);
    return positions;
}

const pw_proxy_events OwnedLink::kEvents = {
    .version = PW_VERSION_PROXY_EVENTS,
    .removed = [](void* self) { static_cast<OwnedLink*>(self)->mGone = true; },
    .error = [](void* self, int, int, const char*) { static_cast<OwnedLink*>(self)->mGone = true; },
};

OwnedLink::OwnedLink(pw_core* core, uint32_t outputPort, uint32_t inputPort)
    : mProxy(MakeLink(core, outputPort, inputPort, false), &kEvents, this)
{
}

void MakeLastingLink(pw_core* core, uint32_t outputPort, uint32_t inputPort)
{
    if (pw_proxy* link = MakeLink(core, outputPort, inputPort, true)) pw_proxy_destroy(link);
}

// What is not wanted any more goes first: for a moment two clocks would be linked through our node.
void FilterLinks::Update(std::span<const LinkedPort> ports)
{
    std::set<Ends> wanted;
    for (const LinkedPort& port : ports)
        if (const std::optional<Ends> ends = EndsOf(port)) wanted.insert(*ends);
    std::erase_if(mLinks, [&](const auto& link) { return link.second.IsGone() || !wanted.contains(link.first); });
    for (const Ends& ends : wanted) mLinks.try_emplace(ends, mRegistry.Core(), ends.first, ends.second);
}

std::optional<FilterLinks::Ends> FilterLinks::EndsOf(const LinkedPort& port)
{
    mFilter.EnsurePort(port.mPosition);
    const std::optional<uint32_t> node = mFilter.NodeID();
    if (!node) return std::nullopt;
    const bool plays = mFilter.Direction() == PW_DIRECTION_OUTPUT;
    const std::string channel = NameOf(port.mPosition);
    for (const auto& [id, ours] : mRegistry.PortsOf(*node, plays))
        if (ours->mChannel == channel) return plays ? Ends(id, port.mID) : Ends(port.mID, id);
    return std::nullopt;
}

}  // namespace platform::machine::pipewire
