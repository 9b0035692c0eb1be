// Files: the roots under which well-known paths lie on the current machine.
// Why: "/mach_kernel" and the bundle folder are fixed names to the callers, and a fixture to the tests.
#pragma once

#include <string>

namespace platform::machine {

class Files {
public:
    virtual ~Files() = default;

    /// Where a well-known absolute path lies on this machine.
    virtual std::string Resolve(const std::string& wellKnownPath) = 0;

    /// The folder that holds the bundles (plug-ins and services) that belong to this installation.
    virtual std::string BundleFolder() = 0;

    /// The folder for the settings of the current user, which need not exist; empty where he has none.
    virtual std::string PreferencesFolder() = 0;
};

}  // namespace platform::machine
