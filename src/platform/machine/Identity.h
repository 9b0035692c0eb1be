// Identity: who the current process is, as the system and a person see it.
// Why: what a process gets depends on its user and on which application it is; a simulated process is who its script
// says.
#pragma once

#include <sys/types.h>
#include <optional>
#include <string>

namespace platform::machine {

/// The application that the process is the main program of.
struct MainBundle {
    std::string mIdentifier;  // empty: it has none
    std::string mPath;        // absolute, of the executable; empty where it may not be read
};

class Identity {
public:
    virtual ~Identity() = default;

    virtual uid_t RealUser() = 0;
    virtual uid_t EffectiveUser() = 0;
    virtual std::optional<MainBundle> GetMainBundle() = 0;
};

}  // namespace platform::machine
