// Outputs: the output devices as the command shows and chooses them, and whether there is a server at all.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace cli {

struct Output {
    std::string mUID;
    std::string mName;
    double mRateHz = 0;
    unsigned mChannels = 0;
    bool mIsDefault = false;
};

std::vector<Output> CopyOutputs();

/// Whether the audio server can be reached; if not, one sentence that says what was tried and what to start.
std::optional<std::string> WhyNoServer();

/// The device that `name` stands for, by UID or else by the name as listed. @return null where nothing, or more than
/// one, matches
const Output* FindOutput(const std::vector<Output>& outputs, const std::string& name);

}  // namespace cli
