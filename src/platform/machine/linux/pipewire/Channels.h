// Channels: the server's names of channel positions.
#pragma once

#include "platform/machine/AudioServer.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace platform::machine::pipewire {

/// Every position that a capture can take, in the order of ChannelPosition.
constexpr unsigned kPositions = 19 + kAuxiliaryChannels;

/// The position that the server calls `name`, or Unknown.
ChannelPosition PositionOf(std::string_view name);

/// The server's name of `position`.
std::string NameOf(ChannelPosition position);

/// A list in the server's notation, as "[ FL FR ]".
std::string ListOf(std::span<const ChannelPosition> positions);
std::vector<ChannelPosition> PositionsOf(std::string_view list);

}  // namespace platform::machine::pipewire
