#include "platform/foundation/CFDictionary.h"

#include "platform/kernel/MutexGuard.h"

#include <functional>
#include <string_view>

namespace {

struct Utf8Lead {
    unsigned mFollowers;
    unsigned char mFirstLow, mFirstHigh;  // the bounds of the first follower; later ones are 80 .. BF
};

// The bounds of the first follower are what refuses overlong forms, surrogates and values above 10FFFF.
bool ReadLead(unsigned char byte, Utf8Lead& lead)
{
    if (byte < 0x80) {
        lead = {0, 0, 0};
    } else if (byte >= 0xC2 && byte <= 0xDF) {
        lead = {1, 0x80, 0xBF};
    } else if (byte >= 0xE0 && byte <= 0xEF) {
        lead = {2, static_cast<unsigned char>(byte == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(byte == 0xED ? 0x9F : 0xBF)};
    } else if (byte >= 0xF0 && byte <= 0xF4) {
        lead = {3, static_cast<unsigned char>(byte == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(byte == 0xF4 ? 0x8F : 0xBF)};
    } else {
        return false;
    }
    return true;
}

bool IsUtf8(std::string_view text)
{
    for (size_t at = 0; at < text.size();) {
        Utf8Lead lead;
        if (!ReadLead(static_cast<unsigned char>(text[at++]), lead)) return false;
        unsigned char low = lead.mFirstLow, high = lead.mFirstHigh;
        for (unsigned follower = 0; follower < lead.mFollowers; ++follower) {
            if (at == text.size()) return false;
            const auto byte = static_cast<unsigned char>(text[at++]);
            if (byte < low || byte > high) return false;
            low = 0x80, high = 0xBF;
        }
    }
    return true;
}

std::string Folded(std::string text)
{
    for (char& character : text) {
        if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
    }
    return text;
}

}  // namespace

namespace cf {

bool String::IsEqual(const Object& other) const
{
    return mText == static_cast<const String&>(other).mText;
}

CFHashCode String::Hash() const
{
    return std::hash<std::string>()(mText);
}

std::string ToStdString(CFStringRef string)
{
    return string ? string->Text() : std::string();
}

}  // namespace cf

CFTypeID CFStringGetTypeID()
{
    return cf::String::kTypeID;
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* text, uint32_t encoding)
{
    if (!text || encoding != kCFStringEncodingUTF8 || !IsUtf8(text)) return nullptr;
    return new cf::String(text);
}

CFComparisonResult CFStringCompare(CFStringRef a, CFStringRef b, CFOptionFlags options)
{
    // Bytes of UTF-8 are in the order of the code points that they stand for.
    const bool fold = options & kCFCompareCaseInsensitive;
    const int order = fold ? Folded(a->Text()).compare(Folded(b->Text())) : a->Text().compare(b->Text());
    return order < 0 ? kCFCompareLessThan : order > 0 ? kCFCompareGreaterThan : kCFCompareEqualTo;
}

CFStringRef CFStringMakeConstant(const char* text)
{
    // Neither is ever destroyed: constants are used until the last line of the process.
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    static auto& constants = *new std::map<std::string, cf::Ref<cf::String>, std::less<>>;
    const platform::kernel::MutexGuard guard(mutex);
    auto found = constants.find(std::string_view(text));
    if (found == constants.end()) {
        found = constants.emplace(text, cf::Ref<cf::String>::Adopt(new cf::String(text))).first;
    }
    return found->second.Get();
}
