#include "avcapture/AVCapture.h"

#include "TapFixture.h"

#include <algorithm>
#include <thread>

namespace {

using Steps = std::vector<std::string>;

class Session : public TapServiceFixture {
protected:
    int32_t Create(AVCaptureAudioCallback callback = Count)
    {
        AVCapture* session = reinterpret_cast<AVCapture*>(this);
        const int32_t error =
            AVCapture::CreateAudio(&session, callback, this, FloatFormat(), Array({CFSTR("speakers")}).Get(), nullptr,
                                   kAVCaptureLowLatencyAudio);
        mSession.reset(session);
        return error;
    }

    std::unique_ptr<AVCapture> mSession;
    std::atomic<int> mChunks{0};

private:
    static int Count(void* self, const void*, uint32_t, uint32_t, uint64_t, AudioStreamBasicDescription)
    {
        ++static_cast<Session*>(self)->mChunks;
        return 0;
    }
};

TEST_F(Session, AvailabilityTellsTheServicesVersionWithoutOpeningIt)
{
    EXPECT_EQ(AVCapture::AudioAvailable(), 3);
    for (const auto& version : {cf::Ref<cf::Object>(), Number(1), cf::Ref<cf::Object>::Share(CFSTR("3"))}) {
        mService->mVersion = version;
        EXPECT_EQ(AVCapture::AudioAvailable(), 1);
    }
    EXPECT_EQ(mService->mSteps, Steps{});
    platform::kernel::WithdrawServices();
    EXPECT_EQ(AVCapture::AudioAvailable(), 0);
}

TEST_F(Session, CreationNeedsACallbackAndPassesTheTapsErrorOn)
{
    EXPECT_EQ(Create(nullptr), kAVCaptureBadState);
    EXPECT_EQ(mSession, nullptr);
    platform::kernel::WithdrawServices();
    EXPECT_EQ(Create(), kAVCaptureNoExtension);
    EXPECT_EQ(mSession, nullptr);
}

TEST_F(Session, LifeGoesFromPausedThroughResumedToStoppedAndNoFurther)
{
    ASSERT_EQ(Create(), 0);
    EXPECT_TRUE(mSession->Paused());
    mSession->Pause();
    EXPECT_EQ(mSession->UpdatePlayThru(true), 0);
    EXPECT_EQ(mService->mSteps.back(), "4 1");

    EXPECT_EQ(mSession->Resume(), 0);
    EXPECT_EQ(mSession->Resume(), 0);
    EXPECT_FALSE(mSession->Paused());
    mService->WriteBlocks(2);
    while (mChunks < 1) std::this_thread::yield();
    mSession->Pause();
    EXPECT_TRUE(mSession->Paused());
    mService->WriteBlocks(4);
    EXPECT_EQ(mChunks, 1);
    EXPECT_EQ(mSession->GetDetails().audioFrames, 256u);

    EXPECT_EQ(mSession->Resume(), 0);
    EXPECT_EQ(mSession->Stop(), 0);
    EXPECT_EQ(mService->mSteps.back(), "close");
    EXPECT_EQ(mSession->Stop(), kAVCaptureBadState);
    EXPECT_EQ(mSession->UpdatePlayThru(true), 0);
    EXPECT_EQ(mSession->Resume(), 0);
    mSession.reset();
    EXPECT_EQ(std::ranges::count(mService->mSteps, "close"), 1);
}

// The fixture sees to it that the tap has gone.
TEST_F(Session, ADeletedSessionHasGivenUpItsTap)
{
    ASSERT_EQ(Create(), 0);
    ASSERT_EQ(mSession->Resume(), 0);
}

}  // namespace
