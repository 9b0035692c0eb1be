// DeviceWords: the words of a device's commands, and what they mean in its settings.
#pragma once

#include "cli/DeviceList.h"

#include <optional>
#include <string>
#include <vector>

namespace cli {

/// As they were written.
struct DeviceOptions {
    std::vector<std::string> mSources;
    std::vector<std::string> mFrom;
    std::optional<std::string> mChannels;
    std::optional<std::string> mRate;
};

/// Puts what was written into the settings; what was not stays as it is there.
///
/// @param problem  for a person, where the result is not kExitDone; the settings may be half changed then
/// @return         an exit code
int ApplyWords(const DeviceOptions& options, CVNDevice& settings, std::string& problem);

/// The nominal rate of the first output that the device captures.
///
/// @return kExitDone, or kExitNoServer where there is none to ask
int ReadOutputRate(const CVNDevice& settings, double& rateHz, std::string& problem);

/// An application as the preferences name it, by what is written behind "app:", "id:" or "path:".
int FindApplication(const std::string& words, cf::Ref<cf::Dictionary>& application, std::string& problem);

/// The UID of an output, or what stands for outputs, by what a person writes: "default", a UID, or a name as listed.
int FindOutput(const std::string& words, std::string& uid, std::string& problem);

/// Whether a name can be shown and kept: some text in UTF-8 without control characters. @return an empty string, or
/// what is wrong
std::string CheckName(const std::string& name);

/// A source, or what stands for devices, as a person writes it.
std::string WrittenSource(CFDictionaryRef source);
std::string WrittenOutput(const std::string& uid);

}  // namespace cli
