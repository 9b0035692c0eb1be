// CAPropertyAddressList: property addresses in the order of their entry, each once; and how addresses match.
// Why: who tells listeners of a change must name every property that moved, and none of them twice.
#pragma once

#include "platform/audio/AudioObject.h"

#include <vector>

class CAPropertyAddressList {
public:
    /// Whether selector, scope and element are each the same, or a wildcard on either side.
    static bool Matches(const AudioObjectPropertyAddress& a, const AudioObjectPropertyAddress& b) noexcept;

    /// Puts the address at the end, unless it is there already. Wildcards count as what they are here.
    void AppendUnique(const AudioObjectPropertyAddress& address);

    bool IsEmpty() const noexcept { return mAddresses.empty(); }
    UInt32 GetCount() const noexcept { return static_cast<UInt32>(mAddresses.size()); }
    /// GetCount() addresses, until the list changes.
    const AudioObjectPropertyAddress* GetAddresses() const noexcept { return mAddresses.data(); }

private:
    std::vector<AudioObjectPropertyAddress> mAddresses;
};
