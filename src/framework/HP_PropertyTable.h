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

/// @throws CAException "!siz" for another size than that of the property
inline void HP_RequireSize(UInt32 size, UInt32 bytes)
{
    if (size != bytes) throw CAException(kAudioHardwareBadPropertySizeError);
}

/// One property of an Owner, which is asked under its state mutex.
template <class Owner>
struct HP_PropertyRow {
    using Address = AudioObjectPropertyAddress;
    using Has = bool (*)(const Owner&, const Address&);
    using Set = void (*)(Owner&, const Address&, const void* data);

    AudioObjectPropertySelector mSelector;
    UInt32 mBytes;                                  // of the value; 0: mSize says
    Has mHas;                                       // null: always
    UInt32 (*mSize)(const Owner&, const Address&);  // bytes; null: mBytes
    /// As HP_Object::GetPropertyData. @return whether there is such a property
    bool (*mGet)(const Owner&, const Address&, UInt32& size, void* data);
    Set mSet = nullptr;                                         // its size checked before; null: not settable
    bool (*mSettable)(const Owner&, const Address&) = nullptr;  // null: wherever mSet is not

    // Functions given here take the owner, and the address where they want it.

    /// A number or a record that `kGet` gives, where `kHas` says that there is one. A truth value is a UInt32 of 0
    /// or 1.
    template <auto kGet, Has kHas = nullptr>
    static constexpr HP_PropertyRow Value(AudioObjectPropertySelector selector, Set set = nullptr);

    /// As many of the entries as there is room for: kCount(owner), kEntry(owner, address, index).
    template <auto kCount, auto kEntry, Has kHas = nullptr>
    static constexpr HP_PropertyRow Array(AudioObjectPropertySelector selector);

    /// A retained object that `kCopy` gives, which the caller releases; null: there is none.
    template <auto kCopy>
    static constexpr HP_PropertyRow Object(AudioObjectPropertySelector selector);

    /// The string that `kCopy` gives as text with its NUL.
    template <auto kCopy>
    static constexpr HP_PropertyRow Text(AudioObjectPropertySelector selector);

    // What a client asks. All throw CAException: "who?" where there is none, "!siz", "nope".
    bool IsThere(const Owner& owner, const Address& address) const { return !mHas || mHas(owner, address); }
    bool IsSettable(const Owner& owner, const Address& address) const;
    UInt32 GetSize(const Owner& owner, const Address& address) const;
    void GetData(const Owner& owner, const Address& address, UInt32& size, void* data) const;
    void SetData(Owner& owner, const Address& address, UInt32 size, const void* data) const;
};

/// The rows of a class: constexpr HP_PropertyTable kProperties(std::to_array<HP_PropertyRow<HP_Device>>({row, ...}));
template <class Owner, size_t kRows>
class HP_PropertyTable {
public:
    using Row = HP_PropertyRow<Owner>;

    constexpr explicit HP_PropertyTable(std::array<Row, kRows> rows) : mRows(rows)
    {
        std::sort(mRows.begin(), mRows.end(), [](const Row& a, const Row& b) { return a.mSelector < b.mSelector; });
    }

    /// Null where there is no such property.
    const Row* Find(const AudioObjectPropertyAddress& address) const
    {
        const auto found = std::lower_bound(mRows.begin(), mRows.end(), address.mSelector,
                                            [](const Row& row, UInt32 selector) { return row.mSelector < selector; });
        return found != mRows.end() && found->mSelector == address.mSelector ? &*found : nullptr;
    }

private:
    std::array<Row, kRows> mRows;  // by selector
};

namespace hp_property_table {

/// What a function gives for an owner, whether it takes the address or not.
template <auto kFunction, class Owner, class... More>
auto Ask(const Owner& owner, const AudioObjectPropertyAddress& address, More... more)
{
    if constexpr (std::is_invocable_v<decltype(kFunction), const Owner&, const AudioObjectPropertyAddress&, More...>)
        return std::invoke(kFunction, owner, address, more...);
    else
        return std::invoke(kFunction, owner, more...);
}

template <auto kCopy, class Owner>
cf::Ref<cf::Object> Copied(const Owner& owner, const AudioObjectPropertyAddress& address)
{
    return cf::Ref<cf::Object>::Adopt(Ask<kCopy>(owner, address));
}

}  // namespace hp_property_table

