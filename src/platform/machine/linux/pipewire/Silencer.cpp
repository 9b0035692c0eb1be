#include "platform/machine/linux/pipewire/Silencer.h"

#include "platform/machine/linux/pipewire/Channels.h"
#include "platform/machine/linux/pipewire/Snapshot.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ranges>

namespace platform::machine::pipewire {

namespace {

constexpr const char* kTargetKey = "target.object";

// Never the same again, also not in a later process with the same number: the session manager would take a
// stream that once played into a hole of that name back into it.
std::string UniqueHoleName()
{
    static std::atomic<unsigned> sCount{0};  // only unique; no order
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    return kHolePrefix + std::to_string(getpid()) + "." + std::to_string(now) + "." +
           std::to_string(sCount.fetch_add(1, std::memory_order_relaxed));
}

// The hole has the channels of the home, so that a stream is mixed to the same channels in it as at home.
void* MakeHole(Registry& registry, const std::string& name, const std::string& home)
{
    const Node* device = registry.FindSink(home);
    std::vector<ChannelPosition> channels;
    if (device != nullptr) channels = ChannelsOf(registry, *device, false);
    if (channels.empty()) channels = {ChannelPosition::FrontLeft, ChannelPosition::FrontRight};
    // The class keeps it from becoming the default when every other sink is gone.
    pw_properties* properties =
        pw_properties_new(PW_KEY_FACTORY_NAME, "support.null-audio-sink", PW_KEY_NODE_NAME, name.c_str(),
                          PW_KEY_NODE_DESCRIPTION, "Corvane: silenced", PW_KEY_MEDIA_CLASS, "Audio/Sink/Internal",
                          "audio.position", ListOf(channels).c_str(), PW_KEY_PRIORITY_SESSION, "0", PW_KEY_NODE_VIRTUAL,
                          "true", PW_KEY_OBJECT_LINGER, "false", kRoleKey, "hole", kHomeKey, home.c_str(), nullptr);
    void* hole = pw_core_create_object(registry.Core(), "adapter", PW_TYPE_INTERFACE_Node, PW_VERSION_NODE,
                                       &properties->dict, 0);
    pw_properties_free(properties);
    return hole;
}

// Whether the session manager moves the stream when it is asked to.
bool IsMovable(const Node& stream)
{
    return stream.mProperties.Is(PW_KEY_NODE_AUTOCONNECT) && !stream.mProperties.Is(PW_KEY_NODE_DONT_RECONNECT);
}

std::vector<std::string> LinkedDevices(const Registry& registry, const Node& stream)
{
    std::vector<std::string> names;
    for (const auto& [id, link] : registry.Links()) {
        const Node* input = link.mOutputNode == stream.mID ? registry.FindNode(link.mInputNode) : nullptr;
        if (input != nullptr && input->IsOutputDevice()) names.push_back(input->Name());
    }
    return names;
}

}  // namespace

const pw_proxy_events Hole::kEvents = {
    .version = PW_VERSION_PROXY_EVENTS,
    .removed = [](void* self) { static_cast<Hole*>(self)->mGone = true; },
    .error = [](void* self, int, int, const char*) { static_cast<Hole*>(self)->mGone = true; },
};

Hole::Hole(Registry& registry, const std::string& home)
    : mRegistry(registry), mName(UniqueHoleName()), mProxy(MakeHole(registry, mName, home), &kEvents, this)
{
}

bool Hole::IsReady() const
{
    // Its ports come when the session manager has taken it up; a stream sent here before would not find it.
    const Node* node = mRegistry.FindSink(mName);
    return node != nullptr && node->mKnown && !mRegistry.PortsOf(node->mID, false).empty();
}

Silencer::~Silencer()
{
    for (const auto& [id, silenced] : mSilenced) Release(silenced);
}

void Silencer::Forget()
{
    mSilenced.clear();
    mHole.reset();
}

void Silencer::Update(std::span<const uint32_t> streams)
{
    DropLostHole();
    ReleaseOthers(streams);
    for (const uint32_t id : streams) {
        const Node* stream = mRegistry.FindStream(id);
        if (stream == nullptr || !stream->mKnown) continue;
        const auto found = mSilenced.find(id);
        if (found == mSilenced.end()) {
            if (PlaysAtHome(*stream)) Silence(*stream);
        } else if (found->second.mWay == Way::Yielded) {
            if (!PlaysAtHome(*stream)) mSilenced.erase(found);  // should it come back, all starts anew
        } else {
            Follow(found->second);
        }
    }
}

void Silencer::ReleaseOthers(std::span<const uint32_t> streams)
{
    for (auto entry = mSilenced.begin(); entry != mSilenced.end();) {
        const bool wanted = std::ranges::find(streams, entry->first) != streams.end();
        if (wanted && mRegistry.FindStream(entry->first) != nullptr) {
            ++entry;
        } else {
            Release(entry->second);
            entry = mSilenced.erase(entry);
        }
    }
}

void Silencer::DropLostHole()
{
    if (mHole == nullptr || !mHole->IsGone()) return;
    mHole.reset();
    std::erase_if(mSilenced, [](const auto& entry) { return entry.second.mWay == Way::Moved; });
}

bool Silencer::PlaysAtHome(const Node& stream) const
{
    const Node* home = mRegistry.FindSink(mHome);
    if (home == nullptr || !home->IsOutputDevice() || mRegistry.Defaults() == nullptr) return false;
    const std::vector<std::string> devices = LinkedDevices(mRegistry, stream);
    return devices.empty() || std::ranges::find(devices, mHome) != devices.end();
}

bool Silencer::HomeStands(const Silenced& silenced) const
{
    const Node* home = mRegistry.FindSink(mHome);
    if (home == nullptr || !home->IsOutputDevice()) return false;
    const std::string defaultName = silenced.mFollowedDefault ? DefaultOutputName(mRegistry) : mHome;
    return defaultName.empty() || defaultName == mHome;
}

void Silencer::Silence(const Node& stream)
{
    Silenced silenced{.mStream = stream.mLastingID, .mNode = stream.mID};
    if (IsMovable(stream)) {
        if (mHole == nullptr) mHole = std::make_unique<Hole>(mRegistry, mHome);
        if (!mHole->IsReady()) return;  // its readiness is a change, which brings us here again
        Move(silenced);
    } else {
        silenced.mWay = Way::Unlinked;
        Cut(silenced);
    }
    mSilenced.emplace(stream.mLastingID, std::move(silenced));
}

void Silencer::Move(Silenced& silenced)
{
    if (const Metadata::Value* old = mRegistry.Defaults()->Find(silenced.mNode, kTargetKey)) silenced.mOldTarget = *old;
    silenced.mFollowedDefault = !silenced.mOldTarget && DefaultOutputName(mRegistry) == mHome;
    // The type and the name matter: by a number the session manager would store the hole as the user's wish.
    const Metadata::Value target{"Spa:String", mHole->Name()};
    mRegistry.Defaults()->Set(silenced.mNode, kTargetKey, &target);
}

void Silencer::Cut(Silenced& silenced)
{
    mRegistry.FindNode(silenced.mNode)->mHeldHome = mHome;
    for (const auto& [id, link] : mRegistry.Links()) {
        const Node* input = link.mOutputNode == silenced.mNode ? mRegistry.FindNode(link.mInputNode) : nullptr;
        const auto port = mRegistry.Ports().find(link.mInputPort);
        if (input == nullptr || !input->IsOutputDevice() || port == mRegistry.Ports().end()) continue;
        const CutLink cut{link.mOutputPort, input->Name(), port->second.mChannel};
        if (std::ranges::find(silenced.mCuts, cut) == silenced.mCuts.end()) silenced.mCuts.push_back(cut);
        mRegistry.DestroyLink(id);
    }
}

void Silencer::Follow(Silenced& silenced)
{
    if (silenced.mWay == Way::Unlinked) return Cut(silenced);  // the session manager may have linked it anew
    if (mRegistry.Defaults() == nullptr) return;
    const Metadata::Value* target = mRegistry.Defaults()->Find(silenced.mNode, kTargetKey);
    if (target != nullptr && target->mText == mHole->Name()) silenced.mNoted = true;
    const bool silent = target != nullptr && target->mText.starts_with(kHolePrefix);
    if ((silent || !silenced.mNoted) && HomeStands(silenced)) return;
    RestoreTarget(silenced);
    silenced.mWay = Way::Yielded;
}

void Silencer::Release(const Silenced& silenced)
{
    Node* stream = mRegistry.FindStream(silenced.mStream);
    if (stream != nullptr && silenced.mWay != Way::Yielded) stream->mHeldHome = mHome;
    if (silenced.mWay == Way::Moved) RestoreTarget(silenced);
    if (silenced.mWay == Way::Unlinked) RestoreLinks(silenced);
}

// Also for a stream that has gone: the next node of that number must not find our note.
void Silencer::RestoreTarget(const Silenced& silenced)
{
    Metadata* defaults = mRegistry.Defaults();
    if (defaults == nullptr) return;
    const Metadata::Value* target = defaults->Find(silenced.mNode, kTargetKey);
    if (silenced.mNoted && (target == nullptr || target->mText != mHole->Name())) return;  // somebody else's wish
    const std::optional<Metadata::Value>& old = silenced.mOldTarget;
    const bool restored = old && mRegistry.FindStream(silenced.mStream) != nullptr &&
                          (!old->mText.starts_with(kHolePrefix) || mRegistry.FindSink(old->mText) != nullptr);
    defaults->Set(silenced.mNode, kTargetKey, restored ? &*old : nullptr);
}

void Silencer::RestoreLinks(const Silenced& silenced)
{
    for (const CutLink& cut : silenced.mCuts) {
        const Node* device = mRegistry.FindSink(cut.mInputNode);
        const auto output = mRegistry.Ports().find(cut.mOutputPort);
        if (device == nullptr || output == mRegistry.Ports().end() || output->second.mNode != silenced.mNode) continue;
        for (const auto& [id, port] : mRegistry.PortsOf(device->mID, false))
            if (port->mChannel == cut.mInputChannel) MakeLastingLink(mRegistry.Core(), cut.mOutputPort, id);
    }
}

void ForgetLostHoles(Registry& registry)
{
    if (registry.Defaults() == nullptr) return;
    for (const auto& [key, value] : registry.Defaults()->Values())
        if (key.second == kTargetKey && value.mText.starts_with(kHolePrefix) &&
            registry.FindSink(value.mText) == nullptr)
            registry.Defaults()->Set(key.first, kTargetKey, nullptr);
}

void SettleHomes(Registry& registry)
{
    for (const auto& [id, node] : registry.Nodes())
        if (node->mHeldHome && !LinkedDevices(registry, *node).empty()) node->mHeldHome.reset();
}

}  // namespace platform::machine::pipewire
