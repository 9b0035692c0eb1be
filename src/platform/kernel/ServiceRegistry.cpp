#include "platform/kernel/ServiceRegistry.h"

#include "platform/foundation/CFBundle.h"
#include "platform/kernel/MutexGuard.h"

#include <algorithm>
#include <iterator>

namespace platform::kernel {

namespace {

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
    for (const cf::Ref<cf::Bundle>& bundle : cf::InstalledBundles()) {
        if (ServiceClassOf(bundle.Get()) != serviceClass) continue;
        if (auto service = FindInBundle(bundle.Get())) found.push_back(std::move(service));
    }
    return found;
}

std::shared_ptr<IOService> ServiceRegistry::FindInBundle(CFBundleRef bundle)
{
    std::shared_ptr<IOService>& service = mOfBundles[bundle->Folder()];
    if (service) return service;
    void* create = CFBundleGetFunctionPointerForName(bundle, CFSTR("CorvaneCreateService"));
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
