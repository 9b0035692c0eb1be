#include "platform/foundation/CFDictionary.h"

#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>

namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;

// The nearest whole number towards zero, 0 for what is no number. Casting beyond the range is undefined, so
// that the bounds come first; -2^63 itself is a whole number, 2^63 is not.
int64_t ToWhole(double value)
{
    if (std::isnan(value)) return 0;
    if (value >= kTwoTo63) return std::numeric_limits<int64_t>::max();
    if (value < -kTwoTo63) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(value);
}

// Compared as a whole number where there is one: a large whole number turned into a real one could meet a
// neighbour there. 2^63 - 1 is the case in point.
bool IsWhole(double value)
{
    return value >= -kTwoTo63 && value < kTwoTo63 && std::trunc(value) == value;
}

// One form for each value, so that equality and hash do not see the kind.
cf::Number::Value Canonical(const cf::Number::Value& value)
{
    const double* real = std::get_if<double>(&value);
    return real && IsWhole(*real) ? cf::Number::Value(ToWhole(*real)) : value;
}

bool StoreWhole(const cf::Number::Value& value, int64_t& whole)
{
    const cf::Number::Value canonical = Canonical(value);
    if (const int64_t* exact = std::get_if<int64_t>(&canonical)) {
        whole = *exact;
        return true;
    }
    whole = ToWhole(std::get<double>(canonical));
    return false;
}

bool StoreReal(const cf::Number::Value& value, double& real)
{
    const int64_t* whole = std::get_if<int64_t>(&value);
    real = whole ? static_cast<double>(*whole) : std::get<double>(value);
    return !whole || Canonical(real) == cf::Number::Value(*whole);
}

}  // namespace

namespace cf {

bool Number::IsEqual(const Object& other) const
{
    return Canonical(mValue) == Canonical(static_cast<const Number&>(other).mValue);
}

CFHashCode Number::Hash() const
{
    return std::hash<Value>()(Canonical(mValue));
}

std::string Number::Describe() const
{
    if (const int64_t* whole = std::get_if<int64_t>(&mValue)) return std::to_string(*whole);
    char text[32];
    std::snprintf(text, sizeof text, "%.17g", std::get<double>(mValue));
    return text;
}

}  // namespace cf

CFTypeID CFNumberGetTypeID()
{
    return cf::Number::kTypeID;
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, const void* value)
{
    switch (type) {
        case kCFNumberSInt32Type:
            return new cf::Number(int64_t(*static_cast<const int32_t*>(value)));
        case kCFNumberSInt64Type:
            return new cf::Number(*static_cast<const int64_t*>(value));
        case kCFNumberFloat64Type:
            return new cf::Number(*static_cast<const double*>(value));
    }
    return nullptr;
}

bool CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value)
{
    int64_t whole = 0;
    switch (type) {
        case kCFNumberSInt32Type: {
            const bool exact = StoreWhole(number->Get(), whole);
            const int64_t fitted = whole < INT32_MIN ? INT32_MIN : whole > INT32_MAX ? INT32_MAX : whole;
            *static_cast<int32_t*>(value) = static_cast<int32_t>(fitted);
            return exact && fitted == whole;
        }
        case kCFNumberSInt64Type:
            return StoreWhole(number->Get(), *static_cast<int64_t*>(value));
        case kCFNumberFloat64Type:
            return StoreReal(number->Get(), *static_cast<double*>(value));
    }
    return false;
}
