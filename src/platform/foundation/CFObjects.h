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
    static constexpr CFTypeID kTypeID = 7;
    explicit String(std::string text) : mText(std::move(text)) {}

    CFTypeID TypeID() const override { return kTypeID; }
    bool IsEqual(const Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override { return mText; }

    const std::string& Text() const { return mText; }

private:
    const std::string mText;
};

/// A whole number or a real one. They are equal where their values are, whatever their kinds.
class Number final : public Object {
public:
    static constexpr CFTypeID kTypeID = 22;
    using Value = std::variant<int64_t, double>;
    explicit Number(Value value) : mValue(value) {}

    CFTypeID TypeID() const override { return kTypeID; }
    bool IsEqual(const Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

    const Value& Get() const { return mValue; }

private:
    const Value mValue;
};

/// Objects in order. Only the thread that made a mutable one may use it until it stops changing.
class Array final : public Object {
public:
    static constexpr CFTypeID kTypeID = 19;
    using Values = std::vector<Ref<Object>>;
    explicit Array(Values values) : mValues(std::move(values)) {}

    CFTypeID TypeID() const override { return kTypeID; }
    bool IsEqual(const Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

    const Values& Get() const { return mValues; }
    void Append(CFTypeRef value) { mValues.push_back(Ref<Object>::Share(value)); }

private:
    Values mValues;
};

/// Objects by name, in the order of their names, so that descriptions repeat.
class Dictionary final : public Object {
public:
    static constexpr CFTypeID kTypeID = 18;
    using Entries = std::map<std::string, Ref<Object>, std::less<>>;
    explicit Dictionary(Entries entries) : mEntries(std::move(entries)) {}

    CFTypeID TypeID() const override { return kTypeID; }
    bool IsEqual(const Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

    const Entries& Get() const { return mEntries; }
    /// Null where there is no such key.
    CFTypeRef Find(std::string_view key) const;

private:
    const Entries mEntries;
};

}  // namespace cf
