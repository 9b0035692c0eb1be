#include "platform/machine/linux/LinuxIdentity.h"

#include "platform/process/ApplicationGroups.h"

#include <unistd.h>

namespace platform::machine {

uid_t LinuxIdentity::RealUser()
{
    return getuid();
}

uid_t LinuxIdentity::EffectiveUser()
{
    return geteuid();
}

std::optional<MainBundle> LinuxIdentity::GetMainBundle()
{
    std::call_once(mOnce, [this] {
        process::ApplicationGroups groups(mProcesses);
        const process::Application* application = groups.Add(mProcesses.Self(), {});
        if (application) mMainBundle = MainBundle{application->mIdentifier, application->mExecutable};
    });
    return mMainBundle;
}

}  // namespace platform::machine
