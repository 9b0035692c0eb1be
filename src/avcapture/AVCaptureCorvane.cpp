#include "avcapture/AVCaptureCorvane.h"

#include "avcapture/SampleConversion.h"
#include "avcapture/TapService.h"

#include <memory>

namespace kernel = platform::kernel;

int32_t AVCaptureCorvane::CreateWithCallback(AVCaptureCorvane** result, AVCaptureAudioCallback callback,
                                             void*& userData, AVCaptureDetails& details, const __CFArray* devices,
                                             const __CFArray* processes, unsigned int& flags, bool translated)
{
    std::unique_ptr<AVCaptureCorvane> tap(new AVCaptureCorvane(callback, userData, details, flags, translated));
    const int32_t error = tap->Setup(devices, processes);
    *result = error ? nullptr : tap.release();
    return error;
}

AVCaptureCorvane::AVCaptureCorvane(AVCaptureAudioCallback callback, void*& userData, AVCaptureDetails& details,
                                   unsigned int& flags, bool translated)
    : mFlags(flags), mTranslated(translated), mDetails(details), mCallback(callback), mUserData(userData)
{
    kernel::pthread_mutex_init(&mMutex, nullptr);
    kernel::pthread_cond_init(&mCondition, nullptr);
    mach_timebase_info(&mTimeBase);
}

AVCaptureCorvane::~AVCaptureCorvane()
{
    Pause();
    CloseConnection();  // before the regions go: the service writes there until then
    kernel::pthread_mutex_destroy(&mMutex);
    kernel::pthread_cond_destroy(&mCondition);
}

void AVCaptureCorvane::CloseConnection()
{
    if (mConnect != IO_OBJECT_NULL && mConnect != ~io_connect_t(0)) IOServiceClose(mConnect);
    mConnect = IO_OBJECT_NULL;
}

int32_t AVCaptureCorvane::Resume()
{
    if (mThread) return 0;
    MoveToWriter();
    const auto entry = [](void* tap) { return ConsumerThread(static_cast<AVCaptureCorvane*>(tap)); };
    const int error = kernel::pthread_create(&mThread, nullptr, entry, this, "tap consumer");
    if (error) mThread = 0;
    return error;
}

void AVCaptureCorvane::Pause()
{
    if (!mThread) return;
    kernel::pthread_mutex_lock(&mMutex);
    mStopRequested = true;
    kernel::pthread_mutex_unlock(&mMutex);
    kernel::pthread_cond_signal(&mCondition);
    kernel::pthread_join(mThread, nullptr);
    mThread = 0;
    mStopRequested = false;
    mReadLoop = 0;
    mReadFrame = 0;
}

int32_t AVCaptureCorvane::SetPlayThru(bool playThru)
{
    if (mExtensionVersion < 2) return 0;
    const uint64_t flag = playThru;
    return IOConnectCallScalarMethod(mConnect, avcapture::kSetPlayThru, &flag, 1, nullptr, nullptr);
}

unsigned int AVCaptureCorvane::GetOutputSampleSize() const
{
    return avcapture::OutputSampleBytes(mOutputType);
}
