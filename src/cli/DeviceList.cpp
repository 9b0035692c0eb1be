#include "cli/DeviceList.h"

#include "cli/NameMatching.h"
#include "plugin/settings/SharedPreferences.h"

#include <algorithm>
#include <limits>
#include <map>

namespace cli {

namespace {

using cf::As;
using cf::Ref;
using settings::ValueOf;

constexpr const char* kMemory = "Companion";
constexpr const char* kNextUID = "NextUID";
constexpr const char* kOrder = "Order";
constexpr const char* kDisabled = "Disabled";
constexpr const char* kMuted = "Muted";
constexpr const char* kExtras = "Extras";

Ref<cf::Number> MakeNumber(int32_t value)
{
    return Ref<cf::Number>::Adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value));
}

int32_t ToInt(const cf::Object* object, int32_t otherwise)
{
    int32_t value = otherwise;
    if (const auto* number = As<cf::Number>(object)) CFNumberGetValue(number, kCFNumberSInt32Type, &value);
    return value;
}

std::vector<int32_t> ToInts(CFArrayRef array)
{
    std::vector<int32_t> values;
    for (CFIndex i = 0; array && i < CFArrayGetCount(array); ++i)
        if (const auto* number = As<cf::Number>(CFArrayGetValueAtIndex(array, i))) values.push_back(ToInt(number, -1));
    return values;
}

/// The dictionary under a key, made where there is none; what is there of another type gives way.
CFMutableDictionaryRef Inside(CFMutableDictionaryRef dictionary, const char* key)
{
    const auto made = Ref<cf::Dictionary>::Adopt(
        ValueOf<cf::Dictionary>(dictionary, key)
            ? CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, ValueOf<cf::Dictionary>(dictionary, key))
            : CFDictionaryCreateMutable(kCFAllocatorDefault, 0));
    CFDictionarySetValue(dictionary, CFSTR(key), made.Get());
    return const_cast<CFMutableDictionaryRef>(made.Get());
}

/// What of an entry a device's settings do not say; null for nothing.
Ref<cf::Dictionary> ExtrasOf(CFDictionaryRef entry)
{
    cf::Dictionary::Entries extras;
    for (const auto& [key, value] : entry->Get())
        if (!CVNDevice::Understands(key, value.Get())) extras.emplace(key, value);
    return extras.empty() ? Ref<cf::Dictionary>() : Ref<cf::Dictionary>::Adopt(new cf::Dictionary(std::move(extras)));
}

/// Both; of equal keys the entry's own counts.
Ref<cf::Dictionary> Merge(const Ref<cf::Dictionary>& own, const cf::Dictionary* remembered)
{
    cf::Dictionary::Entries extras = own ? own.Get()->Get() : cf::Dictionary::Entries();
    extras.insert(remembered->Get().begin(), remembered->Get().end());
    return Ref<cf::Dictionary>::Adopt(new cf::Dictionary(std::move(extras)));
}

constexpr int32_t kUsedUp = std::numeric_limits<int32_t>::max();

int32_t Successor(int32_t uid)
{
    return uid == kUsedUp ? kUsedUp : uid + 1;
}

bool IsSame(const std::string& a, const std::string& b)
{
    return Folded(a) == Folded(b);
}

}  // namespace

std::string NameOf(const ListedDevice& device)
{
    return cf::ToStdString(device.mSettings.mName.Get());
}

DeviceList::DeviceList(CFDictionaryRef root) : mIsOn(ToInt(root->Find(settings::kEnabled), 0) != 0)
{
    const auto* list = ValueOf<cf::Dictionary>(root, settings::kDeviceSettings);
    const auto* memory = ValueOf<cf::Dictionary>(root, kMemory);
    Read(ValueOf<cf::Array>(list, settings::kDevices), true);
    Read(ValueOf<cf::Array>(memory, kDisabled), false);
    ReadMemory(memory);
}

void DeviceList::Read(CFArrayRef entries, bool enabled)
{
    for (CFIndex i = 0; entries && i < CFArrayGetCount(entries); ++i) {
        const CFTypeRef item = CFArrayGetValueAtIndex(entries, i);
        const auto* entry = As<cf::Dictionary>(item);
        if (!entry) {
            mForeign.push_back(Ref<cf::Object>::Share(item));
            continue;
        }
        ListedDevice device{CVNDevice(entry), enabled, false, {}};
        device.mMuted = device.mSettings.mSoftwareSourcesMuted != 0;
        device.mExtras = ExtrasOf(entry);
        mNextUID = std::max(mNextUID, Successor(device.mSettings.mUID));
        mDevices.push_back(std::move(device));
    }
}

