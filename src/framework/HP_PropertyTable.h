// HP_PropertyTable: the properties that a class serves, one a row, so that they are seen side by side and a new
// property is one row. Start at HP_PropertyRow::Value. A class finds the row of an address and asks it; where there is
// none it asks its base.
#pragma once

#include "framework/HP_Property.h"
#include "platform/foundation/CFObjects.h"
#include "utility/CAException.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <type_traits>

/// One property of an Owner, which is asked under its state mutex.
template <class Owner>
struct HP_PropertyRow {
    using Address = AudioObjectPropertyAddress;
    using Has = bool (*)(Owner&, const Address&);
    using Set = void (*)(Owner&, const Address&, const void* data);

    AudioObjectPropertySelector mSelector;
    UInt32 mBytes;                            // of the value; 0: mSize says
    Has mHas;                                 // null: always
    UInt32 (*mSize)(Owner&, const Address&);  // bytes; null: mBytes
    /// As HP_Object::GetPropertyData, a fixed size checked before. @return whether there is such a property
    bool (*mGet)(Owner&, const Address&, UInt32& size, void* data);
    Set mSet = nullptr;                                   // its size checked before; null: not settable
    bool (*mSettable)(Owner&, const Address&) = nullptr;  // null: wherever mSet is not

    /// A number or a record, as `kGet` gives it for an owner (and an address, if it takes one), where `kHas` says that
    /// there is one. A truth value is a UInt32 of 0 or 1.
    template <auto kGet, Has kHas = nullptr>
    static constexpr HP_PropertyRow Value(AudioObjectPropertySelector selector, Set set = nullptr);

    /// A retained object as `kCopy` gives it, which the caller releases; null: there is none.
    template <auto kCopy>
    static constexpr HP_PropertyRow Object(AudioObjectPropertySelector selector);

    /// The string that `kCopy` gives as text with its NUL.
    template <auto kCopy>
    static constexpr HP_PropertyRow Text(AudioObjectPropertySelector selector);

    // What a client asks. All throw CAException: "who?" where there is none, "!siz", "nope".
    bool IsThere(Owner& owner, const Address& address) const { return !mHas || mHas(owner, address); }
    bool IsSettable(Owner& owner, const Address& address) const;
    UInt32 GetSize(Owner& owner, const Address& address) const;
    void GetData(Owner& owner, const Address& address, UInt32& size, void* data) const;
    void SetData(Owner& owner, const Address& address, UInt32 size, const void* data) const;
};

/// Rows in reading order, found by selector: constexpr HP_PropertyTable kProperties(std::to_array<Row>({...}));
template <class Owner, size_t kRows>
class HP_PropertyTable {
public:
    using Row = HP_PropertyRow<Owner>;

    constexpr explicit HP_PropertyTable(const std::array<Row, kRows>& rows) : mRows(rows)
    {
        for (size_t row = 0; row < kRows; ++row) mBySelector[row] = {rows[row].mSelector, row};
        std::sort(mBySelector.begin(), mBySelector.end(),
                  [](const Entry& a, const Entry& b) { return a.mSelector < b.mSelector; });
    }

    const Row& operator[](size_t row) const { return mRows[row]; }
    static constexpr UInt32 Count() { return kRows; }

    /// Null where there is no such property.
    const Row* Find(const AudioObjectPropertyAddress& address) const
    {
        const auto found = std::lower_bound(mBySelector.begin(), mBySelector.end(), address.mSelector,
                                            [](const Entry& entry, UInt32 wanted) { return entry.mSelector < wanted; });
        return found != mBySelector.end() && found->mSelector == address.mSelector ? &mRows[found->mRow] : nullptr;
    }

private:
    struct Entry {
        AudioObjectPropertySelector mSelector = 0;
        size_t mRow = 0;
    };
    std::array<Row, kRows> mRows;
    std::array<Entry, kRows> mBySelector{};
};

namespace hp_property_table {

/// What a function of an owner gives, whether it takes the address or not.
template <auto kFunction, class Owner>
auto Ask(Owner& owner, const AudioObjectPropertyAddress& address)
{
    if constexpr (std::is_invocable_v<decltype(kFunction), Owner&, const AudioObjectPropertyAddress&>)
        return std::invoke(kFunction, owner, address);
    else
        return std::invoke(kFunction, owner);
}

/// What a Copy operation of an owner gives, released at the end of the block.
template <auto kCopy, class Owner>
cf::Ref<cf::Object> Copied(Owner& owner, const AudioObjectPropertyAddress& address)
{
    return cf::Ref<cf::Object>::Adopt(Ask<kCopy>(owner, address));
}

}  // namespace hp_property_table

