#include "platform/foundation/CFDictionary.h"

#include <algorithm>
#include <cassert>
#include <functional>

namespace cf {

bool Dictionary::IsEqual(const Object& other) const
{
    const Entries& entries = static_cast<const Dictionary&>(other).mEntries;
    return std::equal(mEntries.begin(), mEntries.end(), entries.begin(), entries.end(),
                      [](const Entries::value_type& a, const Entries::value_type& b) {
                          return a.first == b.first && CFEqual(a.second.Get(), b.second.Get());
                      });
}

CFHashCode Dictionary::Hash() const
{
    CFHashCode hash = mEntries.size();
    for (const auto& [key, value] : mEntries) {
        hash = (hash * 31 + std::hash<std::string>()(key)) * 31 + CFHash(value.Get());
    }
    return hash;
}

std::string Dictionary::Describe() const
{
    std::string text;
    for (const auto& [key, value] : mEntries) text += key + " = " + value.Get()->Describe() + "; ";
    return "{ " + text + "}";
}

CFTypeRef Dictionary::Find(std::string_view key) const
{
    const auto found = mEntries.find(key);
    return found == mEntries.end() ? nullptr : found->second.Get();
}

}  // namespace cf

CFTypeID CFDictionaryGetTypeID()
{
    return cf::Dictionary::kTypeID;
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const CFStringRef* keys, const CFTypeRef* values, CFIndex count)
{
    cf::Dictionary::Entries entries;
    for (CFIndex index = 0; index < count; ++index) {
        assert(keys[index] && values[index]);
        entries.emplace(keys[index]->Text(), cf::Ref<cf::Object>::Share(values[index]));
    }
    return new cf::Dictionary(std::move(entries));
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex)
{
    return new cf::Dictionary({});
}

CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef, CFIndex, CFDictionaryRef dictionary)
{
    return new cf::Dictionary(dictionary->Get());
}

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, CFStringRef key, CFTypeRef value)
{
    assert(key && value);
    dictionary->Change().insert_or_assign(key->Text(), cf::Ref<cf::Object>::Share(value));
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, CFStringRef key)
{
    dictionary->Change().erase(key->Text());
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary)
{
    return static_cast<CFIndex>(dictionary->Get().size());
}

CFTypeRef CFDictionaryGetValue(CFDictionaryRef dictionary, CFStringRef key)
{
    return dictionary->Find(key->Text());
}
