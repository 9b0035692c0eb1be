// TapService: finding the tap's service, which version of the contract it speaks, and what can be called.
// Why: a session asks whether the tap can work before it opens one, by the same search.
#pragma once

#include "platform/kernel/IOKit.h"

#include <cstdint>
#include <utility>

namespace avcapture {

/// Owns one reference to an object of the service registry.
class IOObject {
public:
    IOObject() = default;
    explicit IOObject(io_object_t object) : mObject(object) {}
    IOObject(IOObject&& other) noexcept : mObject(std::exchange(other.mObject, IO_OBJECT_NULL)) {}
    ~IOObject()
    {
        if (mObject != IO_OBJECT_NULL) IOObjectRelease(mObject);
    }

    io_object_t Get() const { return mObject; }
    explicit operator bool() const { return mObject != IO_OBJECT_NULL; }

private:
    io_object_t mObject = IO_OBJECT_NULL;
};

/// Calls on the service's user client.
enum TapSelector : uint32_t {
    kGetRegionSizes = 0,
    kGetSymbolRequest = 2,
    kSetSymbolReply = 3,
    kSetPlayThru = 4,
    kSetRegions = 5,
};

/// The first service of the tap's class; empty where there is none. No further one is looked at.
IOObject FindTapService();

/// The service's property "version"; 0 where it has none or it is no number.
int32_t ReadTapVersion(const IOObject& service);

}  // namespace avcapture
