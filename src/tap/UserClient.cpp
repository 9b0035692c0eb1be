#include "tap/UserClient.h"

#include "platform/machine/Machine.h"

#include <cstring>
#include <limits>
#include <new>

namespace tap {

using platform::kernel::MethodCall;

namespace {

struct Region {
    uint64_t mBytes;
    uintptr_t mAddress;
};

/// A region as three scalars name it. @return false where it is too small, nowhere, misaligned or wraps around
bool ReadRegion(const uint64_t* scalars, uint64_t leastBytes, Region& region)
{
    constexpr uint64_t kHalf = std::numeric_limits<uint32_t>::max();
    if (scalars[1] > kHalf || scalars[2] > kHalf) return false;
    region = {scalars[0], uintptr_t(scalars[1] << 32 | scalars[2])};
    return region.mBytes >= leastBytes && region.mAddress != 0 && region.mAddress % alignof(uint64_t) == 0 &&
           region.mBytes <= std::numeric_limits<uintptr_t>::max() - region.mAddress;
}

bool Overlap(const Region& a, const Region& b)
{
    return a.mAddress < b.mAddress + b.mBytes && b.mAddress < a.mAddress + a.mBytes;
}

}  // namespace

kern_return_t UserClient::SetProperties(CFTypeRef properties)
{
    if (mConfigured) return mTap ? Retarget(properties) : kIOReturnError;
    Configuration configuration;
    if (const kern_return_t status = configuration.Parse(properties)) return status;
    mConfiguration = std::move(configuration);
    mConfigured = true;
    return kIOReturnSuccess;
}

kern_return_t UserClient::Retarget(CFTypeRef properties)
try {
    Configuration targets;
    if (const kern_return_t status = targets.ParseTargets(properties)) return status;
    return mTap->SetTargets(targets) ? kIOReturnSuccess : kIOReturnNoMemory;
} catch (const std::bad_alloc&) {
    return kIOReturnNoMemory;
}

kern_return_t UserClient::Call(MethodCall& call)
{
    switch (call.mSelector) {
        case kSelectorSizes:
            return AnswerSizes(call);
        case kSelectorSymbols:
            return AnswerSymbols(call);
        case kSelectorPlayThrough:
            return SetPlayThrough(call);
        case kSelectorRegions:
            return TakeRegions(call);
        default:
            return kIOReturnUnsupported;
    }
}

kern_return_t UserClient::AnswerSizes(MethodCall& call) const
{
    if (!mConfigured) return kIOReturnNotOpen;
    if (call.mScalarsInCount != 0 || call.mScalarsOutCount < 2 || !call.mScalarsOut) return kIOReturnBadArgument;
    call.mScalarsOut[0] = RingWriter::AudioBytes(mConfiguration.mRate, mConfiguration.mChannels);
    call.mScalarsOut[1] = kStatusBytes;
    call.mScalarsOutCount = 2;
    return kIOReturnSuccess;
}

/// Nothing has to be looked up for this service: the size of the list is 0.
kern_return_t UserClient::AnswerSymbols(MethodCall& call) const
{
    constexpr uint32_t kListBytes = 0;
    if (!call.mStructureOut || call.mStructureOutBytes < sizeof kListBytes) return kIOReturnBadArgument;
    std::memcpy(call.mStructureOut, &kListBytes, sizeof kListBytes);
    call.mStructureOutBytes = sizeof kListBytes;
    return kIOReturnSuccess;
}

kern_return_t UserClient::SetPlayThrough(const MethodCall& call)
{
    if (call.mScalarsInCount != 1 || call.mScalarsIn[0] > 1) return kIOReturnBadArgument;
    mPlayThrough = call.mScalarsIn[0] == 1;
    if (mTap) mTap->SetPlayThrough(mPlayThrough);
    return kIOReturnSuccess;
}

kern_return_t UserClient::TakeRegions(const MethodCall& call)
{
    if (!mConfigured) return kIOReturnNotOpen;
    if (mTap) return kIOReturnError;
    Region audio, status;
    const uint64_t audioBytes = RingWriter::AudioBytes(mConfiguration.mRate, mConfiguration.mChannels);
    if (call.mScalarsInCount != 6 || !ReadRegion(call.mScalarsIn, audioBytes, audio) ||
        !ReadRegion(call.mScalarsIn + 3, kStatusBytes, status) || Overlap(audio, status))
        return kIOReturnBadArgument;
    try {
        auto tap = std::make_unique<Tap>(platform::machine::Machine::Current().GetAudioServer(), mConfiguration,
                                         reinterpret_cast<void*>(audio.mAddress),
                                         reinterpret_cast<void*>(status.mAddress), mPlayThrough);
        if (!tap->Start()) return kIOReturnNoMemory;
        mTap = std::move(tap);
    } catch (const std::bad_alloc&) {
        return kIOReturnNoMemory;
    }
    return kIOReturnSuccess;
}

}  // namespace tap
