#include "framework/HP_DeviceFormatList.h"

#include "framework/HP_Device.h"
#include "framework/HP_FormatSelectors.h"
#include "framework/HP_PropertyTable.h"
#include "framework/HP_Stream.h"

namespace {

using Address = AudioObjectPropertyAddress;
using Row = HP_PropertyRow<HP_Device>;

constexpr AudioObjectPropertyElement kMaster = kAudioObjectPropertyElementMaster;

template <class Visit>
void ForEachStream(const HP_Device& device, Visit&& visit)
{
    for (const bool isInput : {false, true}) {
        for (HP_Stream* const stream : device.GetStreams(isInput)) visit(*stream);
    }
}

bool IsMixable(const HP_Device& device)
{
    return !device.HasAnyNonMixableStreams(false) && !device.HasAnyNonMixableStreams(true);
}

/// A stream that cannot do it is no reason not to ask the next.
void SetMixable(HP_Device& device, const Address&, const void* data)
{
    ForEachStream(device, [&](HP_Stream& stream) {
        if (!stream.GetFormatList().CanSetIsMixable()) return;
        try {
            stream.SetPropertyData({kAudioDevicePropertySupportsMixing, kAudioObjectPropertyScopeGlobal, kMaster}, 0,
                                   nullptr, sizeof(UInt32), data, nullptr);
        } catch (...) {
        }
    });
}

/// One stream takes the rate for all of them, an output stream first.
void SetRate(HP_Device& device, const Address&, const void* data)
{
    Float64 rate;
    std::memcpy(&rate, data, sizeof rate);
    bool taken = false;
    ForEachStream(device, [&](HP_Stream& stream) {
        if (taken || !stream.GetFormatList().SupportsNominalSampleRate(rate)) return;
        stream.GetFormatList().SetCurrentNominalSampleRate(rate, true);
        taken = true;
    });
    if (!taken) throw CAException(kAudioDeviceUnsupportedFormatError);
}

CAAudioValueRangeList Intersection(const CAAudioValueRangeList& a, const CAAudioValueRangeList& b)
{
    CAAudioValueRangeList all, some;
    for (const CAAudioValueRange& range : a) {
        CAAudioValueRange_ComputeIntersection(range, b, some);
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

/// The rates that every stream has, as the first stream has them in order.
CAAudioValueRangeList CommonRates(const HP_Device& device)
{
    CAAudioValueRangeList common;
    bool first = true;
    for (const bool isInput : {true, false}) {
        for (const HP_Stream* const stream : device.GetStreams(isInput)) {
            const CAAudioValueRangeList rates = stream->GetFormatList().GatherNominalSampleRateRanges();
            common = std::exchange(first, false) ? rates : Intersection(common, rates);
        }
    }
    return common;
}

constexpr Row Mixable()
{
    Row row = Row::Value<IsMixable>(kAudioDevicePropertySupportsMixing, SetMixable);
    row.mSettable = [](const HP_Device& device, const Address&) {
        return device.CanSetIsMixable(true) || device.CanSetIsMixable(false);
    };
    return row;
}

// What the device answers itself.
constexpr HP_PropertyTable kProperties(std::to_array<Row>({
    Row::Value<&HP_Device::GetCurrentNominalSampleRate>(kAudioDevicePropertyNominalSampleRate, SetRate),
    Row::Array<[](const HP_Device& device) { return static_cast<UInt32>(CommonRates(device).size()); },
               [](const HP_Device& device, UInt32 index) -> AudioValueRange { return CommonRates(device)[index]; }>(
        kAudioDevicePropertyAvailableNominalSampleRates),
    Mixable(),
}));

/// Null where the stream answers that the element lies in: mixing is a stream's own but for the master element.
const Row* OwnRow(const Address& address)
{
    if (address.mSelector == kAudioDevicePropertySupportsMixing && address.mElement != kMaster) return nullptr;
    return kProperties.Find(address);
}

/// The stream that answers, and the address turned into the stream's.
HP_Stream& StreamOf(const HP_Device& device, Address& address)
{
    HP_Stream* const stream = device.GetStreamByPropertyAddress(address, false);
    if (!stream) throw CAException(kAudioHardwareUnknownPropertyError);
    stream->ChangeDevicePropertyAddressIntoStreamPropertyAddress(address);
    return *stream;
}

}  // namespace

bool HP_DeviceFormatList::IsActive(const AudioObjectPropertyAddress& address) const
{
    return kProperties.Find(address) || !mDevice->GetStreamsByScope(address.mScope).empty();
}

bool HP_DeviceFormatList::IsPropertySettable(const AudioObjectPropertyAddress& address) const
{
    if (const Row* const row = OwnRow(address)) return row->IsSettable(*mDevice, address);
    Address ofStream = address;
    return StreamOf(*mDevice, ofStream).IsPropertySettable(ofStream);
}

UInt32 HP_DeviceFormatList::GetPropertyDataSize(const AudioObjectPropertyAddress& address, UInt32 qualifierSize,
                                                const void* qualifier) const
{
    if (const Row* const row = OwnRow(address)) return row->GetSize(*mDevice, address);
    Address ofStream = address;
    return StreamOf(*mDevice, ofStream).GetPropertyDataSize(ofStream, qualifierSize, qualifier);
}

void HP_DeviceFormatList::GetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize,
                                          const void* qualifier, UInt32& size, void* data) const
{
    if (const Row* const row = OwnRow(address)) return row->GetData(*mDevice, address, size, data);
    Address ofStream = address;
    StreamOf(*mDevice, ofStream).GetPropertyData(ofStream, qualifierSize, qualifier, size, data);
}

void HP_DeviceFormatList::SetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize,
                                          const void* qualifier, UInt32 size, const void* data,
                                          const AudioTimeStamp* when)
{
    const Row* const row = OwnRow(address);
    if (row && address.mElement == kMaster) return row->SetData(*mDevice, address, size, data);
    Address ofStream = address;
    StreamOf(*mDevice, ofStream).SetPropertyData(ofStream, qualifierSize, qualifier, size, data, when);
}

UInt32 HP_DeviceFormatList::GetNumberAddressesImplemented() const
{
    return static_cast<UInt32>(kHP_FormatSelectors.size());
}

void HP_DeviceFormatList::GetImplementedAddressByIndex(UInt32 index, AudioObjectPropertyAddress& address) const
{
    address = HP_FormatAddress(index);
}