template <class Owner>
template <auto kGet, typename HP_PropertyRow<Owner>::Has kHas>
constexpr HP_PropertyRow<Owner> HP_PropertyRow<Owner>::Value(AudioObjectPropertySelector selector, Set set)
{
    using Given = decltype(hp_property_table::Ask<kGet>(std::declval<const Owner&>(), std::declval<const Address&>()));
    using Stored = std::conditional_t<std::is_same_v<Given, bool>, UInt32, Given>;
    const auto get = [](const Owner& owner, const Address& address, UInt32& size, void* data) {
        if (kHas && !kHas(owner, address)) return false;
        HP_RequireSize(size, sizeof(Stored));
        const Stored value = hp_property_table::Ask<kGet>(owner, address);
        std::memcpy(data, &value, sizeof value);  // the caller's room need not be aligned
        return true;
    };
    return {selector, sizeof(Stored), kHas, nullptr, get, set};
}

template <class Owner>
template <auto kCount, auto kEntry, typename HP_PropertyRow<Owner>::Has kHas>
constexpr HP_PropertyRow<Owner> HP_PropertyRow<Owner>::Array(AudioObjectPropertySelector selector)
{
    using Entry = decltype(hp_property_table::Ask<kEntry>(std::declval<const Owner&>(), std::declval<const Address&>(),
                                                          UInt32()));
    const auto bytes = [](const Owner& owner, const Address& address) -> UInt32 {
        return hp_property_table::Ask<kCount>(owner, address) * sizeof(Entry);
    };
    const auto get = [](const Owner& owner, const Address& address, UInt32& size, void* data) {
        if (kHas && !kHas(owner, address)) return false;
        const UInt32 count = std::min<UInt32>(hp_property_table::Ask<kCount>(owner, address), size / sizeof(Entry));
        size = count * sizeof(Entry);
        for (UInt32 index = 0; index < count; ++index) {
            const Entry entry = hp_property_table::Ask<kEntry>(owner, address, index);
            std::memcpy(static_cast<char*>(data) + index * sizeof entry, &entry, sizeof entry);
        }
        return true;
    };
    return {selector, 0, kHas, bytes, get};
}

template <class Owner>
template <auto kCopy>
constexpr HP_PropertyRow<Owner> HP_PropertyRow<Owner>::Object(AudioObjectPropertySelector selector)
{
    const auto has = [](const Owner& owner, const Address& address) {
        return bool(hp_property_table::Copied<kCopy>(owner, address));
    };
    const auto get = [](const Owner& owner, const Address& address, UInt32& size, void* data) {
        auto copied = hp_property_table::Copied<kCopy>(owner, address);
        if (!copied) return false;
        HP_RequireSize(size, sizeof(CFTypeRef));
        const CFTypeRef object = copied.Detach();
        std::memcpy(data, &object, sizeof object);
        return true;
    };
    return {selector, sizeof(CFTypeRef), has, nullptr, get};
}

template <class Owner>
template <auto kCopy>
constexpr HP_PropertyRow<Owner> HP_PropertyRow<Owner>::Text(AudioObjectPropertySelector selector)
{
    const auto bytes = [](const Owner& owner, const Address& address) -> UInt32 {
        const auto string = hp_property_table::Copied<kCopy>(owner, address);
        return static_cast<UInt32>(static_cast<const cf::String*>(string.Get())->Text().size() + 1);
    };
    const auto get = [](const Owner& owner, const Address& address, UInt32& size, void* data) {
        const auto string = hp_property_table::Copied<kCopy>(owner, address);
        if (!string) return false;
        const std::string& text = static_cast<const cf::String*>(string.Get())->Text();
        if (size < text.size() + 1) throw CAException(kAudioHardwareBadPropertySizeError);
        size = static_cast<UInt32>(text.size() + 1);
        std::memcpy(data, text.c_str(), size);
        return true;
    };
    return {selector, 0, Object<kCopy>(selector).mHas, bytes, get};
}

template <class Owner>
bool HP_PropertyRow<Owner>::IsSettable(const Owner& owner, const Address& address) const
{
    if (!IsThere(owner, address)) throw CAException(kAudioHardwareUnknownPropertyError);
    return mSet && (!mSettable || mSettable(owner, address));
}

template <class Owner>
UInt32 HP_PropertyRow<Owner>::GetSize(const Owner& owner, const Address& address) const
{
    if (!IsThere(owner, address)) throw CAException(kAudioHardwareUnknownPropertyError);
    return mSize ? mSize(owner, address) : mBytes;
}

template <class Owner>
void HP_PropertyRow<Owner>::GetData(const Owner& owner, const Address& address, UInt32& size, void* data) const
{
    if (!mGet(owner, address, size, data)) throw CAException(kAudioHardwareUnknownPropertyError);
}

template <class Owner>
void HP_PropertyRow<Owner>::SetData(Owner& owner, const Address& address, UInt32 size, const void* data) const
{
    if (!IsSettable(owner, address)) throw CAException(kAudioHardwareIllegalOperationError);
    HP_RequireSize(size, mBytes);
    mSet(owner, address, data);
}
