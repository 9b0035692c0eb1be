// CFBase: the reference-counted base of property-list objects, and the owning handle for them.
// Why: services and devices are configured with trees of these, and "Copy" and "Get" decide who releases.
// Objects never change after creation, save mutable arrays and dictionaries; counting is thread-safe.
// Start at cf::Ref.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

namespace cf {
class Object;
class String;
class Number;
class Array;
class Dictionary;
class Bundle;
class Boolean;
class Data;
class UUID;
class URL;
}  // namespace cf

using CFTypeID = unsigned long;
using CFIndex = long;
using CFHashCode = unsigned long;
using CFTypeRef = const cf::Object*;
using CFAllocatorRef = const void*;
using CFOptionFlags = unsigned long;
using CFStringRef = const cf::String*;
using CFNumberRef = const cf::Number*;
using CFArrayRef = const cf::Array*;
using CFMutableArrayRef = cf::Array*;
using CFDictionaryRef = const cf::Dictionary*;
using CFMutableDictionaryRef = cf::Dictionary*;
using CFBooleanRef = const cf::Boolean*;
using CFDataRef = const cf::Data*;
using CFUUIDRef = const cf::UUID*;
using CFURLRef = const cf::URL*;
using CFBundleRef = const cf::Bundle*;
using __CFArray = cf::Array;

constexpr CFAllocatorRef kCFAllocatorDefault = nullptr;

/// Adds an owner. @return `object`
CFTypeRef CFRetain(CFTypeRef object);
/// Takes an owner away; the last one destroys the object. Null is our own bug: an assertion.
void CFRelease(CFTypeRef object);
CFTypeID CFGetTypeID(CFTypeRef object);
bool CFEqual(CFTypeRef a, CFTypeRef b);
CFHashCode CFHash(CFTypeRef object);
/// A description for people, as a string that the caller releases.
CFStringRef CFCopyDescription(CFTypeRef object);

namespace cf {

/// The type of every class, counted by the compiler: two classes of one number would be taken for each other.
enum : CFTypeID {
    kStringType = 1,
    kBooleanType,
    kNumberType,
    kDataType,
    kDateType,
    kUIDType,
    kArrayType,
    kDictionaryType,
    kUUIDType,
    kURLType,
    kBundleType,
    kRunLoopType,
    kRunLoopTimerType,
    kReadStreamType,
};

/// The base of everything counted. A new object has one owner, who made it.
class Object {
public:
    Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object() = default;

    virtual CFTypeID TypeID() const = 0;
    /// Whether `other`, which is of the same type, has the same value. An object without a value is equal to
    /// itself alone.
    virtual bool IsEqual(const Object& other) const { return this == &other; }
    /// Equal objects have equal hashes.
    virtual CFHashCode Hash() const { return reinterpret_cast<CFHashCode>(this); }
    virtual std::string Describe() const = 0;

private:
    friend CFTypeRef(::CFRetain)(CFTypeRef object);
    friend void(::CFRelease)(CFTypeRef object);
    mutable std::atomic<uint32_t> mOwners{1};  // raised relaxed; lowered acq_rel, which orders uses before the end
};

/// `object` as a T, or null where it is null or of another type.
template <class T>
const T* As(CFTypeRef object)
{
    return object && object->TypeID() == T::kTypeID ? static_cast<const T*>(object) : nullptr;
}

/// Owns one reference. Made by Adopt from what a Copy or Create call returned, by Share from what a Get
/// call returned.
template <class T>
class Ref {
public:
    Ref() = default;
    static Ref Adopt(const T* object) { return Ref(object); }
    static Ref Share(const T* object)
    {
        if (object) CFRetain(object);
        return Ref(object);
    }
    Ref(const Ref& other) : Ref(Share(other.mObject)) {}
    Ref(Ref&& other) noexcept : mObject(std::exchange(other.mObject, nullptr)) {}
    Ref& operator=(Ref other) noexcept
    {
        std::swap(mObject, other.mObject);
        return *this;
    }
    ~Ref()
    {
        if (mObject) CFRelease(mObject);
    }

    const T* Get() const { return mObject; }
    /// Hands the reference to the caller, who releases it.
    const T* Detach() { return std::exchange(mObject, nullptr); }
    explicit operator bool() const { return mObject != nullptr; }

private:
    explicit Ref(const T* object) : mObject(object) {}
    const T* mObject = nullptr;
};

/// The text of a string, or "" for null.
std::string ToStdString(CFStringRef string);

}  // namespace cf
