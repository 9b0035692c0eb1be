#include "platform/kernel/ServiceRegistry.h"

#include "platform/foundation/CFBundle.h"
#include "platform/kernel/MutexGuard.h"
#include "platform/machine/Files.h"
#include "platform/machine/Machine.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>

namespace platform::kernel {

namespace {

/// Folders named "*.bundle", in the order of their names; those before an error, where the folder has one.
std::vector<std::string> BundleFolders()
{
    std::vector<std::string> folders;
    std::error_code error;
    std::filesystem::directory_iterator entry(machine::Machine::Current().GetFiles().BundleFolder(), error);
    for (; entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (entry->path().extension() == ".bundle") folders.push_back(entry->path().string());
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

std::string ServiceClassOf(CFBundleRef bundle)
{
    return cf::ToStdString(
        cf::As<cf::String>(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("CorvaneServiceClass"))));
}

}  // namespace

ServiceRegistry& ServiceRegistry::Get()
{
    static auto& registry = *new ServiceRegistry;
    return registry;
}

void ServiceRegistry::Publish(std::shared_ptr<IOService> service)
{
    MutexGuard guard(mMutex);
    mPublished.push_back(std::move(service));
}

void ServiceRegistry::Withdraw()
{
    Services withdrawn;  // their ends run without the lock
    MutexGuard guard(mMutex);
    withdrawn.swap(mPublished);
}

ServiceRegistry::Services ServiceRegistry::Find(const std::string& serviceClass)
{
    Services found;
    {
        MutexGuard guard(mMutex);
        std::copy_if(mPublished.begin(), mPublished.end(), std::back_inserter(found),
                     [&](const std::shared_ptr<IOService>& service) { return service->GetClass() == serviceClass; });
    }
    MutexGuard guard(mBundlesMutex);
    for (const std::string& folder : BundleFolders()) {
        if (auto service = FindInBundle(folder, serviceClass)) found.push_back(std::move(service));
    }
    return found;
}

std::shared_ptr<IOService> ServiceRegistry::FindInBundle(const std::string& folder, const std::string& serviceClass)
{
    const auto bundle = cf::Ref<cf::Bundle>::Adopt(CFBundleCreate(kCFAllocatorDefault, folder.c_str()));
    if (!bundle || ServiceClassOf(bundle.Get()) != serviceClass) return nullptr;
    std::shared_ptr<IOService>& service = mOfBundles[folder];
    if (service) return service;
    void* create = CFBundleGetFunctionPointerForName(bundle.Get(), CFSTR("CorvaneCreateService"));
    if (create) service.reset(reinterpret_cast<decltype(&CorvaneCreateService)>(create)());
    return service;
}

void PublishService(std::shared_ptr<IOService> service)
{
    ServiceRegistry::Get().Publish(std::move(service));
}

void WithdrawServices()
{
    ServiceRegistry::Get().Withdraw();
}

}  // namespace platform::kernel
