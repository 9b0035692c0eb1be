#include "avcapture/AVCapture.h"

#include "avcapture/AVCaptureCorvane.h"
#include "avcapture/TapService.h"
#include "platform/kernel/HostTime.h"
#include "platform/kernel/Threads.h"

#include <iterator>
#include <new>

namespace kernel = platform::kernel;

namespace {

constexpr uint64_t kNanosPerMillisecond = 1'000'000;

const mach_timebase_info_data_t& TimeBase()
{
    static const mach_timebase_info_data_t sTimeBase = [] {
        mach_timebase_info_data_t info{};
        mach_timebase_info(&info);
        return info;
    }();
    return sTimeBase;
}

int32_t HostTicks(uint64_t milliseconds)
{
    return int32_t(milliseconds * kNanosPerMillisecond * TimeBase().denom / TimeBase().numer);
}

kernel::thread_act_t CallingThread()
{
    return kernel::pthread_mach_thread_np(::pthread_self());
}

}  // namespace

int32_t AVCapture::CreateAudio(AVCapture** result, AVCaptureAudioCallback callback, void* userData,
                               const AudioStreamBasicDescription& format, const __CFArray* devices,
                               const __CFArray* processes, unsigned int flags)
{
    *result = nullptr;
    if (!callback) return kAVCaptureBadState;
    try {
        std::unique_ptr<AVCapture> session(new AVCapture(flags));
        session->mDetails.hasAudio = true;
        if (const int32_t error = session->AudioSetup(callback, userData, format, devices, processes)) return error;
        *result = session.release();
        return 0;
    } catch (const std::bad_alloc&) {  // results leave this room, exceptions do not
        return kAVCaptureNoMemory;
    }
}

AVCapture::AVCapture(unsigned int flags) : mFlags(flags) {}

AVCapture::~AVCapture()
{
    if (mRunning) Stop();
}

int32_t AVCapture::AudioSetup(AVCaptureAudioCallback callback, void* userData,
                              const AudioStreamBasicDescription& format, const __CFArray* devices,
                              const __CFArray* processes)
{
    mDetails.audioFormat = format;
    mUserData = userData;
    AVCaptureCorvane* tap = nullptr;
    const int32_t error =
        AVCaptureCorvane::CreateWithCallback(&tap, callback, mUserData, mDetails, devices, processes, mFlags, false);
    mTap.reset(tap);
    return error;
}

int AVCapture::AudioAvailable()
try {
    const avcapture::IOObject service = avcapture::FindTapService();
    if (!service) return 0;
    return avcapture::ReadTapVersion(service) >= 2 ? 3 : 1;
} catch (const std::bad_alloc&) {
    return 0;  // one that cannot be looked for cannot be opened
}

int32_t AVCapture::Resume()
{
    if (!mRunning || !mPaused) return 0;
    const int32_t error = mTap ? mTap->Resume() : 0;
    mPaused = error != 0;
    return error;
}

void AVCapture::Pause()
{
    if (!mRunning || mPaused) return;
    mPaused = true;
    if (mTap) mTap->Pause();
}

int32_t AVCapture::Stop()
{
    if (!mRunning) return kAVCaptureBadState;
    if (mTap) mTap->Pause();  // the callback may ask for its chunk's frame until then
    mTap.reset();
    mRunning = false;
    return 0;
}

int32_t AVCapture::UpdatePlayThru(bool playThru)
{
    return mRunning && mDetails.hasAudio && mTap ? mTap->SetPlayThru(playThru) : 0;
}

AVCaptureLosses AVCapture::GetLosses() const
{
    return mTap ? mTap->GetLosses() : AVCaptureLosses{};
}

int32_t AVCapture::UpdateTargets(const __CFArray* devices, const __CFArray* processes)
{
    return mTap ? mTap->SetTargets(devices, processes) : kAVCaptureBadState;
}

uint64_t AVCapture::MomentOfFrame0() const
{
    return mTap ? mTap->MomentOfFrame0() : 0;
}

uint64_t AVCapture::ChunkFrame() const
{
    return mTap ? mTap->ChunkFrame() : 0;
}

size_t AVCapture::ReadLog(uint64_t& next, std::span<tap::wire::LogEntry> entries) const
{
    return mTap ? mTap->ReadLog(next, entries) : 0;
}

// The results of the three below are dropped: words and counts are right by construction, and a wish that is
// not granted leaves a thread that is late now and then, which beats none.

void AVCapture::PriorityUpgrade()
{
    constexpr int32_t kRoundRobin[] = {63, 10};  // base priority, quantum
    kernel::thread_policy(CallingThread(), kernel::POLICY_RR, kRoundRobin, std::size(kRoundRobin), true);
}

void AVCapture::PriorityUpgradeRT()
{
    const int32_t constraints[] = {HostTicks(50), HostTicks(25), HostTicks(50), 1};
    kernel::thread_policy_set(CallingThread(), kernel::THREAD_TIME_CONSTRAINT_POLICY, constraints,
                              std::size(constraints));
}

void AVCapture::PriorityDowngrade()
{
    kernel::thread_policy_set(CallingThread(), kernel::THREAD_STANDARD_POLICY, nullptr, 0);
}

uint64_t AVCapture::Timestamp()
{
    return AbsoluteToNanoseconds(UpTime()) / platform::kernel::kNanosPerMicrosecond;
}
