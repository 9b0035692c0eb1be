// DeviceList: the devices of the shared preferences as a person works with them: in their order, the disabled ones
// among them. Why: a process replaces a device whose entry differs in anything from what the device says of itself. So
// each entry is written just as a device would write it, and whatever else there is to remember lies beside the
// entries, under "Companion". Start at the constructor and Store. docs/user/corvane-preferences.5 tells every key.
#pragma once

#include "plugin/settings/CVNDevice.h"

#include <string>
#include <vector>

namespace cli {

struct ListedDevice {
    CVNDevice mSettings;
    bool mEnabled = true;             // false: it is remembered, and no process has it
    bool mMuted = false;              // remembered for whoever can mute it
    cf::Ref<cf::Dictionary> mExtras;  // what its entry held beyond what is known, or of another type; may be null
};

std::string NameOf(const ListedDevice& device);

class DeviceList {
public:
    /// Reads the devices out of a whole tree, of which anything may be missing or of a wrong type.
    explicit DeviceList(CFDictionaryRef root);

    /// Puts the devices into the tree that they were read from, and leaves the rest of it alone.
    void Store(CFMutableDictionaryRef root) const;

    /// The devices of a name, of a number or of a device's whole UID. An exact name comes before others, and those
    /// before numbers.
    std::vector<size_t> Find(const std::string& words) const;

    std::vector<std::string> Names() const;
    /// A number that no device ever had; the least that none has now, where a list has used them up.
    int32_t TakeUID();

    bool mIsOn = false;  // the master switch
    std::vector<ListedDevice> mDevices;

private:
    void Read(CFArrayRef entries, bool enabled);
    void ReadMemory(CFDictionaryRef memory);
    void PutInOrder(CFArrayRef order);

    std::vector<cf::Ref<cf::Object>> mForeign;  // elements that are no entries
    int32_t mNextUID = 0;                       // INT32_MAX: they are used up
};

}  // namespace cli
