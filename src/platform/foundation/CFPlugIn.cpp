#include "platform/foundation/CFPlugIn.h"

#include "platform/foundation/CFUUID.h"
#include "platform/kernel/MutexGuard.h"

#include <cassert>
#include <cstring>
#include <map>

namespace {

struct ByBytes {
    bool operator()(const CFUUIDBytes& a, const CFUUIDBytes& b) const { return std::memcmp(&a, &b, sizeof a) < 0; }
};

struct Instances {
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    std::map<CFUUIDBytes, unsigned, ByBytes> mCounts;
};

// Never destroyed: plug-ins go while the process ends.
Instances& InstancesOfProcess()
{
    static Instances& instances = *new Instances;
    return instances;
}

}  // namespace

void CFPlugInAddInstanceForFactory(CFUUIDRef factory)
{
    Instances& instances = InstancesOfProcess();
    const platform::kernel::MutexGuard locked(instances.mMutex);
    ++instances.mCounts[CFUUIDGetUUIDBytes(factory)];
}

void CFPlugInRemoveInstanceForFactory(CFUUIDRef factory)
{
    Instances& instances = InstancesOfProcess();
    const platform::kernel::MutexGuard locked(instances.mMutex);
    const auto found = instances.mCounts.find(CFUUIDGetUUIDBytes(factory));
    assert(found != instances.mCounts.end());
    if (--found->second == 0) instances.mCounts.erase(found);
}
