// Snapshot: the mirror of the server, put into the port's words.
#pragma once

#include "platform/machine/AudioServer.h"
#include "platform/machine/linux/pipewire/FilterLinks.h"
#include "platform/machine/linux/pipewire/Registry.h"

#include <string>
#include <vector>

namespace platform::machine::pipewire {

/// What the mirror amounts to now. The generation is left at 0.
ServerSnapshot TakeSnapshot(const Registry& registry);

/// The stable name of the output device that streams without a wish of their own play on; may be empty.
std::string DefaultOutputName(const Registry& registry);

/// The stable names of the output devices that a stream plays on, or would if it were not silenced.
std::vector<std::string> OutputNames(const Registry& registry, const Node& stream);

/// Channel positions of a node's ports of one direction.
std::vector<ChannelPosition> ChannelsOf(const Registry& registry, const Node& node, bool output);

/// The ports of a device, of an input's sound (`output`) or for an output's, each at a position of its own: what has
/// none, or that of an earlier port, is counted among the unpositioned ones.
std::vector<LinkedPort> DevicePortsOf(const Registry& registry, const Node& node, bool output);

/// The longest cycle that the settings allow; what a server allows by itself where they are not known.
uint64_t LongestCycleNanos(const Registry& registry);

}  // namespace platform::machine::pipewire
