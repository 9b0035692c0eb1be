// ServiceRegistry: which services there are, in this process and in the bundles of the installation.
// Why: a bundle is loaded when its class is first asked for, and its service is then kept for the process.
#pragma once

#include "platform/kernel/IOKit.h"
#include "platform/kernel/Threads.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace platform::kernel {

/// All calls may come from any thread.
class ServiceRegistry {
public:
    using Services = std::vector<std::shared_ptr<IOService>>;

    /// The registry of this process. It is never destroyed: services of bundles may be in use to the end.
    static ServiceRegistry& Get();

    void Publish(std::shared_ptr<IOService> service);
    void Withdraw();

    /// Services of a class: those published in their order, then those of bundles in the order of their names.
    /// A bundle that cannot be used is passed over, with one line on standard error where it has that class.
    Services Find(const std::string& serviceClass);

private:
    std::shared_ptr<IOService> FindInBundle(CFBundleRef bundle);

    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    Services mPublished;
    pthread_mutex_t mBundlesMutex = PTHREAD_MUTEX_INITIALIZER;     // taken alone; held while a service is made
    std::map<std::string, std::shared_ptr<IOService>> mOfBundles;  // by folder
};

}  // namespace platform::kernel
