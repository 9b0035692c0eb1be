#include "tap/Configuration.h"

#include "platform/foundation/CFDictionary.h"
#include "platform/kernel/IOKit.h"

#include <algorithm>
#include <limits>

namespace tap {

namespace {

constexpr uint32_t kMostDeviceChannels = 1024;  // of a device; an index beyond is nonsense

template <class T>
const T* As(CFTypeRef object, CFTypeID type)
{
    return object && CFGetTypeID(object) == type ? static_cast<const T*>(object) : nullptr;
}

std::optional<int64_t> Integer(CFTypeRef object)
{
    const auto* number = As<cf::Number>(object, CFNumberGetTypeID());
    int64_t value = 0;
    if (!number || !CFNumberGetValue(number, kCFNumberSInt64Type, &value)) return std::nullopt;
    return value;
}

/// 32 bits. A number above 2^31 comes as a negative one from clients that hold it in a signed word.
std::optional<uint32_t> Word(CFTypeRef object)
{
    const auto value = Integer(object);
    if (!value || *value < std::numeric_limits<int32_t>::min() || *value > std::numeric_limits<uint32_t>::max())
        return std::nullopt;
    return uint32_t(*value);
}

std::optional<FixedRate> Rate(CFTypeRef value)
{
    if (const auto* parts = As<cf::Array>(value, CFArrayGetTypeID())) {
        if (CFArrayGetCount(parts) != 2) return std::nullopt;
        const auto whole = Word(CFArrayGetValueAtIndex(parts, 0));
        const auto fraction = Word(CFArrayGetValueAtIndex(parts, 1));
        if (!whole || !fraction) return std::nullopt;
        return FixedRate(*whole) << 32 | *fraction;
    }
    const auto fixed = Word(value);  // 16.16
    if (!fixed) return std::nullopt;
    return FixedRate(*fixed) << 16;
}

bool InRange(FixedRate rate)
{
    return rate >= FixedRate(Configuration::kLowestHz) << 32 && rate <= FixedRate(Configuration::kHighestHz) << 32;
}

bool ReadPair(const cf::Array* entry, TappedDevice& device)
{
    const auto left = Word(CFArrayGetValueAtIndex(entry, 1));
    const auto right = Word(CFArrayGetValueAtIndex(entry, 2));
    if (!left || !right || *left >= kMostDeviceChannels || *right >= kMostDeviceChannels) return false;
    device.mPreferredPair = TappedDevice::Pair{*left, *right};
    return true;
}

bool ReadDevice(CFTypeRef value, TappedDevice& device)
{
    if (const auto* entry = As<cf::Array>(value, CFArrayGetTypeID())) {
        if (CFArrayGetCount(entry) != 3 || !ReadPair(entry, device)) return false;
        value = CFArrayGetValueAtIndex(entry, 0);
    }
    const auto* uid = As<cf::String>(value, CFStringGetTypeID());
    if (!uid) return false;
    device.mUID = cf::ToStdString(uid);
    return !device.mUID.empty();
}

bool ReadDevices(CFTypeRef value, std::vector<TappedDevice>& devices)
{
    const auto* list = As<cf::Array>(value, CFArrayGetTypeID());
    if (!list || CFArrayGetCount(list) < 1 || CFArrayGetCount(list) > Configuration::kMostDevices) return false;
    for (CFIndex i = 0; i < CFArrayGetCount(list); ++i) {
        TappedDevice device;
        if (!ReadDevice(CFArrayGetValueAtIndex(list, i), device)) return false;
        const bool known = std::any_of(devices.begin(), devices.end(),
                                       [&](const TappedDevice& other) { return other.mUID == device.mUID; });
        if (!known) devices.push_back(std::move(device));
    }
    return true;
}

bool ReadProcesses(CFTypeRef value, std::vector<pid_t>& processes)
{
    if (!value) return true;
    const auto* list = As<cf::Array>(value, CFArrayGetTypeID());
    if (!list || CFArrayGetCount(list) > Configuration::kMostProcesses) return false;
    for (CFIndex i = 0; i < CFArrayGetCount(list); ++i) {
        const auto pid = Integer(CFArrayGetValueAtIndex(list, i));
        // The lowest number has no positive counterpart, and 0 names nobody.
        if (!pid || *pid == 0 || *pid <= std::numeric_limits<pid_t>::min() || *pid > std::numeric_limits<pid_t>::max())
            return false;
        processes.push_back(pid_t(*pid));
    }
    return true;
}

}  // namespace

kern_return_t Configuration::Parse(CFTypeRef properties)
{
    const auto* dictionary = As<cf::Dictionary>(properties, CFDictionaryGetTypeID());
    if (!dictionary) return kIOReturnBadArgument;

    const auto rate = Rate(CFDictionaryGetValue(dictionary, CFSTR("IOAudioSampleRate")));
    const auto channels = Integer(CFDictionaryGetValue(dictionary, CFSTR("IOAudioNumChannels")));
    if (!rate || !InRange(*rate) || !channels || *channels < 1 || *channels > 2) return kIOReturnBadArgument;
    mRate = *rate;
    mChannels = unsigned(*channels);
    const auto publish = Integer(CFDictionaryGetValue(dictionary, CFSTR("IOAudioPublishFrames")));
    mPublishFrames = uint32_t(std::clamp<int64_t>(publish.value_or(0), 0, kHighestHz));
    return ParseTargets(properties);
}

kern_return_t Configuration::ParseTargets(CFTypeRef properties)
{
    const auto* dictionary = As<cf::Dictionary>(properties, CFDictionaryGetTypeID());
    if (!dictionary) return kIOReturnBadArgument;
    const bool read = ReadDevices(CFDictionaryGetValue(dictionary, CFSTR("IOAudioDevices")), mDevices) &&
                      ReadProcesses(CFDictionaryGetValue(dictionary, CFSTR("IOAudioProcesses")), mProcesses);
    return read ? kIOReturnSuccess : kIOReturnBadArgument;
}

}  // namespace tap
