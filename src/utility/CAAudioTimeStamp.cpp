#include "utility/CAAudioTimeStamp.h"

namespace {

template <typename Compare>
bool CompareByCommonField(const AudioTimeStamp& a, const AudioTimeStamp& b, Compare compare) noexcept
{
    const UInt32 common = a.mFlags & b.mFlags;
    if (common & kAudioTimeStampSampleTimeValid) return compare(a.mSampleTime, b.mSampleTime);
    if (common & kAudioTimeStampHostTimeValid) return compare(a.mHostTime, b.mHostTime);
    if (common & kAudioTimeStampWordClockTimeValid) return compare(a.mWordClockTime, b.mWordClockTime);
    return false;
}

}  // namespace

bool operator==(const AudioTimeStamp& a, const AudioTimeStamp& b) noexcept
{
    return CompareByCommonField(a, b, [](auto left, auto right) { return left == right; });
}

bool operator<(const AudioTimeStamp& a, const AudioTimeStamp& b) noexcept
{
    return CompareByCommonField(a, b, [](auto left, auto right) { return left < right; });
}
