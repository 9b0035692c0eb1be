// Formats of a stream: how lists merge, what is supported, what comes nearest, and what setting one does.
#include "framework/HP_FormatList.h"
#include "framework/TestObjects.h"
#include "utility/CAException.h"

#include <gtest/gtest.h>

namespace {

using Format = AudioStreamBasicDescription;
using Rates = std::vector<AudioValueRange>;

std::string Words(const HP_FormatList::AvailableFormatList& list)
{
    std::string words;
    for (UInt32 index = 0; index < HP_FormatList::AFL_GetNumberFormats(list); ++index) {
        AudioStreamRangedDescription format;
        HP_FormatList::AFL_GetFormatByIndex(list, index, format);
        words += (index ? " " : "") + std::to_string(int(format.mSampleRateRange.mMinimum)) + "-" +
                 std::to_string(int(format.mSampleRateRange.mMaximum));
    }
    return words;
}

TEST(HP_FormatList, RangesOfOneFormatRunFromHighToLowAndMeetOnlyTheFirstThatIsNotAbove)
{
    const struct {
        Rates mAdded;
        const char* mExpected;
    } cases[] = {
        {{{44, 48}}, "44-48"},
        {{{44, 48}, {44, 48}}, "44-48"},                     // the same
        {{{96, 192}, {44, 48}}, "96-192 44-48"},             // below all
        {{{44, 48}, {96, 192}}, "96-192 44-48"},             // above all
        {{{48, 96}, {44, 50}}, "44-96"},                     // reaches in from below
        {{{48, 96}, {44, 96}}, "44-96"},                     // to the very top
        {{{44, 96}, {48, 50}}, "44-96"},                     // inside
        {{{44, 48}, {46, 96}}, "44-96"},                     // reaches out above
        {{{44, 48}, {48, 96}}, "44-96"},                     // touches
        {{{44, 48}, {44, 96}}, "44-96"},                     // from the very bottom
        {{{48, 50}, {44, 96}}, "44-96 48-50"},               // surrounds
        {{{96, 192}, {44, 48}, {46, 100}}, "46-192 44-48"},  // meets two, and only the upper one is merged
        {{{96, 192}, {44, 48}, {60, 70}}, "96-192 60-70 44-48"},
        {{{96, 192}, {44, 48}, {40, 200}}, "40-200 96-192 44-48"},
    };
    for (const auto& [added, expected] : cases) {
        HP_FormatList::AvailableFormatList list;
        for (const AudioValueRange& range : added) HP_FormatList::AFL_AddFormat(list, {Integers(16), range});
        EXPECT_EQ(Words(list), expected);
        EXPECT_EQ(list.size(), 1u);
    }
}

/// An output stream that can do what most tests ask for.
struct FormatRig : TestPlugIn {
    FormatRig()
    {
        for (const auto& [format, low, high] :
             std::initializer_list<std::tuple<Format, int, int>>{{Packets(), 48000, 48000},
                                                                 {Unmixable(Integers(16)), 44100, 44100},
                                                                 {Integers(24), 44100, 96000},
                                                                 {Integers(16, 8), 192000, 192000}})
            mList.AddPhysicalFormat({format, {Float64(low), Float64(high)}});
    }
    TestStream& mStream = mDevice->Add(8, false, 1, Integers(16));
    HP_FormatList& mList = mStream.GetFormatList();
};

std::string Words(const Format& format)
{
    return Letters(format.mFormatID) + " " + std::to_string(format.mBitsPerChannel) + " bit " +
           std::to_string(format.mChannelsPerFrame) + " ch " + std::to_string(int(format.mSampleRate)) +
           (format.mFormatFlags & kAudioFormatFlagIsNonMixable ? " unmixable" : "");
}

TEST(HP_FormatList, ListsMixableFormatsBeforeOthersAndFoldsPhysicalFormatsIntoVirtualOnes)
{
    FormatRig rig;
    rig.mList.AddPhysicalFormat({Integers(16, 0), {1, 2}});  // has no channels and is not entered
    std::string physical, virtuals;
    AudioStreamRangedDescription format;
    for (UInt32 index = 0; rig.mList.GetAvailablePhysicalFormatByIndex(index, format); ++index)
        physical += Words(format.mFormat) + "; ";
    for (UInt32 index = 0; rig.mList.GetAvailableVirtualFormatByIndex(index, format); ++index)
        virtuals += Words(format.mFormat) + "; ";
    EXPECT_EQ(physical,
              "lpcm 16 bit 2 ch 44100; lpcm 16 bit 8 ch 192000; lpcm 24 bit 2 ch 0; "
              "lpcm 16 bit 2 ch 44100 unmixable; ac-3 0 bit 2 ch 48000; ");
    EXPECT_EQ(virtuals,
              "lpcm 32 bit 2 ch 0; lpcm 32 bit 8 ch 192000; lpcm 16 bit 2 ch 44100 unmixable; "
              "ac-3 0 bit 2 ch 48000; ");
}

TEST(HP_FormatList, FindsWhatIsSupportedAndWhatComesNearest)
{
    FormatRig rig;
    const struct {
        Format mAsked;
        bool mSupported;
        const char* mNearest;
    } cases[] = {
        {{}, true, "lpcm 16 bit 2 ch 44100"},
        {{.mSampleRate = 88200}, true, "lpcm 16 bit 2 ch 44100"},  // the first format lacks the rate: a common one
        {{.mSampleRate = 22050}, false, "lpcm 16 bit 2 ch 44100"},
        {{.mChannelsPerFrame = 8}, true, "lpcm 16 bit 8 ch 192000"},
        {{.mChannelsPerFrame = 5}, false, "lpcm 16 bit 2 ch 44100"},  // the first of all
        {{.mFormatID = kAudioFormatAC3}, true, "ac-3 0 bit 2 ch 48000"},
        {Integers(24, 2, 0), true, "lpcm 24 bit 2 ch 44100"},  // the current rate
        {Integers(24, 2, 88200), true, "lpcm 24 bit 2 ch 88200"},
        {Integers(24, 2, 192000), false, "lpcm 24 bit 2 ch 44100"},
        {Unmixable(Integers(16)), true, "lpcm 16 bit 2 ch 44100 unmixable"},
        {Floats(), false, "lpcm 16 bit 2 ch 44100"},
    };
    for (const auto& [asked, supported, nearest] : cases) {
        EXPECT_EQ(rig.mList.SupportsPhysicalFormat(asked), supported) << Words(asked);
        Format match = asked;
        rig.mList.BestMatchForPhysicalFormat(match);
        EXPECT_EQ(Words(match), nearest) << Words(asked);
    }
}

TEST(HP_FormatList, AFormatAskedForIsCheckedFieldByFieldCompletedAndGivenToTheHardware)
{
    const auto ask = [](UInt32 selector, const Format& format, bool hardwareTakes) {
        FormatRig rig;
        rig.mStream.mTakesFormats = hardwareTakes;
        const AudioObjectPropertyAddress address{selector, kAudioObjectPropertyScopeGlobal, 0};
        const OSStatus status =
            rig.Calls().ObjectSetPropertyData(rig.Ref(), 8, &address, 0, nullptr, sizeof format, &format);
        Format now;
        rig.mList.GetCurrentPhysicalFormat(now);
        return Status(status) + ", told " + Words(rig.mStream.mTold) + ", now " + Words(now);
    };
    const std::string refused = "!dat, told " + Words(Format{}) + ", now lpcm 16 bit 2 ch 44100";
    const UInt32 kVirtual = FourCC("sfmt"), kPhysical = FourCC("pft ");
    EXPECT_EQ(ask(kVirtual, {.mChannelsPerFrame = 2}, true),
              "ok, told lpcm 16 bit 2 ch 44100, now lpcm 16 bit 2 ch 44100");
    EXPECT_EQ(ask(kVirtual, Floats(8, 192000), true), "ok, told lpcm 16 bit 8 ch 192000, now lpcm 16 bit 8 ch 192000");
    EXPECT_EQ(ask(kVirtual, Floats(8, 192000), false), "ok, told lpcm 16 bit 8 ch 192000, now lpcm 16 bit 2 ch 44100");
    EXPECT_EQ(ask(kVirtual, Packets(), true), "ok, told ac-3 0 bit 2 ch 48000, now ac-3 0 bit 2 ch 48000");
    EXPECT_EQ(ask(kVirtual, Integers(16), true), refused);  // clients see floats
    EXPECT_EQ(ask(kVirtual, Floats(5), true), refused);
    EXPECT_EQ(ask(kVirtual, Floats(2, 11025), true), refused);
    EXPECT_EQ(ask(kVirtual, Floats(2, 96000), true), refused);  // the first physical one behind it lacks the rate
    EXPECT_EQ(ask(kPhysical, Integers(24, 0, 96000), true),
              "ok, told lpcm 24 bit 2 ch 96000, now lpcm 24 bit 2 ch 96000");
    EXPECT_EQ(ask(kPhysical, Floats(), true), refused);
    EXPECT_EQ(ask(kPhysical, Integers(24, 5), true), refused);
}

TEST(HP_FormatList, ARateOrAMixabilityIsTakenWithWhateverFormatHasIt)
{
    FormatRig rig;
    const auto now = [&] {
        Format format;
        rig.mList.GetCurrentPhysicalFormat(format);
        return Words(format);
    };
    rig.mList.SetCurrentNominalSampleRate(22050, true);  // not supported: nothing happens
    EXPECT_EQ(now(), "lpcm 16 bit 2 ch 44100");
    EXPECT_TRUE(rig.mList.CanSetIsMixable());
    rig.mList.SetIsMixable(false, true);
    EXPECT_EQ(now(), "lpcm 16 bit 2 ch 44100 unmixable");
    rig.mList.SetIsMixable(true, true);
    rig.mList.SetCurrentNominalSampleRate(192000, true);  // the first format lacks it, and no other is tried
    EXPECT_EQ(now(), "lpcm 16 bit 2 ch 44100");
    rig.mList.SetCurrentPhysicalFormat(Integers(24), false);
    rig.mList.SetCurrentNominalSampleRate(96000, true);
    EXPECT_EQ(now(), "lpcm 24 bit 2 ch 96000");
    EXPECT_FALSE(rig.mList.CanSetIsMixable());
    rig.mList.SetCurrentPhysicalFormat(Packets(), false);
    EXPECT_FALSE(rig.mList.CanSetIsMixable());
    EXPECT_FALSE(rig.mList.IsMixable());
}

TEST(HP_FormatList, BuffersHoldTheVirtualFormatOrOnePacket)
{
    FormatRig rig;
    const Format wired{48000, kAudioFormat60958AC3, 0, 6144, 1536, 4, 2, 16, 0};
    const struct {
        Format mFormat;
        UInt32 mBytesOf512, mFramesOf4096;
    } cases[] = {{Integers(16), 4096, 512},
                 {Unmixable(Integers(16)), 2048, 1024},
                 {Packets(), 2048, 1536},
                 {wired, 2048, 1024},
                 {Integers(16, 0), 0, 0}};
    for (const auto& [format, bytes, frames] : cases) {
        rig.mList.SetCurrentPhysicalFormat(format, false);
        EXPECT_EQ(rig.mList.CalculateIOBufferByteSize(512), bytes) << Words(format);
        EXPECT_EQ(rig.mList.CalculateIOBufferFrameSize(4096), frames) << Words(format);
    }
}

TEST(HP_FormatList, AChangeIsToldOfWhateverItMovesOnAllStreamsOfTheDevice)
{
    FormatRig rig;
    TestStream& second = rig.mDevice->Add(9, false, 3, Integers(16));
    rig.mDevice->Add(10, true, 1, Integers(16));
    const auto told = [&](const HP_Stream& stream, const Format& before, const Format& after) {
        CAPropertyAddressList ofStream, ofDevice;
        HP_FormatList::DetermineNotifications(*rig.mDevice, stream, before, after, ofStream, ofDevice);
        std::string words;
        for (const auto* list : {&ofStream, &ofDevice}) {
            for (UInt32 index = 0; index < list->GetCount(); ++index) {
                const AudioObjectPropertyAddress& address = list->GetAddresses()[index];
                words += Letters(address.mSelector) + Letters(address.mScope).substr(0, 1) +
                         std::to_string(address.mElement) + " ";
            }
            words += "| ";
        }
        return words;
    };
    EXPECT_EQ(told(rig.mStream, Integers(16), Integers(16)), "| | ");
    EXPECT_EQ(told(rig.mStream, Integers(16), Integers(24)), "pft o1 pft o0 nsr#g0 | pft g0 | ");
    EXPECT_EQ(told(second, Integers(16), Integers(16, 4)), "pft o3 nsr#g0 sfmto3 sfmtg0 | pft g0 slayo0 | ");
    EXPECT_EQ(told(second, Integers(16), Unmixable(Integers(16))),
              "pft o3 nsr#g0 sfmto3 sfmtg0 mix?g0 | pft g0 mix?g0 | ");
    EXPECT_EQ(told(second, Integers(16), Integers(16, 2, 48000)),
              "pft o3 sfmto3 sfmtg0 nsrtg0 ltnci0 safti0 pft i1 pft i0 sfmti1 sfmti0 ltnco0 safto0 pft o1 pft o0 "
              "sfmto1 sfmto0 | pft g0 nsrtg0 ltncg0 | ");
}

}  // namespace
