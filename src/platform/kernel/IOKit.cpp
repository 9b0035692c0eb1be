#include "platform/kernel/IOKit.h"

#include "platform/kernel/MutexGuard.h"
#include "platform/kernel/ServiceRegistry.h"

#include <cassert>
#include <map>
#include <variant>

namespace {

using platform::kernel::IOService;
using platform::kernel::IOUserClient;
using platform::kernel::MethodCall;
using platform::kernel::MutexGuard;
using platform::kernel::ServiceRegistry;

/// Services found, and how many of them were handed out.
struct Iterator {
    explicit Iterator(ServiceRegistry::Services services) : mServices(std::move(services)) {}

    std::shared_ptr<IOService> Next()
    {
        MutexGuard guard(mMutex);
        return mNext < mServices.size() ? mServices[mNext++] : nullptr;
    }

private:
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    const ServiceRegistry::Services mServices;
    size_t mNext = 0;
};

/// A user client, its service, which outlives it, and the lock that makes its calls come one at a time.
class Connection {
public:
    Connection(std::shared_ptr<IOService> service, std::unique_ptr<IOUserClient> client)
        : mService(std::move(service)), mClient(std::move(client))
    {
    }

    template <class Call>
    kern_return_t Do(Call call)
    {
        MutexGuard guard(mMutex);
        return mClient ? call(*mClient) : kIOReturnBadArgument;  // closed while the call waited
    }

    void Close()
    {
        MutexGuard guard(mMutex);
        mClient.reset();
    }

private:
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    const std::shared_ptr<IOService> mService;
    std::unique_ptr<IOUserClient> mClient;
};

/// What the numbers stand for. The lock is held for a look and no longer; nothing is destroyed under it.
class ObjectTable {
public:
    using Object = std::variant<std::shared_ptr<IOService>, std::shared_ptr<Iterator>, std::shared_ptr<Connection>>;

    static ObjectTable& Get()
    {
        static auto& table = *new ObjectTable;
        return table;
    }

    io_object_t Add(Object object)
    {
        MutexGuard guard(mMutex);
        mObjects.emplace(++mLast, std::move(object));
        return mLast;
    }

    /// Null where the number stands for nothing, or for something else.
    template <class T>
    std::shared_ptr<T> Find(io_object_t number)
    {
        MutexGuard guard(mMutex);
        const auto found = mObjects.find(number);
        const auto* object = found == mObjects.end() ? nullptr : std::get_if<std::shared_ptr<T>>(&found->second);
        return object ? *object : nullptr;
    }

    /// Takes a T out of the table.
    template <class T>
    std::shared_ptr<T> Take(io_object_t number)
    {
        MutexGuard guard(mMutex);
        const auto found = mObjects.find(number);
        if (found == mObjects.end() || !std::holds_alternative<std::shared_ptr<T>>(found->second)) return nullptr;
        return std::get<std::shared_ptr<T>>(mObjects.extract(found).mapped());
    }

private:
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    std::map<io_object_t, Object> mObjects;
    io_object_t mLast = IO_OBJECT_NULL;
};

}  // namespace

CFDictionaryRef IOServiceMatching(const char* serviceClass)
{
    const auto name =
        cf::Ref<cf::String>::Adopt(CFStringCreateWithCString(kCFAllocatorDefault, serviceClass, kCFStringEncodingUTF8));
    if (!name) return nullptr;
    const CFStringRef key = CFSTR("IOProviderClass");
    const CFTypeRef value = name.Get();
    return CFDictionaryCreate(kCFAllocatorDefault, &key, &value, 1);
}

kern_return_t IOServiceGetMatchingServices(mach_port_t master, CFDictionaryRef matching, io_iterator_t* iterator)
{
    const auto consumed = cf::Ref<cf::Dictionary>::Adopt(matching);
    if (master != kIOMasterPortDefault || !matching || !iterator) return kIOReturnBadArgument;
    const CFStringRef name = cf::As<cf::String>(CFDictionaryGetValue(matching, CFSTR("IOProviderClass")));
    if (!name) return kIOReturnBadArgument;
    *iterator = ObjectTable::Get().Add(std::make_shared<Iterator>(ServiceRegistry::Get().Find(name->Text())));
    return kIOReturnSuccess;
}