void DeviceList::ReadMemory(CFDictionaryRef memory)
{
    mNextUID = std::max(mNextUID, ToInt(memory ? memory->Find(kNextUID) : nullptr, 0));
    const std::vector<int32_t> muted = ToInts(ValueOf<cf::Array>(memory, kMuted));
    const auto* extras = ValueOf<cf::Dictionary>(memory, kExtras);
    for (ListedDevice& device : mDevices) {
        device.mMuted |= std::ranges::find(muted, device.mSettings.mUID) != muted.end();
        const auto* remembered = ValueOf<cf::Dictionary>(extras, std::to_string(device.mSettings.mUID).c_str());
        if (remembered) device.mExtras = Merge(device.mExtras, remembered);
    }
    PutInOrder(ValueOf<cf::Array>(memory, kOrder));
}

/// Those that somebody else added come last, as they stand in the list.
void DeviceList::PutInOrder(CFArrayRef order)
{
    std::map<int32_t, size_t> places;
    for (const int32_t uid : ToInts(order)) places.emplace(uid, places.size());
    const auto place = [&](const ListedDevice& device) {
        const auto found = places.find(device.mSettings.mUID);
        return found == places.end() ? places.size() : found->second;
    };
    std::ranges::stable_sort(mDevices, {}, place);
}

void DeviceList::Store(CFMutableDictionaryRef root) const
{
    const auto enabled = Ref<cf::Array>::Adopt(CFArrayCreateMutable(kCFAllocatorDefault, 0));
    const auto disabled = Ref<cf::Array>::Adopt(CFArrayCreateMutable(kCFAllocatorDefault, 0));
    const auto order = Ref<cf::Array>::Adopt(CFArrayCreateMutable(kCFAllocatorDefault, 0));
    const auto muted = Ref<cf::Array>::Adopt(CFArrayCreateMutable(kCFAllocatorDefault, 0));
    const auto append = [](const Ref<cf::Array>& array, CFTypeRef value) {
        CFArrayAppendValue(const_cast<CFMutableArrayRef>(array.Get()), value);
    };
    const CFMutableDictionaryRef memory = Inside(root, kMemory);
    CFDictionaryRemoveValue(memory, CFSTR(kExtras));
    for (const ListedDevice& device : mDevices) {
        CVNDevice settings = device.mSettings;
        settings.mEnabled = 1;
        settings.mSoftwareSourcesMuted = 0;
        settings.SetOutputChannelCount(settings.mOutputChannelCount);
        const auto entry = Ref<cf::Dictionary>::Adopt(settings.CopyDictionaryRepresentation());
        const auto uid = MakeNumber(settings.mUID);
        append(device.mEnabled ? enabled : disabled, entry.Get());
        append(order, uid.Get());
        if (device.mMuted && !CFArrayContainsValue(muted.Get(), uid.Get())) append(muted, uid.Get());
        if (device.mExtras)
            CFDictionarySetValue(Inside(memory, kExtras), CFSTR(std::to_string(settings.mUID).c_str()),
                                 device.mExtras.Get());
    }
    for (const auto& foreign : mForeign) append(enabled, foreign.Get());

    CFDictionarySetValue(Inside(root, settings::kDeviceSettings), CFSTR(settings::kDevices), enabled.Get());
    CFDictionarySetValue(root, CFSTR(settings::kEnabled), MakeNumber(mIsOn).Get());
    CFDictionarySetValue(memory, CFSTR(kNextUID), MakeNumber(mNextUID).Get());
    CFDictionarySetValue(memory, CFSTR(kOrder), order.Get());
    CFDictionarySetValue(memory, CFSTR(kDisabled), disabled.Get());
    CFDictionarySetValue(memory, CFSTR(kMuted), muted.Get());
}

int32_t DeviceList::TakeUID()
{
    if (mNextUID != kUsedUp) return mNextUID++;
    int32_t uid = 0;
    while (std::ranges::any_of(mDevices, [&](const ListedDevice& device) { return device.mSettings.mUID == uid; }))
        ++uid;
    return uid;
}

std::vector<size_t> DeviceList::Find(const std::string& words) const
{
    const auto matching = [&](const auto& matches) {
        std::vector<size_t> found;
        for (size_t i = 0; i < mDevices.size(); ++i)
            if (matches(mDevices[i])) found.push_back(i);
        return found;
    };
    auto found = matching([&](const ListedDevice& device) { return NameOf(device) == words; });
    if (found.empty()) found = matching([&](const ListedDevice& device) { return IsSame(NameOf(device), words); });
    if (found.empty())
        found = matching([&](const ListedDevice& device) {
            return std::to_string(device.mSettings.mUID) == words ||
                   CVNDevice::PublishedUID(device.mSettings.mUID) == words;
        });
    return found;
}

std::vector<std::string> DeviceList::Names() const
{
    std::vector<std::string> names;
    for (const ListedDevice& device : mDevices) names.push_back(NameOf(device));
    return names;
}

}  // namespace cli
