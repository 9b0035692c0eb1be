// Files: the roots under which well-known paths lie on the current machine.
// Why: "/mach_kernel" and the bundle folder are fixed names to the callers, and a fixture to the tests.
#pragma once

#include <cstddef>
#include <cstdint>
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

    /// Writes what a pipe, socket or device takes without a wait for its reader, once it takes anything.
    ///
    /// @param descriptor  may be shared with other processes; its flags are left as they are
    /// @param waitNanos   the longest wait until it takes something
    /// @return            bytes written; 0: it took nothing in that time; or the negative error number
    /// @thread            any that may block
    virtual int64_t WriteToStream(int descriptor, const void* bytes, size_t count, uint64_t waitNanos) = 0;
};

}  // namespace platform::machine
