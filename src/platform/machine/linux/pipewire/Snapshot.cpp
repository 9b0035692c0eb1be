#include "platform/machine/linux/pipewire/Snapshot.h"

#include "platform/machine/linux/pipewire/Channels.h"

#include <spa/utils/json.h>

#include <algorithm>
#include <array>

namespace platform::machine::pipewire {

namespace {

constexpr uint32_t kUsualRateHz = 48000;
constexpr uint64_t kUsualLongestQuantum = 8192;
constexpr uint64_t kUsualLowestRateHz = 44100;

// Any client may write the settings and call its node's rate what it likes. Buffers are made by these numbers.
struct Plausible {
    uint64_t mLeast, mMost;
    uint64_t Or(uint64_t otherwise, uint64_t number) const
    {
        return number >= mLeast && number <= mMost ? number : otherwise;
    }
};
constexpr Plausible kRatesHz{1000, 1'000'000};
constexpr Plausible kQuanta{1, 65536};

uint64_t Setting(const Registry& registry, const char* key, const Plausible& numbers, uint64_t otherwise)
{
    if (registry.Settings() == nullptr) return otherwise;
    return numbers.Or(otherwise, ParseNumber(registry.Settings()->Text(key), otherwise));
}

// What an input delivers comes at the graph's rate, whatever its hardware runs at.
double RateOf(const Registry& registry, const Node& node)
{
    const uint64_t usual = Setting(registry, "clock.rate", kRatesHz, kUsualRateHz);
    if (node.IsInputDevice()) return static_cast<double>(Setting(registry, "clock.force-rate", kRatesHz, usual));
    return static_cast<double>(kRatesHz.Or(usual, node.mProperties.Number(PW_KEY_AUDIO_RATE, usual)));
}

Device DescribeDevice(const Registry& registry, const Node& node, std::vector<ChannelPosition> channels)
{
    Device device;
    device.mID = node.mLastingID;
    device.mUID = node.Name();
    const std::string& description = node.mProperties.Get(PW_KEY_NODE_DESCRIPTION);
    device.mName = description.empty() ? node.Name() : description;
    device.mNominalRateHz = RateOf(registry, node);
    device.mChannels = std::move(channels);
    return device;
}

// A device that was not configured yet has no ports, and says what it is going to have.
std::vector<ChannelPosition> ExpectedChannelsOf(const Registry& registry, const Node& node, bool output)
{
    std::vector<ChannelPosition> channels = ChannelsOf(registry, node, output);
    return channels.empty() ? PositionsOf(node.mProperties.Get("audio.position")) : channels;
}

// As many as there are positions for: of a wider device those beyond are left out.
std::vector<ChannelPosition> WithoutDoubles(std::vector<ChannelPosition> channels)
{
    for (auto channel = channels.begin(); channel != channels.end(); ++channel) {
        const auto taken = [&](ChannelPosition position) {
            return position == ChannelPosition::Unknown || std::find(channels.begin(), channel, position) != channel;
        };
        for (unsigned i = 0; i < kAuxiliaryChannels && taken(*channel); ++i)
            *channel = static_cast<ChannelPosition>(static_cast<unsigned>(ChannelPosition::Auxiliary0) + i);
        if (taken(*channel)) return {channels.begin(), channel};
    }
    return channels;
}

// A stream that a go-between plays for a program carries that program's number itself. Otherwise what the
// kernel said of the connection counts, not what the program claims.
pid_t ProcessOf(const Node& node, const Client& client)
{
    const uint64_t claimed =
        node.mProperties.Number(PW_KEY_APP_PROCESS_ID, client.mProperties.Number(PW_KEY_APP_PROCESS_ID));
    if (client.mProperties.Get(PW_KEY_CLIENT_API) == "pipewire-pulse") return static_cast<pid_t>(claimed);
    return static_cast<pid_t>(client.mProperties.Number(PW_KEY_SEC_PID, claimed));
}

std::string Either(const Node& node, const Client& client, const char* key)
{
    const std::string& own = node.mProperties.Get(key);
    return own.empty() ? client.mProperties.Get(key) : own;
}

PlaybackStream DescribeStream(const Registry& registry, const Node& node, const Client& client)
{
    PlaybackStream stream;
    stream.mID = node.mLastingID;
    stream.mPID = ProcessOf(node, client);
    stream.mApplicationName = Either(node, client, PW_KEY_APP_NAME);
    stream.mApplicationID = Either(node, client, PW_KEY_APP_ID);
    stream.mSandboxID = client.mProperties.Get("pipewire.access.portal.app_id");
    stream.mPlaying = node.mRunning;
    stream.mChannels = ChannelsOf(registry, node, true);
    for (const std::string& name : OutputNames(registry, node))
        if (const Node* device = registry.FindSink(name)) stream.mOutputs.push_back(device->mLastingID);
    std::ranges::sort(stream.mOutputs);
    return stream;
}

// A node is shown when the server has told all of it: before that it may still turn out to be one of ours.
bool IsShown(const Node& node)
{
    return node.mKnown && !node.IsOurs();
}

void AddStream(const Registry& registry, const Node& node, ServerSnapshot& snapshot)
{
    const Client* client = registry.FindClient(static_cast<uint32_t>(node.mProperties.Number(PW_KEY_CLIENT_ID)));
    if (client != nullptr && client->mKnown) snapshot.mStreams.push_back(DescribeStream(registry, node, *client));
}

}  // namespace

std::vector<ChannelPosition> ChannelsOf(const Registry& registry, const Node& node, bool output)
{
    std::vector<ChannelPosition> channels;
    for (const auto& port : registry.PortsOf(node.mID, output)) channels.push_back(PositionOf(port.mPort->mChannel));
    return channels;
}

std::vector<std::string> OutputNames(const Registry& registry, const Node& stream)
{
    std::vector<std::string> names;
    const auto add = [&](const std::string& name) {
        const Node* device = registry.FindSink(name);
        if (device == nullptr || !device->IsOutputDevice() || !IsShown(*device)) return;
        if (std::ranges::find(names, name) == names.end()) names.push_back(name);
    };
    const auto addHomeOf = [&](const Node& node) {
        const std::string& home = node.mProperties.Get(kHomeKey);
        add(home.empty() ? node.Name() : home);
    };
    for (const auto& [id, link] : registry.Links()) {
        const Node* input = link.mOutputNode == stream.mID ? registry.FindNode(link.mInputNode) : nullptr;
        if (input != nullptr) addHomeOf(*input);
    }
    // A stream on its way into a hole is without links for a moment, and is at home all the same.
    const Metadata::Value* target =
        registry.Defaults() == nullptr ? nullptr : registry.Defaults()->Find(stream.mID, "target.object");
    const Node* hole =
        target != nullptr && target->mText.starts_with(kHolePrefix) ? registry.FindSink(target->mText) : nullptr;
    if (hole != nullptr) addHomeOf(*hole);
    if (stream.mHeldHome) add(*stream.mHeldHome);
    return names;
}

std::vector<LinkedPort> DevicePortsOf(const Registry& registry, const Node& node, bool output)
{
    const std::vector<ChannelPosition> positions = WithoutDoubles(ChannelsOf(registry, node, output));
    std::vector<LinkedPort> ports;
    for (const auto& [id, port] : registry.PortsOf(node.mID, output))
        if (ports.size() < positions.size()) ports.push_back({id, positions[ports.size()]});
    return ports;
}

namespace {

// The stable name that a note of the whole graph holds; may be empty.
std::string NameNotedAs(const Registry& registry, const char* note)
{
    if (registry.Defaults() == nullptr) return {};
    const std::string text = registry.Defaults()->Text(note);
    std::array<spa_json, 2> levels;
    spa_json_init(&levels[0], text.data(), text.size());
    if (spa_json_enter_object(&levels[0], &levels[1]) <= 0) return {};
    std::array<char, 1024> key, value;
    while (spa_json_get_string(&levels[1], key.data(), key.size()) > 0) {
        const bool isName = std::string_view(key.data()) == "name";
        if (isName && spa_json_get_string(&levels[1], value.data(), value.size()) > 0) return value.data();
        const char* skipped = nullptr;
        if (!isName && spa_json_next(&levels[1], &skipped) <= 0) break;
    }
    return {};
}

}  // namespace

std::string DefaultOutputName(const Registry& registry)
{
    return NameNotedAs(registry, "default.audio.sink");
}

ServerSnapshot TakeSnapshot(const Registry& registry)
{
    ServerSnapshot snapshot;
    snapshot.mConnected = true;
    const std::string defaultOutput = DefaultOutputName(registry);
    const std::string defaultInput = NameNotedAs(registry, "default.audio.source");
    for (const auto& [id, node] : registry.Nodes()) {
        if (!IsShown(*node)) continue;
        if (node->IsOutputDevice()) {
            snapshot.mOutputs.push_back(DescribeDevice(registry, *node, ExpectedChannelsOf(registry, *node, false)));
            if (node->Name() == defaultOutput) snapshot.mDefaultOutput = node->mLastingID;
        } else if (node->IsInputDevice()) {
            snapshot.mInputs.push_back(
                DescribeDevice(registry, *node, WithoutDoubles(ExpectedChannelsOf(registry, *node, true))));
            if (node->Name() == defaultInput) snapshot.mDefaultInput = node->mLastingID;
        } else if (node->IsStream()) {
            AddStream(registry, *node, snapshot);
        }
    }
    std::ranges::sort(snapshot.mOutputs, {}, &Device::mID);
    std::ranges::sort(snapshot.mInputs, {}, &Device::mID);
    std::ranges::sort(snapshot.mStreams, {}, &PlaybackStream::mID);
    return snapshot;
}

uint64_t LongestCycleNanos(const Registry& registry)
{
    const uint64_t quantum = std::max(Setting(registry, "clock.max-quantum", kQuanta, kUsualLongestQuantum),
                                      Setting(registry, "clock.force-quantum", kQuanta, 0));
    uint64_t rate = Setting(registry, "clock.rate", kRatesHz, kUsualLowestRateHz);
    rate = std::min(rate, Setting(registry, "clock.force-rate", kRatesHz, rate));
    const std::string allowed =
        registry.Settings() == nullptr ? std::string() : registry.Settings()->Text("clock.allowed-rates");
    for (size_t at = allowed.find_first_of("0123456789"); at != allowed.npos;
         at = allowed.find_first_of("0123456789", at)) {
        rate = std::min(rate, kRatesHz.Or(rate, ParseNumber(std::string_view(allowed).substr(at), rate)));
        at = allowed.find_first_not_of("0123456789", at);
        if (at == allowed.npos) break;
    }
    return quantum * 1'000'000'000 / rate;
}

}  // namespace platform::machine::pipewire
