// A tap as a source, over a scripted tap service.
#include "avcapture/TapFixture.h"
#include "capture/OSLAudio_SupportCapture.h"
#include "capture/Status.h"

namespace {

class SupportCapture : public TapServiceFixture {
protected:
    SupportCapture()
    {
        platform::machine::ServerSnapshot snapshot;
        snapshot.mConnected = true;
        snapshot.mOutputs = {{11, "slow", "Slow", 44100, {}}, {12, "fast", "Fast", 96000, {}}};
        snapshot.mDefaultOutput = 12;
        mMachine.mServer.Change(snapshot);
    }
    void Create()
    {
        AudioStreamBasicDescription desc{};
        ASSERT_EQ(mCapture->Create(nullptr, Array({CFSTR("slow")}).Get(), &desc), 0);
        EXPECT_EQ(desc.mSampleRate, 44100);
        EXPECT_EQ(desc.mBytesPerFrame, 8u);
        mCapture->SetRenderCallback(Take, this);
    }
    void Deliver(UInt32 frames) { mCapture->AVCaptureRender(mSamples, 8 * frames, frames, 123, {}); }
    static OSStatus Take(void* self, UInt32*, const AudioTimeStamp* time, UInt32, UInt32, AudioBufferList* list)
    {
        static_cast<SupportCapture*>(self)->mTime = *time;
        static_cast<SupportCapture*>(self)->mList = *list;
        return 0;
    }

    std::unique_ptr<OSLAudio_SupportCapture> mCapture = std::make_unique<OSLAudio_SupportCapture>();
    float mSamples[256] = {};
    AudioTimeStamp mTime{};
    AudioBufferList mList{};
};

TEST_F(SupportCapture, RunsAtTheRateOfTheFastestDevice)
{
    const auto rate = [](std::vector<CFTypeRef> uids) {
        return OSLAudio_SupportCapture::GetMaximimumSampleRateForDeviceUIDs(Array(std::move(uids)).Get());
    };
    EXPECT_EQ(rate({CFSTR("slow"), CFSTR("fast")}), 96000);
    EXPECT_EQ(rate({CFSTR("slow"), CFSTR("gone")}), 44100);
    EXPECT_EQ(rate({CFSTR("gone")}), 96000) << "the default output's";
    EXPECT_EQ(OSLAudio_SupportCapture::GetMaximimumSampleRateForDeviceUIDs(nullptr), 96000);
    mMachine.mServer.Change({});
    EXPECT_EQ(rate({}), 44100);
}

TEST_F(SupportCapture, SaysWhereItIsNotInitialized)
{
    Create();
    AudioStreamBasicDescription desc{};
    EXPECT_EQ(mCapture->Start(), capture::kNotInitialized);
    EXPECT_EQ(mCapture->GetAudioDesc(&desc), capture::kNotInitialized);
    EXPECT_EQ(mCapture->Uninitialize(), capture::kNotInitialized);
    EXPECT_EQ(mCapture->Initialize(), 0);
    EXPECT_EQ(mCapture->GetAudioDesc(&desc), 0);
    EXPECT_EQ(mCapture->Start(), 0);
    EXPECT_EQ(mCapture->Uninitialize(), 0);
    EXPECT_EQ(mService->mClients, 0);
}

TEST_F(SupportCapture, CountsFramesAndTiesTheFirstToItsArrival)
{
    Create();
    AudioTimeStamp in{}, out{};
    EXPECT_EQ(mCapture->TranslateTime(&in, &out), -1);
    Deliver(128);
    const uint64_t base = mTime.mHostTime;
    EXPECT_GT(base, 123u) << "arrival, not the session's time";
    EXPECT_EQ(mTime.mSampleTime, 0);
    EXPECT_EQ(mTime.mFlags, 3u);
    EXPECT_EQ(mList.mBuffers[0].mData, mSamples);
    EXPECT_EQ(mList.mBuffers[0].mDataByteSize, 1024u);
    EXPECT_EQ(mCapture->GetRateScalar(), 1.0);
    mCapture->SetRenderCallback(nullptr, nullptr);
    Deliver(64);  // nobody listens, and the count goes on
    mCapture->SetRenderCallback(Take, this);
    Deliver(128);
    EXPECT_EQ(mTime.mSampleTime, 192);
    in.mHostTime = base + 1'000'000'000;
    EXPECT_EQ(mCapture->TranslateTime(&in, &out), 0);
    EXPECT_EQ(out.mSampleTime, 44100);
    in.mHostTime = base + 11'000;  // 0.4851 frames
    mCapture->TranslateTime(&in, &out);
    EXPECT_EQ(out.mSampleTime, 0);
    in.mHostTime = base + 12'000;  // 0.5292 frames
    mCapture->TranslateTime(&in, &out);
    EXPECT_EQ(out.mSampleTime, 1);
}

TEST_F(SupportCapture, MutesWhatItTakesFromTheStartWhereItWasAskedTo)
{
    mCapture->SetMuted(true);
    EXPECT_TRUE(mCapture->IsMuted());
    Create();
    EXPECT_EQ(mService->mSteps.back(), "4 0");
    mCapture->SetMuted(false);
    EXPECT_EQ(mService->mSteps.back(), "4 1");
}

}  // namespace
