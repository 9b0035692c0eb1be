#include "platform/foundation/CFDictionary.h"

#include <algorithm>
#include <cassert>

namespace cf {

bool Array::IsEqual(const Object& other) const
{
    const Values& values = static_cast<const Array&>(other).mValues;
    return std::equal(mValues.begin(), mValues.end(), values.begin(), values.end(),
                      [](const Ref<Object>& a, const Ref<Object>& b) { return CFEqual(a.Get(), b.Get()); });
}

CFHashCode Array::Hash() const
{
    CFHashCode hash = mValues.size();
    for (const Ref<Object>& value : mValues) hash = hash * 31 + CFHash(value.Get());
    return hash;
}

std::string Array::Describe() const
{
    std::string text;
    for (const Ref<Object>& value : mValues) text += (text.empty() ? "" : ", ") + value.Get()->Describe();
    return "(" + text + ")";
}

}  // namespace cf

CFTypeID CFArrayGetTypeID()
{
    return cf::Array::kTypeID;
}

CFArrayRef CFArrayCreate(CFAllocatorRef, const CFTypeRef* values, CFIndex count)
{
    cf::Array::Values shared;
    for (CFIndex index = 0; index < count; ++index) shared.push_back(cf::Ref<cf::Object>::Share(values[index]));
    return new cf::Array(std::move(shared));
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex)
{
    return new cf::Array({});
}

void CFArrayAppendValue(CFMutableArrayRef array, CFTypeRef value)
{
    assert(value);
    array->Change().push_back(cf::Ref<cf::Object>::Share(value));
}

CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef, CFIndex, CFArrayRef array)
{
    return new cf::Array(array->Get());
}

CFIndex CFArrayGetCount(CFArrayRef array)
{
    return static_cast<CFIndex>(array->Get().size());
}

CFTypeRef CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index)
{
    const bool inside = index >= 0 && index < CFArrayGetCount(array);
    return inside ? array->Get()[static_cast<size_t>(index)].Get() : nullptr;
}

bool CFArrayContainsValue(CFArrayRef array, CFTypeRef value)
{
    const cf::Array::Values& values = array->Get();
    return std::any_of(values.begin(), values.end(),
                       [&](const cf::Ref<cf::Object>& element) { return CFEqual(element.Get(), value); });
}
