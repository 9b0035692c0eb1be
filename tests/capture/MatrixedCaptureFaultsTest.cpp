// The graph where memory runs out at any step of its making, and where threads meet.
#include "FakeSource.h"
#include "avcapture/TapFixture.h"
#include "capture/CVNMatrixedCapture.h"
#include "capture/Status.h"
#include "support/AllocationFaults.h"

#include <set>
#include <thread>

namespace {

using P = platform::machine::ChannelPosition;

class MatrixedCaptureFaults : public TapServiceFixture {
protected:
    MatrixedCaptureFaults()
    {
        platform::machine::ServerSnapshot snapshot;
        snapshot.mConnected = true;
        snapshot.mOutputs = {{11, "speakers", "Speakers", 44100, {P::FrontLeft, P::FrontRight}}};
        snapshot.mDefaultOutput = 11;
        snapshot.mInputs = {{21, "mic", "Mic", 48000, {P::Mono}}};
        mMachine.mServer.Change(snapshot);
    }

    OSStatus Build(CVNMatrixedCapture& capture)
    {
        if (const OSStatus error = capture.AddAudioSupportCapture(nullptr, nullptr)) return error;
        if (const OSStatus error = capture.AddInputDeviceCapture(mMic.Get(), 0)) return error;
        if (const OSStatus error = capture.Initialize()) return error;
        return capture.Resume();
    }

    cf::Ref<cf::String> mMic = cf::Ref<cf::String>::Share(CFSTR("mic"));
};

TEST_F(MatrixedCaptureFaults, EveryAllocationThatFailsIsToldAndLeavesNothingOpen)
{
    CVNMatrixedCapture capture;
    ASSERT_EQ(Build(capture), 0);
    capture.Pause();
    ASSERT_EQ(capture.Uninitialize(), 0);
    support::Faults faults;
    std::set<OSStatus> statuses;
    do {
        ++faults.mFailing;
        faults.mCalls = 0;
        support::sAllocationFaults = &faults;
        const OSStatus status = Build(capture);
        support::sAllocationFaults = nullptr;
        statuses.insert(status);
        EXPECT_EQ(status != 0, faults.mCalls > faults.mFailing) << faults.mFailing;
        capture.Pause();
        EXPECT_EQ(capture.Uninitialize(), 0);
        ASSERT_EQ(capture.GetInputCount(), 0u);
        EXPECT_EQ(mService->mClients, 0);
        EXPECT_EQ(mMachine.mServer.Deliver("mic", {}), 0u);
    } while (faults.mCalls > faults.mFailing);
    EXPECT_GT(faults.mFailing, 50);
    for (const OSStatus own : {capture::kNoMixer, capture::kNoMixBuffer, capture::kNoMixBufferData})
        EXPECT_TRUE(statuses.contains(own)) << own;
}

TEST_F(MatrixedCaptureFaults, SourcesPushWhileCyclesBeginAnewAndVolumesAndRateChange)
{
    CVNMatrixedCapture capture;
    std::vector<FakeSource*> sources;
    for (int input = 0; input < 2; ++input) {
        auto source = std::make_unique<FakeSource>();
        sources.push_back(source.get());
        ASSERT_EQ(capture.AddInput(std::move(source), 2), 0);
    }
    ASSERT_EQ(capture.Initialize(), 0);
    ASSERT_EQ(capture.Resume(), 0);
    std::vector<std::jthread> threads;
    for (FakeSource* const source : sources) {
        threads.emplace_back([source] {
            for (double time = 0; time < 400 * 256; time += 256) source->Push(time, 256);
        });
    }
    threads.emplace_back([&capture] {
        Block block(2, 256);
        UInt32 flags = 0;
        AudioTimeStamp time{};
        for (int cycle = 0; cycle < 400; ++cycle) {
            EXPECT_LE(capture.Render(&flags, &time, 0, 256, block.List()), 0);  // an error where the rate has changed
            if (cycle % 50 == 0) capture.AdjustReadTime(-1e6);  // far behind: the third time begins anew
        }
    });
    for (int change = 0; change < 100; ++change) {
        capture.SetMixerInputVolume(1, float(change) / 100);
        capture.GetInputStatus(1);
        capture.GetRenderCounts();
    }
    capture.UpdateOutputSampleRate(44100);
    EXPECT_EQ(capture.Resume(), 0);
    threads.clear();
    EXPECT_EQ(capture.Pause(), 0);
    EXPECT_EQ(capture.Uninitialize(), 0);
}

}  // namespace