template <class Owner>
template <auto kGet, typename HP_PropertyRow<Owner>::Has kHas>
constexpr HP_PropertyRow<Owner> HP_PropertyRow<Owner>::Value(AudioObjectPropertySelector selector, Set set)
{
    using Given = decltype(hp_property_table::Ask<kGet>(std::declval<Owner&>(), std::declval<const Address&>()));
    using Stored = std::conditional_t<std::is_same_v<Given, bool>, UInt32, Given>;
    const auto get = [](Owner& owner, const Address& address, UInt32&, void* data) {
        if (kHas && !kHas(owner, address)) return false;
        const Stored value = hp_property_table::Ask<kGet>(owner, address);
        std::memcpy(data, &value, sizeof value);  // the caller's room need not be aligned
        return true;
    };
    return {selector, sizeof(Stored), kHas, nullptr, get, set};
}

template <class Owner>
template <auto kCopy>
constexpr HP_PropertyRow<Owner> HP_PropertyRow<Owner>::Object(AudioObjectPropertySelector selector)
{
    const auto has = [](Owner& owner, const Address& address) {
        return bool(hp_property_table::Copied<kCopy>(owner, address));
    };
    const auto get = [](Owner& owner, const Address& address, UInt32&, void* data) {
        const CFTypeRef object = hp_property_table::Copied<kCopy>(owner, address).Detach();
        if (object) std::memcpy(data, &object, sizeof object);
        return object != nullptr;
    };
    return {selector, sizeof(CFTypeRef), has, nullptr, get};
}

template <class Owner>
template <auto kCopy>
constexpr HP_PropertyRow<Owner> HP_PropertyRow<Owner>::Text(AudioObjectPropertySelector selector)
{
    const auto text = [](Owner& owner, const Address& address) {
        const auto string = hp_property_table::Copied<kCopy>(owner, address);
        return cf::ToStdString(cf::As<cf::String>(string.Get()));
    };
    HP_PropertyRow row = Object<kCopy>(selector);
    row.mBytes = 0;
    row.mSize = [](Owner& owner, const Address& address) {
        return static_cast<UInt32>(decltype(text)()(owner, address).size() + 1);
    };
    row.mGet = [](Owner& owner, const Address& address, UInt32& size, void* data) {
        const auto string = hp_property_table::Copied<kCopy>(owner, address);
        if (!string) return false;
        const std::string& bytes = static_cast<const cf::String*>(string.Get())->Text();
        if (size < bytes.size() + 1) throw CAException(kAudioHardwareBadPropertySizeError);
        size = static_cast<UInt32>(bytes.size() + 1);
        std::memcpy(data, bytes.c_str(), size);
        return true;
    };
    return row;
}

template <class Owner>
bool HP_PropertyRow<Owner>::IsSettable(Owner& owner, const Address& address) const
{
    if (!IsThere(owner, address)) throw CAException(kAudioHardwareUnknownPropertyError);
    return mSet && (!mSettable || mSettable(owner, address));
}

template <class Owner>
UInt32 HP_PropertyRow<Owner>::GetSize(Owner& owner, const Address& address) const
{
    if (!IsThere(owner, address)) throw CAException(kAudioHardwareUnknownPropertyError);
    return mSize ? mSize(owner, address) : mBytes;
}

template <class Owner>
void HP_PropertyRow<Owner>::GetData(Owner& owner, const Address& address, UInt32& size, void* data) const
{
    if (mBytes != 0 && size != mBytes) throw CAException(kAudioHardwareBadPropertySizeError);
    if (!mGet(owner, address, size, data)) throw CAException(kAudioHardwareUnknownPropertyError);
}

template <class Owner>
void HP_PropertyRow<Owner>::SetData(Owner& owner, const Address& address, UInt32 size, const void* data) const
{
    if (!IsSettable(owner, address)) throw CAException(kAudioHardwareIllegalOperationError);
    if (size != mBytes) throw CAException(kAudioHardwareBadPropertySizeError);
    mSet(owner, address, data);
}
