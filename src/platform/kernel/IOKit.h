// IOKit: finding a service by its class and talking to it through a user client.
// Why: a service is a bundle beside the program, so that its contract (numbers, scalars, structures) is the
// only thing its client knows of it. Services are found in the installation's bundle folder; without the
// bundle there is no service.
// For the caller's side start at IOServiceMatching; a service derives from IOService and IOUserClient.
#pragma once

#include "platform/foundation/CFDictionary.h"
#include "platform/kernel/Memory.h"

#include <cstddef>
#include <cstdint>
#include <memory>

using io_object_t = uint32_t;
using io_service_t = io_object_t;
using io_iterator_t = io_object_t;
using io_connect_t = io_object_t;
using IOOptionBits = uint32_t;

constexpr io_object_t IO_OBJECT_NULL = 0;
constexpr mach_port_t kIOMasterPortDefault = 0;
constexpr kern_return_t kIOReturnSuccess = 0;
constexpr kern_return_t kIOReturnError = kern_return_t(0xE00002BC);
constexpr kern_return_t kIOReturnNoMemory = kern_return_t(0xE00002BD);
constexpr kern_return_t kIOReturnNoDevice = kern_return_t(0xE00002C0);
constexpr kern_return_t kIOReturnBadArgument = kern_return_t(0xE00002C2);
constexpr kern_return_t kIOReturnUnsupported = kern_return_t(0xE00002C7);
constexpr kern_return_t kIOReturnNotOpen = kern_return_t(0xE00002CD);
constexpr kern_return_t kIOReturnNotFound = kern_return_t(0xE00002F0);

// An object is a small number that was handed out by one of these calls and not yet released; numbers do not
// come again. Any other number is a bad argument, save that IOServiceOpen finds no device there. All calls
// may come from any thread, and none is real-time safe.

/// A dictionary that matches services of a class; consumed by IOServiceGetMatchingServices.
CFDictionaryRef IOServiceMatching(const char* serviceClass);
/// Services that match, as of now. None is no error: the iterator is at its end.
kern_return_t IOServiceGetMatchingServices(mach_port_t master, CFDictionaryRef matching, io_iterator_t* iterator);
/// The next object, which the caller releases; 0 at the end.
io_object_t IOIteratorNext(io_iterator_t iterator);
kern_return_t IOObjectRelease(io_object_t object);
/// A property of the service, which the caller releases; null where there is none.
CFTypeRef IORegistryEntryCreateCFProperty(io_service_t service, CFStringRef key, CFAllocatorRef allocator,
                                          IOOptionBits options);

/// Opens a connection of this task, or gives the status with which the service refused it.
kern_return_t IOServiceOpen(io_service_t service, mach_port_t task, uint32_t type, io_connect_t* connect);
/// Waits for a call under way, then ends the connection; its user client is gone when this returns.
kern_return_t IOServiceClose(io_connect_t connect);
kern_return_t IOConnectSetCFProperties(io_connect_t connect, CFTypeRef properties);
/// Calls a method. Counts of what comes out are room on entry and use on return; null stands for no room.
kern_return_t IOConnectCallMethod(io_connect_t connect, uint32_t selector, const uint64_t* scalarsIn,
                                  uint32_t scalarsInCount, const void* structureIn, size_t structureInBytes,
                                  uint64_t* scalarsOut, uint32_t* scalarsOutCount, void* structureOut,
                                  size_t* structureOutBytes);
kern_return_t IOConnectCallScalarMethod(io_connect_t connect, uint32_t selector, const uint64_t* scalarsIn,
                                        uint32_t scalarsInCount, uint64_t* scalarsOut, uint32_t* scalarsOutCount);

namespace platform::kernel {

/// One method call as the service sees it. Counts of what comes out are room on entry, use on return.
struct MethodCall {
    uint32_t mSelector;
    const uint64_t* mScalarsIn;
    uint32_t mScalarsInCount;
    const void* mStructureIn;
    size_t mStructureInBytes;
    uint64_t* mScalarsOut;
    uint32_t mScalarsOutCount;
    void* mStructureOut;
    size_t mStructureOutBytes;
};

/// One open connection to a service. Calls come from any thread of the client, one at a time; the
/// destructor is the close.
class IOUserClient {
public:
    virtual ~IOUserClient() = default;
    virtual kern_return_t SetProperties(CFTypeRef properties) = 0;
    virtual kern_return_t Call(MethodCall& call) = 0;
};

/// A service: a class name, properties, and connections. Its calls come from any thread, several at once.
class IOService {
public:
    virtual ~IOService() = default;
    virtual const char* GetClass() const = 0;
    /// A property that the caller releases, or null.
    virtual CFTypeRef CopyProperty(CFStringRef key) = 0;
    virtual kern_return_t Open(uint32_t type, std::unique_ptr<IOUserClient>& client) = 0;
};

/// Enters a service into the registry; it is found before those of bundles. For services that are not
/// bundles, as tests have them.
void PublishService(std::shared_ptr<IOService> service);
/// Takes services entered by PublishService out again.
void WithdrawServices();

}  // namespace platform::kernel

/// What a service bundle defines and exports: a new service, owned by the caller. Called once a process.
extern "C" [[gnu::visibility("default")]] platform::kernel::IOService* CorvaneCreateService();
