// HP_FormatList: a stream's format, the formats and rates it could take, and all format properties of a stream.
// Why: the physical format is what the hardware runs; clients see the virtual one, which for mixable linear PCM is
// always packed 32-bit float. The virtual formats are derived from the physical ones, never kept apart.
// Rates are in hertz; a rate of 0, like any other field of 0, is open.
// Start at AddPhysicalFormat and SetCurrentPhysicalFormat. Runs under the state mutex of the stream's device.
#pragma once

#include "framework/HP_Property.h"
#include "utility/CAAudioValueRange.h"
#include "utility/CAPropertyAddressList.h"
#include "utility/CAStreamBasicDescription.h"

#include <vector>

class HP_Device;
class HP_Stream;

/// The format as a key of the lists: its rate left open.
inline AudioStreamBasicDescription HP_WithoutRate(AudioStreamBasicDescription format)
{
    format.mSampleRate = 0;
    return format;
}

class HP_FormatList final : public HP_Property {
public:
    /// A format, its rate left open, and the rates it can run at, in the order in which AFL_AddFormat leaves them.
    struct AvailableFormat {
        AudioStreamBasicDescription mFormat;
        CAAudioValueRangeList mRates;
    };
    /// In ascending order of formats, each but once.
    using AvailableFormatList = std::vector<AvailableFormat>;

    /// @param stream  not owned; lives longer
    explicit HP_FormatList(HP_Stream* stream);

    bool IsPropertySettable(const AudioObjectPropertyAddress& address) const override;
    UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress& address, UInt32 qualifierSize,
                               const void* qualifier) const override;
    void GetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                         UInt32& size, void* data) const override;
    void SetPropertyData(const AudioObjectPropertyAddress& address, UInt32 qualifierSize, const void* qualifier,
                         UInt32 size, const void* data, const AudioTimeStamp* when) override;
    UInt32 GetNumberAddressesImplemented() const override;
    void GetImplementedAddressByIndex(UInt32 index, AudioObjectPropertyAddress& address) const override;

    // The current format. With `tellHardware` the stream's hardware hears of a new one first, and may refuse it, or
    // report it later by itself: the format then stays as it is, which is no error.
    bool IsLinearPCM() const;
    bool IsMixable() const;
    /// Whether the current format is there with the other mixability too.
    bool CanSetIsMixable() const;
    void SetIsMixable(bool mixable, bool tellHardware);
    void GetCurrentPhysicalFormat(AudioStreamBasicDescription& format) const { format = mCurrentPhysicalFormat; }
    void SetCurrentPhysicalFormat(const AudioStreamBasicDescription& format, bool tellHardware);
    void GetCurrentVirtualFormat(AudioStreamBasicDescription& format) const;
    /// @throws CAException "!dat" where no physical format stands behind it
    void SetCurrentVirtualFormat(const AudioStreamBasicDescription& format, bool tellHardware);
    Float64 GetCurrentNominalSampleRate() const { return mCurrentPhysicalFormat.mSampleRate; }
    /// Nothing happens for a rate that is not supported.
    void SetCurrentNominalSampleRate(Float64 rate, bool tellHardware);

    // What the stream could take.
    bool SupportsNominalSampleRate(Float64 rate) const;
    bool SupportsVirtualFormat(const AudioStreamBasicDescription& format) const;
    bool SupportsPhysicalFormat(const AudioStreamBasicDescription& format) const;
    /// Whether each field that is not open could be part of a format, by itself.
    bool SanityCheckVirtualFormat(const AudioStreamBasicDescription& format) const;
    bool SanityCheckPhysicalFormat(const AudioStreamBasicDescription& format) const;
    /// Puts the nearest format in the place of `format`, all fields filled.
    void BestMatchForVirtualFormat(AudioStreamBasicDescription& format) const;
    void BestMatchForPhysicalFormat(AudioStreamBasicDescription& format) const;
    /// Puts the physical format behind a float format in its place; leaves any other alone.
    /// @return false, `format` then half converted, where none has its rate and channels
    bool ConvertVirtualFormatToPhysicalFormat(AudioStreamBasicDescription& format) const;

    // One entry a range of rates.
    UInt32 GetNumberAvailableVirtualFormats() const { return AFL_GetNumberFormats(mVirtualFormats); }
    UInt32 GetNumberAvailablePhysicalFormats() const { return AFL_GetNumberFormats(mPhysicalFormats); }
    /// @return false beyond the end
    bool GetAvailableVirtualFormatByIndex(UInt32 index, AudioStreamRangedDescription& format) const
    {
        return AFL_GetFormatByIndex(mVirtualFormats, index, format);
    }
    bool GetAvailablePhysicalFormatByIndex(UInt32 index, AudioStreamRangedDescription& format) const
    {
        return AFL_GetFormatByIndex(mPhysicalFormats, index, format);
    }
    /// The rates of all formats, in ascending order, merged where they meet.
    CAAudioValueRangeList GatherNominalSampleRateRanges() const;
    UInt32 GetNumberAvailableNominalSampleRateRanges() const;

    /// One without channels is not entered.
    void AddPhysicalFormat(const AudioStreamRangedDescription& format);
    /// The current format stays.
    void RemoveAllFormats();

    // Sizes of I/O buffers, which hold the virtual format; without a list those of the format itself. A format that is
    // neither linear PCM nor AC-3 on its wire has buffers of one packet. 0 where the format has no frames.
    UInt32 CalculateIOBufferByteSize(UInt32 frames) const;
    UInt32 CalculateIOBufferFrameSize(UInt32 bytes) const;
    static UInt32 CalculateIOBufferByteSize(const AudioStreamBasicDescription& format, UInt32 frames);
    static UInt32 CalculateIOBufferFrameSize(const AudioStreamBasicDescription& format, UInt32 bytes);

    /// What listeners of a stream and of its device must hear after the stream's format changed.
    static void DetermineNotifications(const HP_Device& device, const HP_Stream& stream,
                                       const AudioStreamBasicDescription& oldFormat,
                                       const AudioStreamBasicDescription& newFormat, CAPropertyAddressList& ofStream,
                                       CAPropertyAddressList& ofDevice);

    // Lists of formats.

    /// Enters a format with its range of rates. The ranges of a format run from high to low; one that reaches out of
    /// another at one end extends it, one inside another changes nothing, and one that surrounds another stands
    /// unmerged before it.
    static void AFL_AddFormat(AvailableFormatList& list, const AudioStreamRangedDescription& format);
    /// The first format that may be the same; null where there is none.
    static const AvailableFormat* AFL_FindSampleFormat(const AvailableFormatList& list,
                                                       const AudioStreamBasicDescription& key);
    static bool AFL_SupportsFormat(const AvailableFormatList& list, const AudioStreamBasicDescription& format);
    /// @param current  whose rate serves where that of `format` is open
    /// @param format   left alone where the list is empty
    static void AFL_BestMatchForFormat(const AvailableFormatList& list, const AudioStreamBasicDescription& current,
                                       AudioStreamBasicDescription& format);
    static UInt32 AFL_GetNumberFormats(const AvailableFormatList& list);
    /// @return false beyond the end
    static bool AFL_GetFormatByIndex(const AvailableFormatList& list, UInt32 index,
                                     AudioStreamRangedDescription& format);

private:
    static bool HasSaneFields(const AvailableFormatList& list, const AudioStreamBasicDescription& format);

    HP_Stream* const mStream;
    AudioStreamBasicDescription mCurrentPhysicalFormat{};
    AvailableFormatList mPhysicalFormats;
    AvailableFormatList mVirtualFormats;
};
