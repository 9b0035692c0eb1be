#include "platform/machine/linux/pipewire/OpenNode.h"

#include <utility>

namespace platform::machine::pipewire {

OpenNode::OpenNode(const Surroundings& surroundings, std::string uid, std::string name, const FilterKind& kind,
                   FilterClient& client)
    : mAround(surroundings), mUID(std::move(uid)), mName(std::move(name)), mKind(kind), mClient(client)
{
}

void OpenNode::Open()
{
    mAround.mNodes.Add(this);
    try {
        if (mAround.mNodes.IsConnected()) Update();
    } catch (...) {
        Close();  // or the next change would be told to what never was
        throw;
    }
}

void OpenNode::Close()
{
    mAround.mNodes.Remove(this);
    mLinks.reset();
    mFilter.reset();
}

void OpenNode::Feed(std::span<const ChannelPosition> likely, std::span<const LinkedPort> ports)
{
    if (!mFilter || mFilter->IsOver()) {
        mLinks.reset();
        mFilter.emplace(mAround.mContext, mKind, mName, likely, mClient, [this] { mAround.mChanged.Signal(); });
        mLinks.emplace(mAround.mRegistry, *mFilter);
    }
    mLinks->Update(ports);
}

void OpenNode::Detach()
{
    mLinks.reset();
    mFilter.reset();
}

void OpenNodes::SetConnected(bool connected)
{
    mConnected = connected;
    for (OpenNode* node : mNodes) connected ? node->Update() : node->Detach();
}

void OpenNodes::Update()
{
    if (!mConnected) return;
    for (OpenNode* node : mNodes) node->Update();
}

}  // namespace platform::machine::pipewire
