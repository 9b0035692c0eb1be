#include "platform/machine/linux/pipewire/Registry.h"

#include <algorithm>
#include <utility>

namespace platform::machine::pipewire {

const pw_registry_events Registry::kEvents = {
    .version = PW_VERSION_REGISTRY_EVENTS,
    .global = [](void* self, uint32_t id, uint32_t, const char* type, uint32_t,
                 const spa_dict* properties) { static_cast<Registry*>(self)->OnGlobal(id, type, properties); },
    .global_remove = [](void* self, uint32_t id) { static_cast<Registry*>(self)->OnGlobalRemove(id); },
};

Registry::Registry(std::function<void()> changed) : mChanged(std::move(changed)) {}

Registry::~Registry()
{
    Detach();
}

void Registry::Attach(pw_core* core)
{
    mCore = core;
    mProxy = std::make_unique<Proxy>(pw_core_get_registry(core, PW_VERSION_REGISTRY, 0), kEvents, this);
}

void Registry::Detach()
{
    mDefaults.reset();
    mSettings.reset();
    mNodes.clear();
    mClients.clear();
    mPorts.clear();
    mLinks.clear();
    mProxy.reset();
    mCore = nullptr;
    mBaseID = mLastID;
}

Node* Registry::FindNode(uint32_t id) const
{
    const auto found = mNodes.find(id);
    return found == mNodes.end() ? nullptr : found->second.get();
}

Node* Registry::FindSink(std::string_view name) const
{
    const auto found = std::ranges::find_if(
        mNodes, [&](const auto& entry) { return entry.second->IsSink() && entry.second->Name() == name; });
    return found == mNodes.end() ? nullptr : found->second.get();
}

Node* Registry::FindSource(std::string_view name) const
{
    const auto found = std::ranges::find_if(
        mNodes, [&](const auto& entry) { return entry.second->IsInputDevice() && entry.second->Name() == name; });
    return found == mNodes.end() ? nullptr : found->second.get();
}

Node* Registry::FindStream(uint32_t lastingID) const
{
    const auto found =
        std::ranges::find_if(mNodes, [&](const auto& entry) { return entry.second->mLastingID == lastingID; });
    return found == mNodes.end() || !found->second->IsStream() ? nullptr : found->second.get();
}

const Client* Registry::FindClient(uint32_t id) const
{
    const auto found = mClients.find(id);
    return found == mClients.end() ? nullptr : found->second.get();
}

std::vector<Registry::NumberedPort> Registry::PortsOf(uint32_t node, bool output) const
{
    // A virtual input device is a sink inside, whose monitor is what it delivers.
    const Node* described = FindNode(node);
    const bool monitors = described != nullptr && described->IsInputDevice();
    std::vector<NumberedPort> ports;
    for (const auto& [id, port] : mPorts)
        if (port.mNode == node && port.mOutput == output && (!port.mMonitor || monitors)) ports.push_back({id, &port});
    std::ranges::sort(ports, {}, [](const NumberedPort& port) { return port.mPort->mIndex; });
    return ports;
}

void Registry::DestroyLink(uint32_t id)
{
    const auto link = mLinks.find(id);
    if (link == mLinks.end() || std::exchange(link->second.mDestroyed, true)) return;
    Destroy(id);
}

void Registry::Destroy(uint32_t id)
{
    if (mProxy != nullptr) pw_registry_destroy(mProxy->As<pw_registry>(), id);
}

void Registry::OnGlobal(uint32_t id, std::string_view type, const spa_dict* properties)
{
    if (type == PW_TYPE_INTERFACE_Node)
        AddNode(id, properties);
    else if (type == PW_TYPE_INTERFACE_Client)
        mClients[id] = std::make_unique<Client>(mProxy->As<pw_registry>(), id, properties, mChanged);
    else if (type == PW_TYPE_INTERFACE_Port)
        mPorts.insert_or_assign(id, Port(properties));
    else if (type == PW_TYPE_INTERFACE_Link)
        mLinks.insert_or_assign(id, Link(properties));
    else if (type == PW_TYPE_INTERFACE_Metadata)
        AddMetadata(id, properties);
    else
        return;
    mChanged();
}

void Registry::AddNode(uint32_t id, const spa_dict* properties)
{
    const auto serial = static_cast<uint32_t>(Properties(properties).Number(PW_KEY_OBJECT_SERIAL, id));
    mLastID = std::max(mLastID, mBaseID + serial + 1);
    mNodes[id] = std::make_unique<Node>(mProxy->As<pw_registry>(), id, mBaseID + serial + 1, properties, mChanged);
}

void Registry::AddMetadata(uint32_t id, const spa_dict* properties)
{
    const std::string name = Properties(properties).Get(PW_KEY_METADATA_NAME);
    std::unique_ptr<Metadata>* place = name == "default" ? &mDefaults : name == "settings" ? &mSettings : nullptr;
    if (place != nullptr) *place = std::make_unique<Metadata>(mProxy->As<pw_registry>(), id, mChanged);
}

void Registry::OnGlobalRemove(uint32_t id)
{
    mNodes.erase(id);
    mClients.erase(id);
    mPorts.erase(id);
    mLinks.erase(id);
    if (mDefaults != nullptr && mDefaults->ID() == id) mDefaults.reset();
    if (mSettings != nullptr && mSettings->ID() == id) mSettings.reset();
    mChanged();
}

}  // namespace platform::machine::pipewire
