#include "record/SilenceAccount.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace record {

namespace {

constexpr size_t kMostKept = 1'000'000;  // entries of a source
constexpr uint64_t kForEver = std::numeric_limits<uint64_t>::max() / 2;

}  // namespace

void SilenceAccount::SetStart(uint64_t frame)
{
    mStart = frame;
    for (Source& source : mSources) {
        const auto before = std::exchange(source.mEntries, {});
        source.mFrames = {};
        for (const auto& [start, entry] : before)
            if (const uint64_t from = std::max(start, mStart); from < entry.mEnd)
                Insert(source, entry.mCause, {from, entry.mEnd - from});
    }
}

void SilenceAccount::NoteOutage(std::vector<FrameSpan>& outages, bool ends, uint64_t frame)
{
    const bool lasts = !outages.empty() && outages.back().mFrames == kForEver;
    if (ends != lasts) return;
    if (ends)
        outages.back().mFrames = std::max(frame, outages.back().mStart) - outages.back().mStart;
    else
        outages.push_back({frame, kForEver});
}

void SilenceAccount::NoteServer(bool isThere, uint64_t frame)
{
    NoteOutage(mAways, isThere, frame);
}

void SilenceAccount::NotePresence(size_t source, bool plays, uint64_t frame)
{
    NoteOutage(mSources[source].mAbsences, plays, frame);
}

bool SilenceAccount::Overlaps(const std::vector<FrameSpan>& spans, const FrameSpan& span)
{
    return std::any_of(spans.rbegin(), spans.rend(),
                       [&](const FrameSpan& other) { return other.mStart < span.End() && span.mStart < other.End(); });
}

/// Whether this process stood still for a good part of the span: a stall is noticed later than it begins, and one
/// within a silence that was there anyway did not cause it.
bool SilenceAccount::IsStall(const FrameSpan& span) const
{
    uint64_t frames = 0;
    for (const FrameSpan& stall : mStalls) {
        const uint64_t from = std::max(stall.mStart, span.mStart), to = std::min(stall.End(), span.End());
        if (from < to) frames += to - from;
    }
    return frames > 0 && frames >= span.mFrames / 4;
}

SilenceCause SilenceAccount::Judge(const Source& source, SilenceCause cause, const FrameSpan& span) const
{
    if (Overlaps(mAways, span)) return SilenceCause::ServerAway;
    if (Overlaps(source.mAbsences, span)) return SilenceCause::NotPlaying;
    return IsStall(span) ? SilenceCause::Stopped : cause;
}

void SilenceAccount::Add(size_t index, SilenceCause cause, const FrameSpan& span)
{
    Source& source = mSources[index];
    std::vector<uint64_t> edges{span.End()};
    for (const auto* outages : {&mAways, &source.mAbsences})
        for (const FrameSpan& outage : *outages)
            for (const uint64_t edge : {outage.mStart, outage.End()})
                if (edge > span.mStart && edge < span.End()) edges.push_back(edge);
    std::ranges::sort(edges);
    uint64_t at = span.mStart;
    for (const uint64_t edge : edges) {
        if (edge > at) AddFree(source, Judge(source, cause, {at, edge - at}), {at, edge - at});
        at = std::max(at, edge);
    }
}

/// Adds the frames of the span that are not in the account.
void SilenceAccount::AddFree(Source& source, SilenceCause cause, const FrameSpan& span)
{
    const uint64_t end = span.End();
    uint64_t at = std::max(span.mStart, mStart);
    auto& entries = source.mEntries;
    while (at < end) {
        auto next = entries.upper_bound(at);
        if (next != entries.begin()) {
            const uint64_t known = std::prev(next)->second.mEnd;
            if (known > at) {
                at = known;
                continue;
            }
        }
        const uint64_t free = next == entries.end() ? end : std::min(end, next->first);
        Insert(source, cause, {at, free - at});
        at = free;
    }
}

void SilenceAccount::Insert(Source& source, SilenceCause cause, const FrameSpan& span)
{
    source.mFrames[size_t(cause)] += span.mFrames;
    auto& entries = source.mEntries;
    auto next = entries.lower_bound(span.mStart);
    auto place = entries.end();
    if (next != entries.begin()) {
        const auto before = std::prev(next);
        if (before->second.mEnd == span.mStart && before->second.mCause == cause) place = before;
    }
    // A silence a second for eleven days; what comes then is only counted.
    if (place == entries.end() && entries.size() >= kMostKept) return;
    if (place == entries.end()) place = entries.emplace_hint(next, span.mStart, Entry{span.mStart, cause});
    place->second.mEnd = span.End();
    if (next != entries.end() && next->first == span.End() && next->second.mCause == cause) {
        place->second.mEnd = next->second.mEnd;
        entries.erase(next);
    }
}

uint64_t SilenceAccount::FramesOf(size_t source, SilenceCause cause, uint64_t end) const
{
    uint64_t frames = mSources[source].mFrames[size_t(cause)];
    const auto& entries = mSources[source].mEntries;
    for (auto entry = entries.rbegin(); entry != entries.rend() && entry->second.mEnd > end; ++entry)
        if (entry->second.mCause == cause) frames -= entry->second.mEnd - std::max(entry->first, end);
    return frames;
}

uint64_t SilenceAccount::LostFrames(uint64_t end) const
{
    std::vector<FrameSpan> lost;
    for (const Source& source : mSources)
        for (const auto& [start, entry] : source.mEntries)
            if (IsLoss(entry.mCause) && start < end) lost.push_back({start, std::min(entry.mEnd, end) - start});
    std::ranges::sort(lost, {}, &FrameSpan::mStart);
    uint64_t frames = 0, until = 0;
    for (const FrameSpan& span : lost) {
        const uint64_t from = std::max(span.mStart, until);
        if (span.End() > from) frames += span.End() - from;
        until = std::max(until, span.End());
    }
    return frames;
}

std::vector<Silence> SilenceAccount::List(uint64_t end, bool& cut) const
{
    std::vector<Silence> list;
    for (size_t i = 0; i < mSources.size(); ++i)
        for (const auto& [start, entry] : mSources[i].mEntries)
            if (start < end) list.push_back({i, entry.mCause, start - mStart, std::min(entry.mEnd, end) - start});
    std::ranges::stable_sort(list, {}, &Silence::mStart);
    cut = list.size() > kMostSilences;
    if (cut) list.resize(kMostSilences);
    return list;
}

}  // namespace record
