// Lists of formats: in the order of formats, each with the rates that it can run at.
#include "framework/HP_FormatList.h"

#include <algorithm>

namespace {

/// Enters a range into those of a format. The first one that does not lie wholly above it decides: an overlap at one
/// end is merged into that one alone, and a range that surrounds it is put before it as it is.
void AddRange(CAAudioValueRangeList& ranges, const AudioValueRange& added)
{
    const Float64 low = added.mMinimum, high = added.mMaximum;
    const auto met = std::ranges::find_if(ranges, [&](const auto& range) { return range.mMinimum <= high; });
    if (met == ranges.end()) {
        ranges.push_back(added);
    } else if (met->mMaximum >= high) {
        met->mMinimum = std::min(met->mMinimum, low);
    } else if (met->mMinimum <= low && low <= met->mMaximum) {
        met->mMaximum = high;
    } else {
        ranges.insert(met, added);
    }
}

const CAAudioValueRange* FindRange(const CAAudioValueRangeList& ranges, Float64 rate)
{
    const auto found = std::ranges::find_if(
        ranges, [&](const auto& range) { return range.mMinimum <= rate && rate <= range.mMaximum; });
    return found != ranges.end() ? &*found : nullptr;
}

}  // namespace

void HP_FormatList::AFL_AddFormat(AvailableFormatList& list, const AudioStreamRangedDescription& format)
{
    const AudioStreamBasicDescription key = HP_WithoutRate(format.mFormat);
    const auto place = std::ranges::find_if(list, [&](const AvailableFormat& other) { return !(other.mFormat < key); });
    if (place != list.end() && place->mFormat == key)
        AddRange(place->mRates, format.mSampleRateRange);
    else
        list.insert(place, {key, {format.mSampleRateRange}});
}

const HP_FormatList::AvailableFormat* HP_FormatList::AFL_FindSampleFormat(const AvailableFormatList& list,
                                                                          const AudioStreamBasicDescription& key)
{
    const auto found = std::ranges::find_if(list, [&](const AvailableFormat& other) { return other.mFormat == key; });
    return found != list.end() ? &*found : nullptr;
}

bool HP_FormatList::AFL_SupportsFormat(const AvailableFormatList& list, const AudioStreamBasicDescription& format)
{
    const CAStreamBasicDescription key(HP_WithoutRate(format));
    const Float64 rate = format.mSampleRate;
    if (key.IsEqual({}, false)) {  // a question about the rate alone
        return rate == 0 ||
               std::ranges::any_of(list, [&](const AvailableFormat& one) { return FindRange(one.mRates, rate); });
    }
    const AvailableFormat* const found = AFL_FindSampleFormat(list, key);
    return found && (rate == 0 || FindRange(found->mRates, rate));
}

void HP_FormatList::AFL_BestMatchForFormat(const AvailableFormatList& list, const AudioStreamBasicDescription& current,
                                           AudioStreamBasicDescription& format)
{
    if (list.empty()) return;
    const AvailableFormat* const found = AFL_FindSampleFormat(list, HP_WithoutRate(format));
    const AvailableFormat& best = found ? *found : list.front();
    const Float64 wanted = format.mSampleRate != 0 ? format.mSampleRate : current.mSampleRate;
    format = best.mFormat;
    format.mSampleRate =
        found && FindRange(best.mRates, wanted) ? wanted : CAAudioValueRange::PickCommonSampleRate(best.mRates.front());
}

UInt32 HP_FormatList::AFL_GetNumberFormats(const AvailableFormatList& list)
{
    UInt32 count = 0;
    for (const AvailableFormat& format : list) count += static_cast<UInt32>(format.mRates.size());
    return count;
}

bool HP_FormatList::AFL_GetFormatByIndex(const AvailableFormatList& list, UInt32 index,
                                         AudioStreamRangedDescription& format)
{
    for (const AvailableFormat& one : list) {
        if (index < one.mRates.size()) {
            format = {one.mFormat, one.mRates[index]};
            if (format.mSampleRateRange.mMinimum == format.mSampleRateRange.mMaximum)
                format.mFormat.mSampleRate = format.mSampleRateRange.mMinimum;
            return true;
        }
        index -= static_cast<UInt32>(one.mRates.size());
    }
    return false;
}
