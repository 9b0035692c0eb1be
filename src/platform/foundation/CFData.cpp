#include "platform/foundation/CFObjects.h"

#include <bit>
#include <cstdio>
#include <functional>

namespace cf {

bool Data::IsEqual(const Object& other) const
{
    return mBytes == static_cast<const Data&>(other).mBytes;
}

CFHashCode Data::Hash() const
{
    return std::hash<std::string>()(mBytes);
}

std::string Data::Describe() const
{
    return std::to_string(mBytes.size()) + " bytes";
}

// By bits: a moment that is no number is kept, and equals itself.
bool Date::IsEqual(const Object& other) const
{
    return Hash() == other.Hash();
}

CFHashCode Date::Hash() const
{
    return std::bit_cast<uint64_t>(mSeconds);
}

std::string Date::Describe() const
{
    char text[64];
    std::snprintf(text, sizeof text, "%.17g s since 2001", mSeconds);
    return text;
}

}  // namespace cf
