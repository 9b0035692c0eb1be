// The format properties of a stream.
#include "framework/HP_FormatList.h"
#include "framework/HP_FormatSelectors.h"
#include "framework/HP_PropertyTable.h"

namespace {

using Address = AudioObjectPropertyAddress;
using Format = AudioStreamBasicDescription;
using List = HP_FormatList;
using Row = HP_PropertyRow<HP_FormatList>;

template <class Value>
Value Read(const void* data)
{
    Value value;
    std::memcpy(&value, data, sizeof value);
    return value;
}

[[noreturn]] void ThrowBadData()
{
    throw CAException(kAudioDeviceUnsupportedFormatError);
}

void SetRate(List& list, const Address&, const void* data)
{
    const auto rate = Read<Float64>(data);
    if (rate == 0) return;
    if (!list.SupportsNominalSampleRate(rate)) ThrowBadData();
    list.SetCurrentNominalSampleRate(rate, true);
}

void SetVirtualFormat(List& list, const Address&, const void* data)
{
    auto format = Read<Format>(data);
    if (!list.SanityCheckVirtualFormat(format)) ThrowBadData();
    list.BestMatchForVirtualFormat(format);
    list.SetCurrentVirtualFormat(format, true);
}

void SetPhysicalFormat(List& list, const Address&, const void* data)
{
    auto format = Read<Format>(data);
    if (!list.SanityCheckPhysicalFormat(format)) ThrowBadData();
    list.BestMatchForPhysicalFormat(format);
    list.SetCurrentPhysicalFormat(format, true);
}

void SetMixable(List& list, const Address&, const void* data)
{
    list.SetIsMixable(Read<UInt32>(data) != 0, true);
}

Format VirtualFormat(const List& list)
{
    Format format;
    list.GetCurrentVirtualFormat(format);
    return format;
}

Format PhysicalFormat(const List& list)
{
    Format format;
    list.GetCurrentPhysicalFormat(format);
    return format;
}

AudioValueRange RateRange(const List& list, UInt32 index)
{
    return list.GatherNominalSampleRateRanges()[index];
}

template <auto kGetByIndex>
AudioStreamRangedDescription Ranged(const List& list, UInt32 index)
{
    AudioStreamRangedDescription format;
    (list.*kGetByIndex)(index, format);
    return format;
}

template <auto kGetByIndex>
Format Plain(const List& list, UInt32 index)
{
    return Ranged<kGetByIndex>(list, index).mFormat;
}

/// The caller's format is a question here, which fails where it is not supported.
template <auto kSupports>
constexpr Row Supported(AudioObjectPropertySelector selector)
{
    const auto get = [](const List& list, const Address&, UInt32& size, void* data) {
        HP_RequireSize(size, sizeof(Format));
        if (!(list.*kSupports)(Read<Format>(data))) ThrowBadData();
        return true;
    };
    return {selector, sizeof(Format), nullptr, nullptr, get};
}

/// The best match takes the place of the caller's format.
template <auto kBestMatch>
constexpr Row Match(AudioObjectPropertySelector selector)
{
    const auto get = [](const List& list, const Address&, UInt32& size, void* data) {
        HP_RequireSize(size, sizeof(Format));
        auto format = Read<Format>(data);
        (list.*kBestMatch)(format);
        std::memcpy(data, &format, sizeof format);
        return true;
    };
    return {selector, sizeof(Format), nullptr, nullptr, get};
}

constexpr Row Mixable()
{
    Row row = Row::Value<&List::IsMixable>(kAudioDevicePropertySupportsMixing, SetMixable);
    row.mSettable = [](const List& list, const Address&) { return list.CanSetIsMixable(); };
    return row;
}

constexpr auto kVirtualCount = &List::GetNumberAvailableVirtualFormats;
constexpr auto kVirtualByIndex = &List::GetAvailableVirtualFormatByIndex;
constexpr auto kPhysicalCount = &List::GetNumberAvailablePhysicalFormats;
constexpr auto kPhysicalByIndex = &List::GetAvailablePhysicalFormatByIndex;

constexpr HP_PropertyTable kProperties(std::to_array<Row>({
    Row::Value<&List::GetCurrentNominalSampleRate>(kAudioDevicePropertyNominalSampleRate, SetRate),
    Row::Array<&List::GetNumberAvailableNominalSampleRateRanges, RateRange>(
        kAudioDevicePropertyAvailableNominalSampleRates),
    Row::Value<VirtualFormat>(kAudioDevicePropertyStreamFormat, SetVirtualFormat),
    Row::Array<kVirtualCount, Ranged<kVirtualByIndex>>(kAudioStreamPropertyAvailableVirtualFormats),
    Row::Array<kVirtualCount, Plain<kVirtualByIndex>>(kAudioDevicePropertyStreamFormats),
    Supported<&List::SupportsVirtualFormat>(kAudioDevicePropertyStreamFormatSupported),
    Match<&List::BestMatchForVirtualFormat>(kAudioDevicePropertyStreamFormatMatch),
    Row::Value<PhysicalFormat>(kAudioStreamPropertyPhysicalFormat, SetPhysicalFormat),
    Row::Array<kPhysicalCount, Ranged<kPhysicalByIndex>>(kAudioStreamPropertyAvailablePhysicalFormats),
    Row::Array<kPhysicalCount, Plain<kPhysicalByIndex>>(kAudioStreamPropertyPhysicalFormats),
    Supported<&List::SupportsPhysicalFormat>(kAudioStreamPropertyPhysicalFormatSupported),
    Match<&List::BestMatchForPhysicalFormat>(kAudioStreamPropertyPhysicalFormatMatch),
    Mixable(),
}));

const Row& RowOf(const Address& address)
{
    const Row* const row = kProperties.Find(address);
    if (!row) throw CAException(kAudioHardwareUnknownPropertyError);  // a wildcard is no property
    return *row;
}

}  // namespace

bool HP_FormatList::IsPropertySettable(const AudioObjectPropertyAddress& address) const
{
    return RowOf(address).IsSettable(*this, address);
}

UInt32 HP_FormatList::GetPropertyDataSize(const AudioObjectPropertyAddress& address, UInt32, const void*) const
{
    return RowOf(address).GetSize(*this, address);
}

void HP_FormatList::GetPropertyData(const AudioObjectPropertyAddress& address, UInt32, const void*, UInt32& size,
                                    void* data) const
{
    RowOf(address).GetData(*this, address, size, data);
}

void HP_FormatList::SetPropertyData(const AudioObjectPropertyAddress& address, UInt32, const void*, UInt32 size,
                                    const void* data, const AudioTimeStamp*)
{
    RowOf(address).SetData(*this, address, size, data);
}

UInt32 HP_FormatList::GetNumberAddressesImplemented() const
{
    return static_cast<UInt32>(kHP_FormatSelectors.size());
}

void HP_FormatList::GetImplementedAddressByIndex(UInt32 index, AudioObjectPropertyAddress& address) const
{
    address = HP_FormatAddress(index);
}
