#include "platform/foundation/CFBundle.h"
#include "platform/kernel/MutexGuard.h"
#include "platform/machine/Files.h"
#include "platform/machine/Machine.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace cf {

namespace {

/// Folders named "*.bundle", in the order of their names; those before an error, where the folder has one.
std::vector<std::string> BundleFolders()
{
    std::vector<std::string> folders;
    std::error_code error;
    std::filesystem::directory_iterator entry(platform::machine::Machine::Current().GetFiles().BundleFolder(), error);
    for (; entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (entry->path().extension() == ".bundle") folders.push_back(entry->path().string());
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

Ref<Bundle> FindInstalled(CFStringRef identifier)
{
    for (const Ref<Bundle>& bundle : InstalledBundles()) {
        const CFStringRef own = CFBundleGetIdentifier(bundle.Get());
        if (own && CFEqual(own, identifier)) return bundle;
    }
    return {};
}

}  // namespace

std::vector<Ref<Bundle>> InstalledBundles()
{
    std::vector<Ref<Bundle>> bundles;
    for (const std::string& folder : BundleFolders()) {
        auto bundle = Ref<Bundle>::Adopt(CFBundleCreate(kCFAllocatorDefault, folder.c_str()));
        if (bundle) bundles.push_back(std::move(bundle));
    }
    return bundles;
}

}  // namespace cf

CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef identifier)
{
    // Neither is ever destroyed: a bundle that was found is kept for the process, so that nobody has to retain it.
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    static auto& found = *new std::map<std::string, cf::Ref<cf::Bundle>>;
    const platform::kernel::MutexGuard guard(mutex);
    cf::Ref<cf::Bundle>& bundle = found[identifier->Text()];
    if (!bundle) bundle = cf::FindInstalled(identifier);
    return bundle.Get();
}
