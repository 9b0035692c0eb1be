#include "platform/machine/linux/pipewire/Objects.h"

namespace platform::machine::pipewire {

namespace {

uint32_t IDOf(const Properties& properties, const char* key)
{
    return static_cast<uint32_t>(properties.Number(key, PW_ID_ANY));
}

}  // namespace

const pw_client_events Client::kEvents = {
    .version = PW_VERSION_CLIENT_EVENTS,
    .info =
        [](void* self, const pw_client_info* info) {
            auto* client = static_cast<Client*>(self);
            client->mProperties.Merge(info->props);
            client->mKnown = true;
            client->mChanged();
        },
};

Client::Client(pw_registry* registry, uint32_t id, const spa_dict* announced, std::function<void()> changed)
    : Described(id, announced, std::move(changed)),
      mProxy(registry, id, PW_TYPE_INTERFACE_Client, PW_VERSION_CLIENT, &kEvents, this)
{
}

const pw_node_events Node::kEvents = {
    .version = PW_VERSION_NODE_EVENTS,
    .info =
        [](void* self, const pw_node_info* info) {
            auto* node = static_cast<Node*>(self);
            node->mProperties.Merge(info->props);
            node->mRunning = info->state == PW_NODE_STATE_RUNNING;
            node->mKnown = true;
            node->mChanged();
        },
};

Node::Node(pw_registry* registry, uint32_t id, uint32_t lastingID, const spa_dict* announced,
           std::function<void()> changed)
    : Described(id, announced, std::move(changed)),
      mLastingID(lastingID),
      mProxy(registry, id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &kEvents, this)
{
}

Port::Port(const spa_dict* announced)
{
    const Properties properties(announced);
    mNode = IDOf(properties, PW_KEY_NODE_ID);
    mIndex = IDOf(properties, PW_KEY_PORT_ID);
    mOutput = properties.Get(PW_KEY_PORT_DIRECTION) == "out";
    mMonitor = properties.Is(PW_KEY_PORT_MONITOR);
    mChannel = properties.Get(PW_KEY_AUDIO_CHANNEL);
}

Link::Link(const spa_dict* announced)
{
    const Properties properties(announced);
    mOutputNode = IDOf(properties, PW_KEY_LINK_OUTPUT_NODE);
    mOutputPort = IDOf(properties, PW_KEY_LINK_OUTPUT_PORT);
    mInputNode = IDOf(properties, PW_KEY_LINK_INPUT_NODE);
    mInputPort = IDOf(properties, PW_KEY_LINK_INPUT_PORT);
}

}  // namespace platform::machine::pipewire
