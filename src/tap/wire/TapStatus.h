// TapStatus: the numbers that a tap's service and its client share: offsets of the status region and the tap's log.
// Why: both ends include this header, so that no offset is written twice. docs/formats/tap-status.md describes every
// byte.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tap::wire {

// Offsets in the status region. Those up to kOutputFrames are what any service has; the others are this service's own.
constexpr size_t kLegacyOutputFrames = 0, kChannelCount = 4, kNanosPerFrame = 8, kLoopFrames = 20, kNanosPerLoop = 24,
                 kBlockFramesField = 36, kNanosPerBlock = 40, kTailFrame = 68, kPosition = 72, kOutputFramesField = 96;

constexpr size_t kCounters = 80, kMissedFrames = 100, kCounterCount = 104;
constexpr uint32_t kCountersKept = 5;

/// kTimelineMark at kTimeline: the fields below it are there.
constexpr size_t kTimeline = 108;
constexpr uint32_t kTimelineMark = 0x746d6c31;
constexpr size_t kMomentOfFrame0 = 112;  // u64: host time of the sound that frame 0 stands for
constexpr size_t kLogCount = 120;        // u64: entries written so far
constexpr size_t kLog = 128;             // the entries, entry n at kLog + (n % kLogEntries) * kLogEntryBytes

/// What an entry of the log says of frame `mFrame` on. Frames are counted from the first of pass 1.
enum class LogKind : uint32_t {
    None = 0,
    FallsSilent = 1,          // the lane has nothing to give from here on
    SoundsAfterRest = 2,      // it has again; the server let the capture rest before
    SoundsAfterMissing = 3,   // it has again; the server went on without delivering
    SoundsAfterLateness = 4,  // it has again; the sound went on, and came too late
    Stalled = 5,              // the service did not run while mFrames from here on became due
};

struct LogEntry {
    uint64_t mFrame = 0;
    uint64_t mFrames = 0;  // of Stalled; else 0
    LogKind mKind = LogKind::None;
    uint32_t mLane = 0;  // which device of the tap, counted in the order in which the service came to know them

    bool operator==(const LogEntry&) const = default;
};

constexpr size_t kLogEntries = 256;
constexpr size_t kLogEntryBytes = 24;
constexpr size_t kStatusBytes = kLog + kLogEntries * kLogEntryBytes;

}  // namespace tap::wire
