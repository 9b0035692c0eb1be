// A device: its streams in their order and by address, the sizes of its buffers, and what it does for all its streams.
#include "framework/TestObjects.h"
#include "utility/CAException.h"

#include <gtest/gtest.h>

namespace {

struct Rig : TestPlugIn {
    /// 0 for no such property, or what else failed.
    template <class Value>
    Value Get(const char* code, AudioObjectPropertyScope scope = kAudioObjectPropertyScopeGlobal, UInt32 element = 0)
    {
        Value value{};
        UInt32 size = sizeof value;
        const AudioObjectPropertyAddress address{Code(code), scope, element};
        mStatus = Calls().ObjectGetPropertyData(Ref(), 7, &address, 0, nullptr, &size, &value);
        return mStatus == 0 ? value : Value{};
    }
    template <class Value>
    std::string Set(const char* code, Value value, UInt32 element = 0)
    {
        const AudioObjectPropertyAddress address{Code(code), kAudioObjectPropertyScopeGlobal, element};
        return Status(Calls().ObjectSetPropertyData(Ref(), 7, &address, 0, nullptr, sizeof value, &value));
    }
    OSStatus mStatus = 0;
};

TEST(HP_Device, AnAddressFindsTheStreamThatItsElementLiesIn)
{
    Rig rig;
    HP_Stream* const third = &rig.mDevice->Add(13, false, 5, Integers(16));
    HP_Stream* const first = &rig.mDevice->Add(11, false, 1, Integers(16, 1));
    HP_Stream* const second = &rig.mDevice->Add(12, false, 2, Integers(16, 3));
    HP_Stream* const input = &rig.mDevice->Add(14, true, 1, Integers(16));
    const auto find = [&](AudioObjectPropertyScope scope, UInt32 element, bool tryOther) {
        return rig.mDevice->GetStreamByPropertyAddress({FourCC("sfmt"), scope, element}, tryOther);
    };
    const auto out = kAudioObjectPropertyScopeOutput, in = kAudioObjectPropertyScopeInput;
    EXPECT_EQ(rig.mDevice->GetStreams(false), (HP_Device::StreamList{first, second, third}));
    for (const auto& [element, stream] :
         {std::pair{0u, first}, {1u, first}, {2u, second}, {4u, second}, {5u, third}, {6u, third}})
        EXPECT_EQ(find(out, element, false), stream) << element;
    EXPECT_EQ(find(out, 7, false), nullptr);
    EXPECT_EQ(find(out, 7, true), first);
    EXPECT_EQ(find(in, 2, false), input);
    EXPECT_EQ(find(in, 3, true), first);
    EXPECT_EQ(find(kAudioObjectPropertyScopeGlobal, 2, false), second);  // the output streams, where there are any
    EXPECT_EQ(find(kAudioObjectPropertyScopePlayThrough, 1, false), nullptr);
    EXPECT_EQ(find(kAudioObjectPropertyScopePlayThrough, 1, true), first);

    AudioObjectPropertyAddress address{FourCC("sfmt"), out, 5};
    third->ChangeDevicePropertyAddressIntoStreamPropertyAddress(address);
    EXPECT_EQ(address.mElement, 1u);
    EXPECT_EQ(address.mScope, kAudioObjectPropertyScopeGlobal);
    third->ChangeStreamPropertyAddressIntoDevicePropertyAddress(address);
    EXPECT_EQ(address.mElement, 5u);
    EXPECT_EQ(address.mScope, out);
    EXPECT_EQ(rig.Get<AudioStreamBasicDescription>("sfmt", out, 2).mChannelsPerFrame, 3u);
    rig.Get<AudioStreamBasicDescription>("sfmt", out, 7);
    EXPECT_EQ(Status(rig.mStatus), "who?");
}

TEST(HP_Device, BuffersLastFromATinyPartToAQuarterOfASecondUnlessTheirFormatSaysOtherwise)
{
    Rig rig;
    EXPECT_EQ(rig.Get<AudioValueRange>("fsz#").mMaximum, 0);  // without a stream there is no rate
    rig.Get<UInt32>("bsiz");
    EXPECT_EQ(Status(rig.mStatus), "nope");

    rig.mDevice->Add(9, true, 1, Integers(16, 2, 44100));
    EXPECT_EQ(rig.Get<AudioValueRange>("fsz#").mMinimum, 14);
    EXPECT_EQ(rig.Get<AudioValueRange>("fsz#").mMaximum, 11025);
    EXPECT_EQ(rig.Get<AudioValueRange>("bsz#", kAudioObjectPropertyScopeOutput).mMaximum, 11025 * 8);
    EXPECT_EQ(rig.Get<UInt32>("bsiz", kAudioObjectPropertyScopePlayThrough), 512u * 8);
    for (const auto& [frames, status] : {std::pair{13u, "nope"}, {14u, "ok"}, {11025u, "ok"}, {11026u, "nope"}})
        EXPECT_EQ(rig.Set("fsiz", frames), status);
    EXPECT_EQ(rig.Set("bsiz", 256 * 8), "ok");
    EXPECT_EQ(rig.Get<UInt32>("fsiz"), 256u);

    rig.mDevice->SetIOBufferFrameSize(100'000, false);
    EXPECT_EQ(rig.mDevice->DetermineIOBufferFrameSize(), 11025u);
    rig.mDevice->Add(10, false, 1, Packets());
    EXPECT_EQ(rig.mDevice->DetermineIOBufferFrameSize(), 1536u);
    EXPECT_EQ(rig.Get<AudioValueRange>("fsz#").mMinimum, 100'000);  // fixed
}

TEST(HP_Device, ANewFrameSizeIsToldOnceAndWithNoLockHeld)
{
    Rig rig;
    rig.mDevice->Add(9, true, 1, Integers(16));
    bool wasFree = false;
    rig.mSystem.mOnChanged = [&] { wasFree = rig.mDevice->GetObjectStateMutex()->IsFree(); };
    EXPECT_EQ(rig.Set("fsiz", 256u), "ok");
    EXPECT_EQ(rig.Set("fsiz", 256u), "ok");
    EXPECT_EQ(rig.mSystem.mChanged, "bsiz glob 0 of 7;fsiz glob 0 of 7;");
    EXPECT_TRUE(wasFree);
    EXPECT_TRUE(rig.mDevice->GetObjectStateMutex()->IsFree());

    // Who holds the lock himself has it again afterwards.
    const HP_Object::StateScope held(*rig.mDevice);
    rig.mDevice->SetIOBufferFrameSize(128, true);
    EXPECT_TRUE(wasFree);
    EXPECT_TRUE(rig.mDevice->GetObjectStateMutex()->IsOwnedByCurrentThread());
}

TEST(HP_Device, ItsRateIsOneThatAllStreamsHaveAndOneOfThemTakesItForAll)
{
    Rig rig;
    HP_FormatList& in = rig.mDevice->Add(9, true, 1, Integers(16)).GetFormatList();
    HP_FormatList& out = rig.mDevice->Add(10, false, 1, Integers(16)).GetFormatList();
    in.AddPhysicalFormat({Integers(24), {44100, 96000}});
    out.AddPhysicalFormat({Integers(16), {48000, 192000}});
    struct Ranges {
        AudioValueRange mRanges[3];
    };
    const Ranges common = rig.Get<Ranges>("nsr#");
    EXPECT_EQ(common.mRanges[0].mMinimum, 44100);
    EXPECT_EQ(common.mRanges[0].mMaximum, 44100);
    EXPECT_EQ(common.mRanges[1].mMinimum, 48000);
    EXPECT_EQ(common.mRanges[1].mMaximum, 96000);
    EXPECT_EQ(common.mRanges[2].mMaximum, 0);

    EXPECT_EQ(rig.Set("nsrt", 96000.0), "ok");
    EXPECT_EQ(out.GetCurrentNominalSampleRate(), 96000);
    EXPECT_EQ(in.GetCurrentNominalSampleRate(), 44100);
    EXPECT_EQ(rig.Get<Float64>("nsrt"), 44100);  // the first input stream's
    EXPECT_EQ(rig.Get<Float64>("asrt"), 0);      // nothing runs
    EXPECT_EQ(rig.Set("nsrt", 50'000.0), "ok");  // the input has it not in its first format, the output takes it
    EXPECT_EQ(rig.Set("nsrt", 22050.0), "!dat");
    EXPECT_EQ(rig.Set("nsrt", 0.0), "!dat");
    EXPECT_EQ(rig.Set("nsrt", 0.0, 1), "ok");  // of the stream: as it is
}

TEST(HP_Device, MixingIsSetOnEveryStreamThatCanWhateverBecomesOfTheOthers)
{
    Rig rig;
    TestStream& fixed = rig.mDevice->Add(9, false, 1, Integers(16));
    TestStream& refusing = rig.mDevice->Add(10, false, 3, Integers(16));
    TestStream& willing = rig.mDevice->Add(11, true, 1, Integers(16));
    EXPECT_EQ(rig.Set("mix?", 0u), "nope");
    for (TestStream* stream : {&refusing, &willing})
        stream->GetFormatList().AddPhysicalFormat({Unmixable(Integers(16)), {44100, 44100}});
    refusing.mTakesFormats = false;
    EXPECT_EQ(rig.Get<UInt32>("mix?"), 1u);
    EXPECT_EQ(rig.Set("mix?", 0u), "ok");
    EXPECT_TRUE(fixed.GetFormatList().IsMixable());
    EXPECT_TRUE(refusing.GetFormatList().IsMixable());
    EXPECT_FALSE(willing.GetFormatList().IsMixable());
    EXPECT_EQ(rig.Get<UInt32>("mix?"), 0u);
    EXPECT_EQ(rig.Get<UInt32>("mix?", kAudioObjectPropertyScopeOutput, 1), 1u);  // of that stream
}

}  // namespace
