// Property-list objects: strings, numbers, arrays, dictionaries, under their published calls.
// Start at CFStringCreateWithCString; the classes behind the references are in CFObjects.h.
#pragma once

#include "platform/foundation/CFObjects.h"

// ---- Strings, UTF-8 throughout.
constexpr uint32_t kCFStringEncodingUTF8 = 0x08000100;
CFTypeID CFStringGetTypeID();
/// Null for a null text or one that is not UTF-8.
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, uint32_t encoding);
/// A string that lives as long as the process, the same object for the same text.
CFStringRef CFStringMakeConstant(const char* text);
#define CFSTR(text) CFStringMakeConstant(text)
constexpr CFOptionFlags kCFCompareCaseInsensitive = 1;
enum CFComparisonResult : CFIndex { kCFCompareLessThan = -1, kCFCompareEqualTo = 0, kCFCompareGreaterThan = 1 };
/// By code points; where case is not to count, A to Z of ASCII are alike and no others.
CFComparisonResult CFStringCompare(CFStringRef a, CFStringRef b, CFOptionFlags options);

// ---- Truth values: two objects, equal to themselves alone and to no number.
extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;
bool CFBooleanGetValue(CFBooleanRef boolean);

// ---- Numbers.
enum CFNumberType : CFIndex {
    kCFNumberSInt8Type = 1,
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberFloat32Type = 5,
    kCFNumberFloat64Type = 6
};
CFTypeID CFNumberGetTypeID();
/// Null for a type other than those above.
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);
/// Converts to `type`. False where the value had to be cut to fit; the nearest one towards zero is stored all
/// the same (0 for what is no number).
bool CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);

// ---- Arrays. They retain what they hold.
CFTypeID CFArrayGetTypeID();
CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const CFTypeRef* values, CFIndex count);
CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity);
void CFArrayAppendValue(CFMutableArrayRef array, CFTypeRef value);
CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity, CFArrayRef array);
CFIndex CFArrayGetCount(CFArrayRef array);
/// Null beyond the ends.
CFTypeRef CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);
/// Whether any element is equal to `value`.
bool CFArrayContainsValue(CFArrayRef array, CFTypeRef value);

// ---- Dictionaries with string keys. They retain what they hold.
CFTypeID CFDictionaryGetTypeID();
/// Of equal keys the first counts.
CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const CFStringRef* keys, const CFTypeRef* values,
                                   CFIndex count);
CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity);
/// The entries are shared: what is mutable among the values is so through both.
CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                                     CFDictionaryRef dictionary);
/// Replaces an earlier value of an equal key.
void CFDictionarySetValue(CFMutableDictionaryRef dictionary, CFStringRef key, CFTypeRef value);
void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, CFStringRef key);
/// Null where there is no such key.
CFTypeRef CFDictionaryGetValue(CFDictionaryRef dictionary, CFStringRef key);
