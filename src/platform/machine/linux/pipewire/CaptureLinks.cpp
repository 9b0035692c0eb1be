#include "platform/machine/linux/pipewire/CaptureLinks.h"

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

void CaptureLinks::Update(std::span<const LinkedPort> ports)
{
    std::map<Ends, std::unique_ptr<OwnedLink>> wanted;
    for (const LinkedPort& port : ports) {
        const std::optional<uint32_t> input = InputFor(port.mPosition);
        if (!input) continue;
        const Ends ends(port.mID, *input);
        std::unique_ptr<OwnedLink> link = std::move(mLinks[ends]);
        if (link == nullptr || link->IsGone()) link = std::make_unique<OwnedLink>(mRegistry.Core(), port.mID, *input);
        wanted[ends] = std::move(link);
    }
    mLinks = std::move(wanted);
}

std::optional<uint32_t> CaptureLinks::InputFor(ChannelPosition position)
{
    mFilter.EnsurePort(position);
    const std::optional<uint32_t> node = mFilter.NodeID();
    if (!node) return std::nullopt;
    const std::string channel = NameOf(position);
    for (const auto& [id, port] : mRegistry.PortsOf(*node, false))
        if (port->mChannel == channel) return id;
    return std::nullopt;
}

}  // namespace platform::machine::pipewire
