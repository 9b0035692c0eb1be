// LinuxFiles: well-known paths are what they say, and bundles lie beside the platform's library.
#pragma once

#include "platform/machine/Files.h"

namespace platform::machine {

class LinuxFiles final : public Files {
public:
    std::string Resolve(const std::string& wellKnownPath) override;
    /// The folder "corvane" beside the library that this code is in: the same in a build and installed.
    std::string BundleFolder() override;
    /// "corvane" in the folder that the desktop gives settings: $XDG_CONFIG_HOME, else .config in the user's home.
    std::string PreferencesFolder() override;
    int64_t WriteToStream(int descriptor, const void* bytes, size_t count, uint64_t waitNanos) override;
};

}  // namespace platform::machine
