#include "utility/CAPropertyAddressList.h"

#include <algorithm>

bool CAPropertyAddressList::Matches(const AudioObjectPropertyAddress& a, const AudioObjectPropertyAddress& b) noexcept
{
    const auto meet = [](UInt32 one, UInt32 other, UInt32 wildcard) {
        return one == other || one == wildcard || other == wildcard;
    };
    return meet(a.mSelector, b.mSelector, kAudioObjectPropertySelectorWildcard) &&
           meet(a.mScope, b.mScope, kAudioObjectPropertyScopeWildcard) &&
           meet(a.mElement, b.mElement, kAudioObjectPropertyElementWildcard);
}

void CAPropertyAddressList::AppendUnique(const AudioObjectPropertyAddress& address)
{
    const bool known = std::ranges::any_of(mAddresses, [&](const AudioObjectPropertyAddress& other) {
        return other.mSelector == address.mSelector && other.mScope == address.mScope &&
               other.mElement == address.mElement;
    });
    if (!known) mAddresses.push_back(address);
}
