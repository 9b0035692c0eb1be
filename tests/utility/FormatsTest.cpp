// Formats, layouts, ranges and stamps: how they compare, sort and are named.
#include "utility/CAAudioChannelLayout.h"
#include "utility/CAAudioTimeStamp.h"
#include "utility/CAAudioValueRange.h"
#include "utility/CADebug.h"
#include "utility/CAStreamBasicDescription.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

namespace {

using Format = CAStreamBasicDescription;
constexpr UInt32 kPCM = kAudioFormatLinearPCM;

Format PCM(UInt32 channels, UInt32 bits, UInt32 flags)
{
    const UInt32 bytes = channels * bits / 8;
    return {48000, kPCM, bytes, 1, bytes, channels, bits, flags};
}

bool Same(const AudioStreamBasicDescription& a, const AudioStreamBasicDescription& b)
{
    EXPECT_EQ(a == b, b == a);
    return a == b;
}

TEST(CAStreamBasicDescription, AFieldThatIsOpenOnEitherSideTakesNoPartInEquality)
{
    const Format full = PCM(2, 32, 9);
    const std::function<void(Format&, UInt32)> fields[] = {
        [](Format& f, UInt32 v) { f.mSampleRate = v; },       [](Format& f, UInt32 v) { f.mFormatID = v; },
        [](Format& f, UInt32 v) { f.mFormatFlags = v; },      [](Format& f, UInt32 v) { f.mBytesPerPacket = v; },
        [](Format& f, UInt32 v) { f.mFramesPerPacket = v; },  [](Format& f, UInt32 v) { f.mBytesPerFrame = v; },
        [](Format& f, UInt32 v) { f.mChannelsPerFrame = v; }, [](Format& f, UInt32 v) { f.mBitsPerChannel = v; }};
    for (const auto& set : fields) {
        Format other = full;
        set(other, 0);
        EXPECT_TRUE(Same(full, other));
        EXPECT_FALSE(full.IsEqual(other, false));
        Format filled = other;
        Format::FillOutFormat(filled, full);
        EXPECT_TRUE(full.IsEqual(filled, false));
        set(other, 77);
        EXPECT_FALSE(Same(full, other));
    }
}

TEST(CAStreamBasicDescription, FlagsThatChangeNothingTakeNoPartInEquality)
{
    constexpr UInt32 kFloat = kAudioFormatFlagIsFloat, kSigned = kAudioFormatFlagIsSignedInteger;
    constexpr UInt32 kPacked = kAudioFormatFlagIsPacked, kBig = kAudioFormatFlagIsBigEndian;
    constexpr UInt32 kHigh = kAudioFormatFlagIsAlignedHigh, kSplit = kAudioFormatFlagIsNonInterleaved;
    const struct {
        Format mA, mB;
        bool mSame;
    } cases[] = {{PCM(2, 32, kFloat | kPacked), PCM(2, 32, kFloat | kPacked | kSigned), true},
                 {PCM(2, 32, kPacked), PCM(2, 32, kPacked | kSigned), false},
                 {PCM(2, 8, kPacked | kSigned), PCM(2, 8, kPacked | kSigned | kBig), true},
                 {PCM(2, 16, kPacked | kSigned), PCM(2, 16, kPacked | kSigned | kBig), false},
                 {PCM(2, 8, kSigned), PCM(2, 8, kSigned | kBig), false},
                 {PCM(1, 32, kPacked), PCM(1, 32, kPacked | kSplit), true},
                 {PCM(2, 32, kPacked), PCM(2, 32, kPacked | kSplit), false},
                 {PCM(2, 32, kPacked), PCM(2, 32, kPacked | kHigh), true},
                 {PCM(2, 32, kSigned), PCM(2, 32, kSigned | kHigh), false},
                 {PCM(2, 32, kFloat), PCM(2, 32, kFloat | kAudioFormatFlagsAreAllClear), true}};
    for (const auto& one : cases) EXPECT_EQ(Same(one.mA, one.mB), one.mSame) << (&one - cases);
}

TEST(CAStreamBasicDescription, FormatListsSortByKindThenBitsThenRateThenChannels)
{
    const auto with = [](Format format, Float64 rate) {
        format.mSampleRate = rate;
        return format;
    };
    const Format ascending[] = {PCM(1, 16, 12),
                                PCM(2, 16, 12),
                                with(PCM(1, 16, 12), 96000),
                                PCM(1, 24, 12),
                                PCM(1, 8, 9),
                                PCM(1, 32, 9),
                                PCM(1, 8, 12 | kAudioFormatFlagIsNonMixable),
                                PCM(1, 8, 9 | kAudioFormatFlagIsNonMixable),
                                Format(8000, kAudioFormatAC3, 0, 0, 0, 0, 0, 0),
                                Format(8000, kAudioFormat60958AC3, 0, 0, 0, 0, 0, 0)};
    for (const Format& low : ascending)
        for (const Format& high : ascending)
            EXPECT_EQ(low < high, &low < &high) << (&low - ascending) << (&high - ascending);
}

TEST(CAStreamBasicDescription, SanityCheckRefusesWhatNoFormatHas)
{
    EXPECT_TRUE(SanityCheck(PCM(2, 32, 9)));
    EXPECT_TRUE(SanityCheck(Format(0, kAudioFormatAC3, 999'999, 999'999, 0, 1024, 1024, 0)));
    const std::function<void(Format&)> faults[] = {[](Format& f) { f.mSampleRate = -1; },
                                                   [](Format& f) { f.mSampleRate = std::nan(""); },
                                                   [](Format& f) { f.mFormatID = 0; },
                                                   [](Format& f) { f.mFramesPerPacket = 2; },
                                                   [](Format& f) { f.mBytesPerPacket = 4; },
                                                   [](Format& f) { f.mChannelsPerFrame = 1025; },
                                                   [](Format& f) { f.mBitsPerChannel = 1025; },
                                                   [](Format& f) { f.mBytesPerFrame = f.mBytesPerPacket = 1'000'000; }};
    for (const auto& fault : faults) {
        Format format = PCM(2, 32, 9);
        fault(format);
        EXPECT_FALSE(SanityCheck(format)) << (&fault - faults);
    }
}

std::string SimpleName(const Format& format, bool abbreviate, UInt32 size = 128)
{
    char name[128];
    Format::GetSimpleName(format, name, size, abbreviate);
    return name;
}

std::string Text(const Format& format)
{
    char text[256];
    format.AsString(text, sizeof text);
    return text;
}

TEST(CAStreamBasicDescription, NamesReadAsInAMenu)
{
    Format low24In32 = PCM(2, 32, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsBigEndian);
    low24In32.mBitsPerChannel = 24;
    EXPECT_EQ(SimpleName(PCM(2, 32, 9), true), "Mixable 2 Ch Float32");
    EXPECT_EQ(SimpleName(PCM(2, 32, 9), false), "Mixable 2 Channel 32 Bit Floating Point");
    EXPECT_EQ(SimpleName(PCM(6, 16, 0x4E), true), "Unmixable 6 Ch Big Endian SInt16");
    EXPECT_EQ(SimpleName(low24In32, true), "Mixable 2 Ch Big Endian Low SInt24/SInt32");
    EXPECT_EQ(SimpleName(low24In32, false),
              "Mixable 2 Channel 24 Bit Big Endian Signed Integer Aligned Low in 32 Bits");
    EXPECT_EQ(SimpleName(PCM(1, 16, 0x10), true), "Mixable 1 Ch High UInt16/UInt16");
    EXPECT_EQ(SimpleName(Format(0, kAudioFormat60958AC3, 0, 0, 0, 0, 0, 0), true), "AC-3 fo");
    EXPECT_EQ(SimpleName(Format(0, kAudioFormatAC3, 0, 0, 0, 0, 0, 0), true), "AC-3");
    EXPECT_EQ(SimpleName(Format(0, FourCC("aac "), 0, 0, 0, 0, 0, 0), false), "aac ");
    EXPECT_EQ(SimpleName(PCM(2, 32, 9), true, 8), "Mixable");
}

TEST(CAStreamBasicDescription, TheLongTextSaysAllThatIsInAFormat)
{
    Format packed20 = PCM(2, 24, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked);
    packed20.mBitsPerChannel = 20;
    EXPECT_EQ(Text(PCM(2, 32, 9)), " 2 ch,  48000 Hz, 'lpcm' (0x00000009) 32-bit little-endian float");
    EXPECT_EQ(
        Text(packed20),
        " 2 ch,  48000 Hz, 'lpcm' (0x0000000C) 20-bit little-endian signed integer, packed in 3 bytes low-aligned");
    EXPECT_EQ(Text(PCM(1, 32, 4 | 8 | 32 | 24 << 7)),
              " 1 ch,  48000 Hz, 'lpcm' (0x00000C2C) 8.24-bit little-endian signed integer, deinterleaved");
    EXPECT_EQ(Text(Format(44100, kAudioFormatAppleLossless, 0, 4096, 0, 2, 0, 3)),
              " 2 ch,  44100 Hz, 'alac' (0x00000003) from 24-bit source, 4096 frames/packet");
    EXPECT_EQ(
        Text(Format(44100, 1, 2, 3, 4, 5, 6, 7)),
        " 5 ch,  44100 Hz, 0x00000001 (0x00000007) 6 bits/channel, 2 bytes/packet, 3 frames/packet, 4 bytes/frame");
    char tight[39];
    PCM(2, 32, 9).AsString(tight, 38);
    EXPECT_STREQ(tight, " 2 ch,  48000 Hz, 'lpcm' (0x00000009)");
}

TEST(CADebug, ACodeReadsAsAWordIfItsFirstCharacterIsPrintable)
{
    char text[kOSTypeStringBytes];
    EXPECT_STREQ(CAStringForOSType(FourCC("abcd"), text), "'abcd'");
    EXPECT_STREQ(CAStringForOSType(0x61016364, text), "'a\001cd'");
    EXPECT_STREQ(CAStringForOSType(1, text), "0x00000001");
    EXPECT_STREQ(CAStringForOSType(FourCC("\\abc"), text), "0x5C616263");
}

TEST(CADebug, FatalAndAssertionsLeaveWithTheCodeAndSayWhere)
{
    EXPECT_EXIT(Fatal(nullptr, 0, "file", "line", true, false), testing::ExitedWithCode(1), "^Throw @ file:line\r\n");
    EXPECT_EXIT(Debug("", 3, "file", "line", false, true), testing::ExitedWithCode(3), "^Assert : 3 @ file:line\r\n");
    testing::internal::CaptureStderr();
    Debug("", 0, "file", "line", false, false);
    Debug("name", 0xFFFFFFFF, "file", "line", true, false);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Trace @ file:line\r\nname : -1 @ file:line\r\n");
}

TEST(CAAudioValueRange, TheCommonRateIsTheOneMostPeopleWouldChoose)
{
    EXPECT_EQ(CAAudioValueRange::PickCommonSampleRate({44100, 48000}), 44100);
    EXPECT_EQ(CAAudioValueRange::PickCommonSampleRate({88200, 96000}), 96000);
    EXPECT_EQ(CAAudioValueRange::PickCommonSampleRate({50000, 60000}), 60000);
}

std::vector<std::pair<double, double>> Pairs(const CAAudioValueRangeList& list)
{
    std::vector<std::pair<double, double>> pairs;
    for (const AudioValueRange& range : list) pairs.emplace_back(range.mMinimum, range.mMaximum);
    return pairs;
}

TEST(CAAudioValueRange, RangesCombineWithBoundsIncluded)
{
    CAAudioValueRange out;
    EXPECT_TRUE(CAAudioValueRange::Intersection({1, 3}, {3, 5}, out));
    EXPECT_EQ(Pairs({out}), Pairs({{3, 3}}));
    EXPECT_FALSE(CAAudioValueRange::Union({1, 3}, {3, 5}, out));
    EXPECT_EQ(Pairs({out}), Pairs({{1, 5}}));
    EXPECT_FALSE(CAAudioValueRange::Intersection({1, 2}, {3, 5}, out));
    EXPECT_EQ(Pairs({out}), Pairs({{0, 0}}));
    EXPECT_TRUE(CAAudioValueRange::Union({3, 5}, {1, 2}, out));
    EXPECT_EQ(Pairs({out}), Pairs({{0, 0}}));
}

TEST(CAAudioValueRange, ARangeIsCutOutOfAListOrMergedIntoIt)
{
    const CAAudioValueRangeList list = {{1, 2}, {4, 6}, {8, 9}, {11, 12}};
    CAAudioValueRangeList out = {{99, 99}};
    CAAudioValueRange_ComputeIntersection({5, 8}, list, out);
    EXPECT_EQ(Pairs(out), Pairs({{5, 6}, {8, 8}}));
    CAAudioValueRange_ComputeUnion({5, 8}, list, out);
    EXPECT_EQ(Pairs(out), Pairs({{1, 2}, {4, 9}, {11, 12}}));
    CAAudioValueRange_ComputeUnion({3, 3}, list, out);
    EXPECT_EQ(Pairs(out), Pairs({{1, 2}, {3, 3}, {4, 6}, {8, 9}, {11, 12}}));
    CAAudioValueRange_ComputeUnion({13, 14}, list, out);
    EXPECT_EQ(out.size(), 5u);
    EXPECT_EQ(out.back().mMinimum, 13);
}

TEST(CAAudioTimeStamp, StampsCompareByTheFirstFieldThatBothHave)
{
    AudioTimeStamp a{}, b{};
    a.mHostTime = 1, b.mHostTime = 2;
    a.mSampleTime = 2, b.mSampleTime = 1;
    EXPECT_FALSE(a == b || a < b || b < a);
    a.mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid;
    b.mFlags = kAudioTimeStampHostTimeValid | kAudioTimeStampWordClockTimeValid;
    EXPECT_TRUE(a < b);
    b.mFlags |= kAudioTimeStampSampleTimeValid;
    EXPECT_TRUE(b < a);
    a.mFlags = b.mFlags = kAudioTimeStampWordClockTimeValid;
    EXPECT_TRUE(a == b);
}

TEST(CAAudioChannelLayout, ChannelsAreCountedByDescriptionBitmapOrTag)
{
    AudioChannelLayout* const layout = CAAudioChannelLayout::Create(6);
    AudioChannelLayout* const other = CAAudioChannelLayout::Create(6);
    EXPECT_EQ(CAAudioChannelLayout::NumberChannels(*layout), 6u);
    EXPECT_TRUE(*layout == *other);
    const AudioChannelDescription* const descriptions = layout->mChannelDescriptions;
    EXPECT_EQ(descriptions[5].mChannelLabel, kAudioChannelLabel_Unknown);
    AudioChannelDescription* const changed = other->mChannelDescriptions;
    changed[5].mCoordinates[2] = 1;
    EXPECT_FALSE(*layout == *other);
    layout->mChannelLayoutTag = kAudioChannelLayoutTag_UseChannelBitmap;
    layout->mChannelBitmap = 0x3F1;
    EXPECT_EQ(CAAudioChannelLayout::NumberChannels(*layout), 7u);
    layout->mChannelLayoutTag = (101u << 16) | 2;
    EXPECT_EQ(CAAudioChannelLayout::NumberChannels(*layout), 2u);
    CAAudioChannelLayout::Destroy(layout);
    CAAudioChannelLayout::Destroy(other);
}

}  // namespace