io_object_t IOIteratorNext(io_iterator_t iterator)
{
    const auto services = ObjectTable::Get().Find<Iterator>(iterator);
    auto next = services ? services->Next() : nullptr;
    return next ? ObjectTable::Get().Add(std::move(next)) : IO_OBJECT_NULL;
}

kern_return_t IOObjectRelease(io_object_t object)
{
    const bool released = ObjectTable::Get().Take<IOService>(object) || ObjectTable::Get().Take<Iterator>(object);
    return released ? kIOReturnSuccess : kIOReturnBadArgument;
}

CFTypeRef IORegistryEntryCreateCFProperty(io_service_t service, CFStringRef key, CFAllocatorRef, IOOptionBits)
{
    const auto found = ObjectTable::Get().Find<IOService>(service);
    return found && key ? found->CopyProperty(key) : nullptr;
}

kern_return_t IOServiceOpen(io_service_t service, mach_port_t task, uint32_t type, io_connect_t* connect)
{
    if (!connect || task != mach_task_self()) return kIOReturnBadArgument;
    *connect = IO_OBJECT_NULL;
    auto found = ObjectTable::Get().Find<IOService>(service);
    if (!found) return kIOReturnNoDevice;
    std::unique_ptr<IOUserClient> client;
    if (const kern_return_t status = found->Open(type, client)) return status;
    assert(client);
    *connect = ObjectTable::Get().Add(std::make_shared<Connection>(std::move(found), std::move(client)));
    return kIOReturnSuccess;
}

kern_return_t IOServiceClose(io_connect_t connect)
{
    const auto connection = ObjectTable::Get().Take<Connection>(connect);
    if (!connection) return kIOReturnBadArgument;
    connection->Close();
    return kIOReturnSuccess;
}

kern_return_t IOConnectSetCFProperties(io_connect_t connect, CFTypeRef properties)
{
    const auto connection = ObjectTable::Get().Find<Connection>(connect);
    if (!connection || !properties) return kIOReturnBadArgument;
    return connection->Do([&](IOUserClient& client) { return client.SetProperties(properties); });
}

kern_return_t IOConnectCallMethod(io_connect_t connect, uint32_t selector, const uint64_t* scalarsIn,
                                  uint32_t scalarsInCount, const void* structureIn, size_t structureInBytes,
                                  uint64_t* scalarsOut, uint32_t* scalarsOutCount, void* structureOut,
                                  size_t* structureOutBytes)
{
    const auto connection = ObjectTable::Get().Find<Connection>(connect);
    if (!connection) return kIOReturnBadArgument;
    const uint32_t scalarRoom = scalarsOutCount ? *scalarsOutCount : 0;
    const size_t structureRoom = structureOutBytes ? *structureOutBytes : 0;
    if ((!scalarsIn && scalarsInCount) || (!structureIn && structureInBytes) || (!scalarsOut && scalarRoom) ||
        (!structureOut && structureRoom)) {
        return kIOReturnBadArgument;
    }
    MethodCall call{selector,   scalarsIn,  scalarsInCount, structureIn,  structureInBytes,
                    scalarsOut, scalarRoom, structureOut,   structureRoom};
    const kern_return_t status = connection->Do([&](IOUserClient& client) { return client.Call(call); });
    assert(call.mScalarsOutCount <= scalarRoom && call.mStructureOutBytes <= structureRoom);
    if (scalarsOutCount) *scalarsOutCount = call.mScalarsOutCount;
    if (structureOutBytes) *structureOutBytes = call.mStructureOutBytes;
    return status;
}

kern_return_t IOConnectCallScalarMethod(io_connect_t connect, uint32_t selector, const uint64_t* scalarsIn,
                                        uint32_t scalarsInCount, uint64_t* scalarsOut, uint32_t* scalarsOutCount)
{
    return IOConnectCallMethod(connect, selector, scalarsIn, scalarsInCount, nullptr, 0, scalarsOut, scalarsOutCount,
                               nullptr, nullptr);
}
