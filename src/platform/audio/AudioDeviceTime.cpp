// The timelines of devices that are open for input, as their clients ask for them.
#include "platform/audio/AudioHardware.h"
#include "platform/audio/DeviceClock.h"
#include "platform/kernel/HostTime.h"

#include <cmath>

using platform::audio::ClockReading;
using platform::audio::ReadDeviceClock;

namespace {

double SampleTimeAt(const ClockReading& reading, uint64_t hostNanos)
{
    return reading.mSampleTime + double(int64_t(hostNanos - reading.mHostNanos)) * reading.mFramesANano;
}

uint64_t HostTimeAt(const ClockReading& reading, double sampleTime)
{
    return reading.mHostNanos + uint64_t(std::llround((sampleTime - reading.mSampleTime) / reading.mFramesANano));
}

}  // namespace

OSStatus AudioDeviceGetCurrentTime(AudioDeviceID device, AudioTimeStamp* time)
{
    const auto reading = ReadDeviceClock(device);
    if (!reading) return kAudioHardwareNotRunningError;
    *time = {};
    time->mHostTime = mach_absolute_time();
    time->mSampleTime = SampleTimeAt(*reading, time->mHostTime);
    time->mRateScalar = reading->mRateScalar;
    time->mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid | kAudioTimeStampRateScalarValid;
    return kAudioHardwareNoError;
}

OSStatus AudioDeviceTranslateTime(AudioDeviceID device, const AudioTimeStamp* in, AudioTimeStamp* out)
{
    const bool hasHost = in->mFlags & kAudioTimeStampHostTimeValid;
    if (!hasHost && !(in->mFlags & kAudioTimeStampSampleTimeValid)) return kAudioHardwareIllegalOperationError;
    const auto reading = ReadDeviceClock(device);
    if (!reading) return kAudioHardwareNotRunningError;
    if (out->mFlags & kAudioTimeStampSampleTimeValid)
        out->mSampleTime = hasHost ? std::round(SampleTimeAt(*reading, in->mHostTime)) : in->mSampleTime;
    if (out->mFlags & kAudioTimeStampHostTimeValid)
        out->mHostTime = hasHost ? in->mHostTime : HostTimeAt(*reading, in->mSampleTime);
    if (out->mFlags & kAudioTimeStampRateScalarValid) out->mRateScalar = reading->mRateScalar;
    return kAudioHardwareNoError;
}
