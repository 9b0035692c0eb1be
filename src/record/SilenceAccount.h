// SilenceAccount: which frames of a recording are silence that the recorder wrote, from which source and why.
// Why: losses are noticed in several places, some of them seconds after the frames were written and some of them twice.
// Here each frame of a source counts once, and a cause that all of them share (this process stood still, the server was
// away) outranks what each place saw of it.
// Start at Add; frames are those of the grid until Finish.
#pragma once

#include "record/RecordingState.h"
#include "record/Strand.h"

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace record {

/// One thread at a time, all of it.
class SilenceAccount {
public:
    explicit SilenceAccount(size_t sources) : mSources(sources) {}

    /// What lies before this frame is not of the recording; what was added of it is forgotten.
    void SetStart(uint64_t frame);

    /// This process did not run in `span`. Before the silences that it caused are added.
    void AddStall(const FrameSpan& span) { mStalls.push_back(span); }
    /// The server went, or came back, at `frame`.
    void NoteServer(bool isThere, uint64_t frame);

    /// A source's application ended or stopped playing, or plays again, at `frame`.
    void NotePresence(size_t source, bool plays, uint64_t frame);

    /// A source was silent. Frames that are in the account already are passed over; a span is divided where the server
    /// or the application went or came back.
    void Add(size_t source, SilenceCause cause, const FrameSpan& span);

    /// Frames up to `end` in which the source was silent for that cause.
    uint64_t FramesOf(size_t source, SilenceCause cause, uint64_t end) const;
    /// Frames up to `end` in which some source's sound was lost.
    uint64_t LostFrames(uint64_t end) const;

    /// The silences up to `end`, in frames of the recording, in the order of their starts. @param cut  there were more
    std::vector<Silence> List(uint64_t end, bool& cut) const;

private:
    struct Entry {
        uint64_t mEnd;
        SilenceCause mCause;
    };
    struct Source {
        std::map<uint64_t, Entry> mEntries;  // by start; they do not overlap
        std::array<uint64_t, kSilenceCauses.size()> mFrames{};
        std::vector<FrameSpan> mAbsences;  // the last one has no end yet while it lasts
    };

    SilenceCause Judge(const Source& source, SilenceCause cause, const FrameSpan& span) const;
    static void NoteOutage(std::vector<FrameSpan>& outages, bool ends, uint64_t frame);
    static bool Overlaps(const std::vector<FrameSpan>& spans, const FrameSpan& span);
    bool IsStall(const FrameSpan& span) const;
    void AddFree(Source& source, SilenceCause cause, const FrameSpan& span);
    static void Insert(Source& source, SilenceCause cause, const FrameSpan& span);

    uint64_t mStart = 0;
    std::vector<Source> mSources;
    std::vector<FrameSpan> mStalls;
    std::vector<FrameSpan> mAways;  // of the server; the last one has no end yet while it is away
};

}  // namespace record
