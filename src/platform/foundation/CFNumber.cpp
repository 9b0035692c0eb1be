#include "platform/foundation/CFDictionary.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>

namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo64 = 18446744073709551616.0;

/// One form for each value, so that equality and hash do not see the kind. Compared as a whole number where
/// there is one: a large whole number turned into a real one could meet a neighbour there, as 2^63 - 1 does.
/// Casting beyond the range is undefined, so that the bounds come first; -2^63 itself is a whole number.
cf::Number::Value Canonical(const cf::Number::Value& value)
{
    const double* real = std::get_if<double>(&value);
    if (real && std::isnan(*real)) return std::numeric_limits<double>::quiet_NaN();
    if (!real || std::trunc(*real) != *real) return value;
    if (*real >= -kTwoTo63 && *real < kTwoTo63) return static_cast<int64_t>(*real);
    if (*real >= kTwoTo63 && *real < kTwoTo64) return static_cast<uint64_t>(*real);
    return value;
}

/// The nearest whole number towards zero, 0 for what is no number.
int64_t ToWhole(double value)
{
    if (std::isnan(value)) return 0;
    if (value >= kTwoTo63) return std::numeric_limits<int64_t>::max();
    if (value < -kTwoTo63) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(value);
}

template <class Whole>
bool StoreWhole(const cf::Number::Value& value, void* stored)
{
    using Limits = std::numeric_limits<Whole>;
    const cf::Number::Value canonical = Canonical(value);
    const int64_t* exact = std::get_if<int64_t>(&canonical);
    int64_t whole = Limits::max();  // of what lies beyond the signed ones
    if (exact) whole = *exact;
    if (const double* real = std::get_if<double>(&canonical)) whole = ToWhole(*real);
    const int64_t fitted = std::clamp<int64_t>(whole, Limits::min(), Limits::max());
    *static_cast<Whole*>(stored) = static_cast<Whole>(fitted);
    return exact && fitted == whole;
}

template <class Real>
bool StoreReal(const cf::Number::Value& value, void* stored)
{
    const double nearest = std::visit([](auto any) { return static_cast<double>(any); }, value);
    const double bound = std::numeric_limits<Real>::max();
    const Real real = static_cast<Real>(std::isfinite(nearest) ? std::clamp(nearest, -bound, bound) : nearest);
    *static_cast<Real*>(stored) = real;
    return std::isnan(nearest) || Canonical(double(real)) == Canonical(value);
}

}  // namespace

namespace cf {

bool Number::IsEqual(const Object& other) const
{
    const Value own = Canonical(mValue), others = Canonical(static_cast<const Number&>(other).mValue);
    return own == others || (own != own && others != others);  // what is no number is like another such
}

CFHashCode Number::Hash() const
{
    return std::hash<Value>()(Canonical(mValue));
}

std::string Number::Describe() const
{
    if (const int64_t* whole = std::get_if<int64_t>(&mValue)) return std::to_string(*whole);
    if (const uint64_t* whole = std::get_if<uint64_t>(&mValue)) return std::to_string(*whole);
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
        case kCFNumberSInt8Type:
            return new cf::Number(int64_t(*static_cast<const int8_t*>(value)));
        case kCFNumberSInt32Type:
            return new cf::Number(int64_t(*static_cast<const int32_t*>(value)));
        case kCFNumberSInt64Type:
            return new cf::Number(*static_cast<const int64_t*>(value));
        case kCFNumberFloat32Type:
            return new cf::Number(double(*static_cast<const float*>(value)));
        case kCFNumberFloat64Type:
            return new cf::Number(*static_cast<const double*>(value));
    }
    return nullptr;
}

bool CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value)
{
    switch (type) {
        case kCFNumberSInt8Type:
            return StoreWhole<int8_t>(number->Get(), value);
        case kCFNumberSInt32Type:
            return StoreWhole<int32_t>(number->Get(), value);
        case kCFNumberSInt64Type:
            return StoreWhole<int64_t>(number->Get(), value);
        case kCFNumberFloat32Type:
            return StoreReal<float>(number->Get(), value);
        case kCFNumberFloat64Type:
            return StoreReal<double>(number->Get(), value);
    }
    return false;
}
