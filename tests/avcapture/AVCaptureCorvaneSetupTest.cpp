#include "TapFixture.h"
#include "support/FolderTree.h"

#include <algorithm>

using support::FakeMemory;
using support::Faults;
using support::ScriptedTapService;

namespace {

using platform::machine::ChannelPosition;
using Steps = std::vector<std::string>;

class Setup : public TapFixture {
protected:
    Setup()
    {
        using enum ChannelPosition;
        auto& outputs = mMachine.mServer.mSnapshot;
        outputs.mOutputs = {{7, "speakers", "Speakers", 48000, {FrontLeft, FrontRight}},
                            {8, "mixer", "Mixer", 48000, {Auxiliary0, Auxiliary0, FrontLeft, FrontRight}}};
        outputs.mDefaultOutput = 7;
    }

    template <class Word>
    void Refuses(Word support::StatusWords::*field, const std::vector<Word>& values)
    {
        for (const Word value : values) {
            mService->mStatus = {};
            mService->mStatus.*field = value;
            EXPECT_EQ(Create(), kIOReturnError) << value;
            EXPECT_EQ(mService->mSteps.back(), "close");
        }
    }
    CFTypeRef Property(const char* key) const { return CFDictionaryGetValue(mService->mProperties.Get(), CFSTR(key)); }
    std::string Described(const char* key) const
    {
        const CFTypeRef value = Property(key);
        return value ? cf::ToStdString(cf::Ref<cf::String>::Adopt(CFCopyDescription(value)).Get()) : "none";
    }
    void ExpectProperty(const char* key, const cf::Ref<cf::Array>& wanted) const
    {
        ASSERT_NE(Property(key), nullptr) << key;
        EXPECT_TRUE(CFEqual(Property(key), wanted.Get())) << key << ": " << Described(key);
    }
};

TEST_F(Setup, AServiceOfTheSecondVersionIsAskedForSymbolsAndGivenAttributedDevices)
{
    mDetails.audioFormat = FloatFormat(44100.5);
    const auto process = Number(-4711);
    ASSERT_EQ(Create(Array({CFSTR("mixer"), CFSTR("unplugged")}), Array({process.Get()})), 0);
    EXPECT_EQ(mService->mSteps, (Steps{"open", "2 4184", "properties", "0", "5"}));
    EXPECT_EQ(CFDictionaryGetCount(mService->mProperties.Get()), 4);
    ExpectProperty("IOAudioSampleRate", Array({Number(44100).Get(), Number(int32_t(2147483648u)).Get()}));
    EXPECT_TRUE(CFEqual(Property("IOAudioNumChannels"), Number(2).Get()));
    const auto mixer = Array({CFSTR("mixer"), Number(2).Get(), Number(3).Get()});
    ExpectProperty("IOAudioDevices", Array({mixer.Get(), CFSTR("unplugged")}));
    ExpectProperty("IOAudioProcesses", Array({process.Get()}));

    EXPECT_EQ(mTap->SetPlayThru(true), 0);
    EXPECT_EQ(mTap->SetPlayThru(false), 0);
    mTap.reset();
    EXPECT_EQ(Steps(mService->mSteps.end() - 3, mService->mSteps.end()), (Steps{"4 1", "4 0", "close"}));
}

TEST_F(Setup, AServiceOfTheFirstVersionGetsPlainDevicesAndAFixedPointRateAndNoFurtherCalls)
{
    mDetails.audioFormat = FloatFormat(44100.5, 1);
    for (const auto& version :
         {cf::Ref<cf::Object>(), Number(0), Number(1), Number(-3), cf::Ref<cf::Object>::Share(CFSTR("2"))}) {
        mService = ScriptedTapService::Publish();
        mService->mVersion = version;
        mService->mStatus.mOutputFrames = 0;  // not read
        ASSERT_EQ(Create(Array({CFSTR("mixer")}), Array({})), 0);
        EXPECT_EQ(mTap->SetPlayThru(true), 0);
        EXPECT_EQ(mService->mSteps, (Steps{"open", "properties", "0", "5"}));
        EXPECT_EQ(CFDictionaryGetCount(mService->mProperties.Get()), 3);
        EXPECT_TRUE(CFEqual(Property("IOAudioSampleRate"), Number(int32_t(44100u << 16 | 0x8000)).Get()));
        EXPECT_TRUE(CFEqual(Property("IOAudioNumChannels"), Number(1).Get()));
        ExpectProperty("IOAudioDevices", Array({CFSTR("mixer")}));
        mTap.reset();
    }
}

TEST_F(Setup, WithoutAListTheTwoDefaultOutputsAreTappedOnce)
{
    ASSERT_EQ(Create({}), 0);
    ExpectProperty("IOAudioDevices", Array({Array({CFSTR("speakers"), Number(0).Get(), Number(1).Get()}).Get()}));
    mTap.reset();
    mService->mSteps.clear();
    mMachine.mServer.mSnapshot.mDefaultOutput = 0;
    EXPECT_EQ(Create({}), kAVCaptureNoDevice);
    EXPECT_EQ(Create(Array({})), kAVCaptureNoDevice);
    EXPECT_EQ(mService->mSteps, Steps{});
}

TEST_F(Setup, AMissingServiceAndATranslatedClientOnAnOldOneAreToldAlike)
{
    mService->mVersion = Number(1);
    EXPECT_EQ(Create(Array({CFSTR("speakers")}), {}, true), kAVCaptureNoExtension);
    EXPECT_EQ(mService->mSteps, Steps{});
    platform::kernel::WithdrawServices();
    EXPECT_EQ(Create(), kAVCaptureNoExtension);
}

TEST_F(Setup, EveryCallThatFailsGivesItsOwnStatusAndLeavesNothingBehind)
{
    mService->mSymbolRequest = std::string(1, '\0');
    const support::FolderTree folder;
    folder.Write("mach_kernel", "\xce\xfa\xed\xfe");
    mMachine.mFiles.mRoot = folder.Root();
    constexpr int32_t kFailure = ScriptedTapService::kFailure;
    const std::vector<int32_t> wanted{kFailure,
                                      kFailure,
                                      kFailure,
                                      kIOReturnNotFound,
                                      kFailure,  // open; symbols: size, names, the file, reply
                                      kFailure,
                                      kFailure,
                                      kAVCaptureNoMemory,
                                      kAVCaptureNoMemory,
                                      kFailure,  // properties, sizes; the regions
                                      kAVCaptureNoMemory,
                                      FakeMemory::kProtectError,
                                      FakeMemory::kLockError};
    for (size_t k = 0; k <= wanted.size(); ++k) {
        Faults faults{.mFailing = int(k)};
        mService->mSteps.clear();
        mService->mFaults = mMachine.mMemory.mFaults = &faults;
        EXPECT_EQ(Create(), k < wanted.size() ? wanted[k] : 0) << "call " << k;
        EXPECT_EQ(std::ranges::count(mService->mSteps, "close"), k > 0 && k < wanted.size()) << "call " << k;
        mTap.reset();
        EXPECT_EQ(mService->mClients, 0);
        EXPECT_EQ(mMachine.mMemory.mBytes, mBytesBefore) << "call " << k;
    }
    mService->mFaults = mMachine.mMemory.mFaults = nullptr;
}

TEST_F(Setup, TheOutputBufferIsLockedUnlessTheSessionSaysNo)
{
    auto& memory = mMachine.mMemory;
    ASSERT_EQ(Create(), 0);
    EXPECT_EQ(memory.mSteps, (Steps{"protect rwx", "lock"}));
    memory.mSteps.clear();
    memory.mProtectFails = memory.mLockFails = true;
    EXPECT_EQ(Create(), FakeMemory::kLockError);
    EXPECT_EQ(memory.mSteps, (Steps{"protect rwx", "lock"}));
    mFlags = kAVCaptureNoMemoryLock;
    EXPECT_EQ(Create(), 0);
}

TEST_F(Setup, AServiceWhoseSizesMakeNoSenseIsRefused)
{
    constexpr uint64_t kLimit = 256u << 20;
    for (const auto& sizes : std::vector<std::vector<uint64_t>>{
             {}, {4096}, {0, 4096}, {16384, 99}, {kLimit + 1, 4096}, {16384, kLimit + 1}, {~0ull, ~0ull}}) {
        mService->mSizes = sizes;
        EXPECT_EQ(Create(), kIOReturnError) << testing::PrintToString(sizes);
        EXPECT_EQ(mService->mSteps.back(), "close");
    }
    mService->mSizes = {16384, 100};
    EXPECT_EQ(Create(), 0);
}

TEST_F(Setup, NoValueOfAFixedFieldMakesTheClientStumble)
{
    using support::StatusWords;
    Refuses(&StatusWords::mChannelCount, {0, 3, 65, 0x80000000, 0xFFFFFFFF});
    Refuses(&StatusWords::mLoopFrames, {0, 1, 127, 129, 384, 2049, 2176, 0xFFFFFF80, 0xFFFFFFFF});
    Refuses(&StatusWords::mBlockFrames, {0, 127, 1024, 2048, 4096, 0xFFFFFFFF});
    Refuses(&StatusWords::mOutputFrames, {0, 1, 127, 0x10000000, 0xFFFFFFFF});
    Refuses(&StatusWords::mNSPerFrame, {0});
    Refuses(&StatusWords::mNSPerLoop, {0});
    Refuses(&StatusWords::mNSPerBlock, {0, ~0ull, 1ull << 63, 1ull << 62});
}

TEST_F(Setup, FormatsAreJudgedByLayoutFirstAndTheirTypeIsToldBeforeTheirDepth)
{
    const auto judge = [](AudioStreamBasicDescription format, auto change) {
        unsigned int type = 0;
        change(format);
        const bool valid = AVCaptureCorvane::ASBDFormatValid(format, type);
        return std::pair(valid, type);
    };
    using Format = AudioStreamBasicDescription;
    constexpr uint32_t kFloat = FourCC("fl32"), kLittle = FourCC("sowt"), kBig = FourCC("twos");
    EXPECT_EQ(judge(FloatFormat(), [](Format&) {}), std::pair(true, kFloat));
    EXPECT_EQ(judge(Int16Format(), [](Format&) {}), std::pair(true, kLittle));
    EXPECT_EQ(judge(Int16Format(kAudioFormatFlagIsBigEndian), [](Format&) {}), std::pair(true, kBig));

    EXPECT_EQ(judge(FloatFormat(), [](Format& f) { f.mBitsPerChannel = 64; }), std::pair(false, kFloat));
    EXPECT_EQ(judge(FloatFormat(), [](Format& f) { f.mBytesPerFrame = f.mBytesPerPacket = 16; }),
              std::pair(false, kFloat));
    for (const uint32_t flag : {kAudioFormatFlagIsBigEndian, kAudioFormatFlagIsSignedInteger})
        EXPECT_EQ(judge(FloatFormat(), [flag](Format& f) { f.mFormatFlags |= flag; }), std::pair(false, kFloat));
    EXPECT_EQ(judge(Int16Format(), [](Format& f) { f.mFormatFlags &= ~kAudioFormatFlagIsSignedInteger; }),
              std::pair(false, kLittle));
    EXPECT_EQ(judge(Int16Format(), [](Format& f) { f.mBitsPerChannel = 24; }), std::pair(false, kLittle));
    EXPECT_EQ(judge(Int16Format(), [](Format& f) { f.mBytesPerFrame = f.mBytesPerPacket = 6; }),
              std::pair(false, kLittle));

    for (const auto change : std::vector<void (*)(Format&)>{
             [](Format& f) { f.mSampleRate = 0; }, [](Format& f) { f.mFormatID = kAudioFormatAC3; },
             [](Format& f) { f.mFormatFlags &= ~kAudioFormatFlagIsPacked; },
             [](Format& f) { f.mFormatFlags |= kAudioFormatFlagIsAlignedHigh; },
             [](Format& f) { f.mFormatFlags |= kAudioFormatFlagIsNonMixable; },
             [](Format& f) { f.mFormatFlags |= kAudioFormatFlagIsNonInterleaved; },
             [](Format& f) { f.mChannelsPerFrame = 0; }, [](Format& f) { f.mChannelsPerFrame = 3; },
             [](Format& f) { f.mFramesPerPacket = 2; }, [](Format& f) { f.mBytesPerPacket = 4; }})
        EXPECT_EQ(judge(FloatFormat(), change), std::pair(false, 0u));
}

TEST_F(Setup, AFormatThatCannotBeDeliveredSetsUpAllTheSameAndDeliversNothing)
{
    mDetails.audioFormat = FloatFormat(44100, 3);
    CreateAtWriter();
    EXPECT_EQ(mTap->GetOutputSampleSize(), 0u);
    mService->WriteBlocks(5);
    mTap->Consume();
    EXPECT_TRUE(mDelivered.empty());
}

}  // namespace
