#include "platform/machine/linux/pipewire/Channels.h"

#include "platform/machine/linux/pipewire/Properties.h"

#include <algorithm>
#include <array>

namespace platform::machine::pipewire {

namespace {

// In the order of ChannelPosition, from Unknown on.
constexpr std::array<std::string_view, 20> kNames = {"UNK", "MONO", "FL",  "FR",  "FC",  "LFE", "SL",
                                                     "SR",  "RL",   "RR",  "RC",  "FLC", "FRC", "TC",
                                                     "TFL", "TFC",  "TFR", "TRL", "TRC", "TRR"};
static_assert(kNames.size() - 1 == static_cast<unsigned>(ChannelPosition::TopRearRight));
static_assert(kNames.size() - 1 + kAuxiliaryChannels == kPositions);

constexpr unsigned kAuxiliary0 = static_cast<unsigned>(ChannelPosition::Auxiliary0);
constexpr std::string_view kBetween = " ,[]";

}  // namespace

ChannelPosition PositionOf(std::string_view name)
{
    const auto found = std::find(kNames.begin(), kNames.end(), name);
    if (found != kNames.end()) return static_cast<ChannelPosition>(found - kNames.begin());
    if (!name.starts_with("AUX")) return ChannelPosition::Unknown;
    const uint64_t index = ParseNumber(name.substr(3), kAuxiliaryChannels);
    return index < kAuxiliaryChannels ? static_cast<ChannelPosition>(kAuxiliary0 + index) : ChannelPosition::Unknown;
}

std::string NameOf(ChannelPosition position)
{
    const auto index = static_cast<unsigned>(position);
    if (index < kNames.size()) return std::string(kNames[index]);
    return "AUX" + std::to_string(index - kAuxiliary0);
}

std::string ListOf(std::span<const ChannelPosition> positions)
{
    std::string list = "[ ";
    for (const ChannelPosition position : positions) list += NameOf(position) + " ";
    return list + "]";
}

std::vector<ChannelPosition> PositionsOf(std::string_view list)
{
    std::vector<ChannelPosition> positions;
    for (size_t start = list.find_first_not_of(kBetween); start != list.npos;
         start = list.find_first_not_of(kBetween, start)) {
        const size_t end = std::min(list.find_first_of(kBetween, start), list.size());
        positions.push_back(PositionOf(list.substr(start, end - start)));
        start = end;
    }
    return positions;
}

}  // namespace platform::machine::pipewire
