#include "utility/CAAudioValueRange.h"

#include <algorithm>

namespace {

// By preference, not by size.
constexpr Float64 kCommonRatesHz[] = {44100, 48000, 96000, 88200, 64000, 32000,
                                      24000, 22050, 16000, 12000, 11025, 8000};

bool AreDisjoint(const AudioValueRange& a, const AudioValueRange& b) noexcept
{
    return b.mMinimum > a.mMaximum || a.mMinimum > b.mMaximum;
}

}  // namespace

Float64 CAAudioValueRange::PickCommonSampleRate(const AudioValueRange& range) noexcept
{
    for (const Float64 rate : kCommonRatesHz)
        if (rate >= range.mMinimum && rate <= range.mMaximum) return rate;
    return range.mMaximum;
}

bool CAAudioValueRange::Intersection(const AudioValueRange& a, const AudioValueRange& b, AudioValueRange& out) noexcept
{
    const bool disjoint = AreDisjoint(a, b);
    out = disjoint ? AudioValueRange{0, 0}
                   : AudioValueRange{std::max(a.mMinimum, b.mMinimum), std::min(a.mMaximum, b.mMaximum)};
    return !disjoint;
}

bool CAAudioValueRange::Union(const AudioValueRange& a, const AudioValueRange& b, AudioValueRange& out) noexcept
{
    const bool disjoint = AreDisjoint(a, b);
    out = disjoint ? AudioValueRange{0, 0}
                   : AudioValueRange{std::min(a.mMinimum, b.mMinimum), std::max(a.mMaximum, b.mMaximum)};
    return disjoint;
}

bool CAAudioValueRange::LessThan(const AudioValueRange& a, const AudioValueRange& b) noexcept
{
    return a.mMinimum < b.mMinimum;
}

void CAAudioValueRange_ComputeIntersection(const AudioValueRange& range, const CAAudioValueRangeList& list,
                                           CAAudioValueRangeList& out)
{
    out.clear();
    CAAudioValueRange common;
    for (const CAAudioValueRange& entry : list)
        if (CAAudioValueRange::Intersection(range, entry, common)) out.push_back(common);
}

void CAAudioValueRange_ComputeUnion(const AudioValueRange& range, const CAAudioValueRangeList& list,
                                    CAAudioValueRangeList& out)
{
    out.clear();
    auto entry = list.begin();
    while (entry != list.end() && entry->mMaximum < range.mMinimum) out.push_back(*entry++);
    CAAudioValueRange merged = range;
    while (entry != list.end() && !AreDisjoint(range, *entry)) CAAudioValueRange::Union(merged, *entry++, merged);
    out.push_back(merged);
    out.insert(out.end(), entry, list.end());
}
