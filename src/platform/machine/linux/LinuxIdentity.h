// LinuxIdentity: the user from the kernel; the application as the list of applications has it.
#pragma once

#include "platform/machine/Identity.h"
#include "platform/machine/Processes.h"

#include <mutex>

namespace platform::machine {

class LinuxIdentity final : public Identity {
public:
    explicit LinuxIdentity(Processes& processes) : mProcesses(processes) {}

    uid_t RealUser() override;
    uid_t EffectiveUser() override;
    /// Found out once: the programs above this one may end before it.
    std::optional<MainBundle> GetMainBundle() override;

private:
    Processes& mProcesses;
    std::once_flag mOnce;
    std::optional<MainBundle> mMainBundle;  // written under mOnce
};

}  // namespace platform::machine
