// CAAudioValueRange: ranges of sample rates, bounds included, and how they combine.
#pragma once

#include "platform/audio/CoreAudioTypes.h"

#include <vector>

class CAAudioValueRange : public AudioValueRange {
public:
    CAAudioValueRange() noexcept : AudioValueRange{0, 0} {}
    CAAudioValueRange(Float64 minimum, Float64 maximum) noexcept : AudioValueRange{minimum, maximum} {}
    CAAudioValueRange(const AudioValueRange& range) noexcept : AudioValueRange(range) {}

    /// The rate that most people would choose among those in the range, or its upper bound.
    static Float64 PickCommonSampleRate(const AudioValueRange& range) noexcept;

    /// The part that both have. @return true, or false with `out` 0, 0 where they have none
    static bool Intersection(const AudioValueRange& a, const AudioValueRange& b, AudioValueRange& out) noexcept;

    /// The one range that covers both, where they meet. The result is of the opposite sense to Intersection's:
    /// @return false, or true with `out` 0, 0 where they do not meet
    static bool Union(const AudioValueRange& a, const AudioValueRange& b, AudioValueRange& out) noexcept;

    /// By minimum: the order that CAAudioValueRange_ComputeUnion takes.
    static bool LessThan(const AudioValueRange& a, const AudioValueRange& b) noexcept;
};

using CAAudioValueRangeList = std::vector<CAAudioValueRange>;

/// The parts of `range` that each entry of `list` has, in the list's order.
/// @param out  cleared first; not the list itself, here and below
void CAAudioValueRange_ComputeIntersection(const AudioValueRange& range, const CAAudioValueRangeList& list,
                                           CAAudioValueRangeList& out);

/// `list`, in ascending order, with `range` put in its place and merged with what it meets.
void CAAudioValueRange_ComputeUnion(const AudioValueRange& range, const CAAudioValueRangeList& list,
                                    CAAudioValueRangeList& out);
