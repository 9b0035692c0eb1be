// DeviceCommands: virtual devices made, shown, changed and removed in the shared preferences.
// Why: they work whether or not any process has the devices; those that run hear of it at once.
// Every call returns an exit code, and has told a person what is wrong where that is not 0.
#pragma once

#include "cli/DeviceWords.h"

#include <string>
#include <vector>

namespace cli {

/// Reads the file of the virtual devices, for commands that change nothing.
int ReadPreferenceRoot(cf::Ref<cf::Dictionary>& root);

int ListVirtualDevices(bool json);
int ShowDevice(const std::string& device, bool json);

/// Of all virtual devices, in their order; none where the list cannot be read.
std::vector<std::string> VirtualDeviceNames();

/// Adds a device, and turns the master switch on.
int AddDevice(const std::string& name, const DeviceOptions& options, bool json);
int SetDevice(const std::string& device, const DeviceOptions& options);
int RenameDevice(const std::string& device, const std::string& name);
int RemoveDevices(const std::vector<std::string>& devices);

/// @param all  the master switch, and no device
int EnableDevices(const std::vector<std::string>& devices, bool all, bool enabled);

}  // namespace cli
