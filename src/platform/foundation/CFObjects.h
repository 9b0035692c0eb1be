// CFObjects: the classes behind the references of property-list objects, each over a standard value or container.
// Why: the compiler then knows that a CFStringRef is a CFTypeRef, and a published call is a line or two.
// Callers use the published calls in CFDictionary.h; these classes are for the calls and for reading.
#pragma once

#include "platform/foundation/CFBase.h"

#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace cf {

/// Text, always valid UTF-8.
class String final : public Object {
public:
    static constexpr CFTypeID kTypeID = kStringType;
    explicit String(std::string text) : mText(std::move(text)) {}

    CFTypeID TypeID() const override { return kTypeID; }
    bool IsEqual(const Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override { return mText; }

    const std::string& Text() const { return mText; }

private:
    const std::string mText;
};

/// True or false: one object each, so that they are compared as objects.
class Boolean final : public Object {
public:
    static constexpr CFTypeID kTypeID = kBooleanType;
    explicit constexpr Boolean(bool value) : mValue(value) {}

    CFTypeID TypeID() const override { return kTypeID; }
    std::string Describe() const override { return mValue ? "true" : "false"; }

    bool Get() const { return mValue; }

private:
    const bool mValue;
};

/// A whole number or a real one. They are equal where their values are, whatever their kinds.
class Number final : public Object {
public:
    static constexpr CFTypeID kTypeID = kNumberType;
    /// An unsigned one only beyond the signed ones.
    using Value = std::variant<int64_t, uint64_t, double>;
    explicit Number(Value value) : mValue(value) {}

    CFTypeID TypeID() const override { return kTypeID; }
    bool IsEqual(const Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

    const Value& Get() const { return mValue; }

private:
    const Value mValue;
};

/// Bytes of no meaning here. Nothing asks for them; a list that is read and written keeps them.
class Data final : public Object {
public:
    static constexpr CFTypeID kTypeID = kDataType;
    explicit Data(std::string bytes) : mBytes(std::move(bytes)) {}

    CFTypeID TypeID() const override { return kTypeID; }
    bool IsEqual(const Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

    const std::string& Bytes() const { return mBytes; }

private:
    const std::string mBytes;
};

/// A moment, kept as bytes are.
class Date final : public Object {
public:
    static constexpr CFTypeID kTypeID = kDateType;
    /// @param seconds  since the beginning of 2001, universal time; any value at all
    explicit Date(double seconds) : mSeconds(seconds) {}

    CFTypeID TypeID() const override { return kTypeID; }
    bool IsEqual(const Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

    double Seconds() const { return mSeconds; }

private:
    const double mSeconds;
};

/// A reference to an object of an archive, kept as bytes are.
class UID final : public Object {
public:
    static constexpr CFTypeID kTypeID = kUIDType;
    explicit UID(uint64_t value) : mValue(value) {}

    CFTypeID TypeID() const override { return kTypeID; }
    bool IsEqual(const Object& other) const override { return mValue == static_cast<const UID&>(other).mValue; }
    CFHashCode Hash() const override { return mValue; }
    std::string Describe() const override { return "UID " + std::to_string(mValue); }

    uint64_t Get() const { return mValue; }

private:
    const uint64_t mValue;
};

/// Objects in order. Only the thread that made a mutable one may use it until it stops changing.
class Array final : public Object {
public:
    static constexpr CFTypeID kTypeID = kArrayType;
    using Values = std::vector<Ref<Object>>;
    explicit Array(Values values) : mValues(std::move(values)) {}

    CFTypeID TypeID() const override { return kTypeID; }
    bool IsEqual(const Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

    const Values& Get() const { return mValues; }
    Values& Change() { return mValues; }

private:
    Values mValues;
};

/// Objects by name, in the order of their names, so that descriptions repeat. Changed as an array is.
class Dictionary final : public Object {
public:
    static constexpr CFTypeID kTypeID = kDictionaryType;
    using Entries = std::map<std::string, Ref<Object>, std::less<>>;
    explicit Dictionary(Entries entries) : mEntries(std::move(entries)) {}

    CFTypeID TypeID() const override { return kTypeID; }
    bool IsEqual(const Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

    const Entries& Get() const { return mEntries; }
    Entries& Change() { return mEntries; }
    /// Null where there is no such key.
    CFTypeRef Find(std::string_view key) const;

private:
    Entries mEntries;
};

}  // namespace cf
