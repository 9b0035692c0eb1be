// CoreAudioTypes: the audio system's published records, with their published layout and names.
// Why: every room speaks of sound in these records; they carry no behaviour.
// Start at AudioStreamBasicDescription and AudioBufferList.
#pragma once

#include <cstddef>
#include <cstdint>

using OSStatus = int32_t;
using OSType = uint32_t;
using UInt32 = uint32_t;
using SInt32 = int32_t;
using Float32 = float;
using Float64 = double;
using Boolean = unsigned char;

/// Packs four characters in their reading order: FourCC("lpcm").
constexpr uint32_t FourCC(const char (&text)[5])
{
    return uint32_t(uint8_t(text[0])) << 24 | uint32_t(uint8_t(text[1])) << 16 | uint32_t(uint8_t(text[2])) << 8 |
           uint32_t(uint8_t(text[3]));
}

struct AudioBuffer {
    UInt32 mNumberChannels;
    UInt32 mDataByteSize;
    void* mData;
};

struct AudioBufferList {
    UInt32 mNumberBuffers;
    AudioBuffer mBuffers[1];  // mNumberBuffers of them
};

struct AudioStreamBasicDescription {
    Float64 mSampleRate;  // hertz
    UInt32 mFormatID;
    UInt32 mFormatFlags;
    UInt32 mBytesPerPacket;
    UInt32 mFramesPerPacket;
    UInt32 mBytesPerFrame;
    UInt32 mChannelsPerFrame;
    UInt32 mBitsPerChannel;
    UInt32 mReserved;
};

constexpr uint32_t kAudioFormatLinearPCM = FourCC("lpcm");
constexpr uint32_t kAudioFormatAC3 = FourCC("ac-3");
constexpr uint32_t kAudioFormat60958AC3 = FourCC("cac3");
constexpr uint32_t kAudioFormatAppleLossless = FourCC("alac");

constexpr uint32_t kAudioFormatFlagIsFloat = 1u << 0;
constexpr uint32_t kAudioFormatFlagIsBigEndian = 1u << 1;
constexpr uint32_t kAudioFormatFlagIsSignedInteger = 1u << 2;
constexpr uint32_t kAudioFormatFlagIsPacked = 1u << 3;
constexpr uint32_t kAudioFormatFlagIsAlignedHigh = 1u << 4;
constexpr uint32_t kAudioFormatFlagIsNonInterleaved = 1u << 5;
constexpr uint32_t kAudioFormatFlagIsNonMixable = 1u << 6;
constexpr uint32_t kAudioFormatFlagsAreAllClear = 1u << 31;

struct SMPTETime {
    int16_t mSubframes;
    int16_t mSubframeDivisor;
    UInt32 mCounter;
    UInt32 mType;
    UInt32 mFlags;
    int16_t mHours, mMinutes, mSeconds, mFrames;
};

struct AudioTimeStamp {
    Float64 mSampleTime;  // frames
    uint64_t mHostTime;   // host ticks
    Float64 mRateScalar;  // host ticks a device frame, over the nominal
    uint64_t mWordClockTime;
    SMPTETime mSMPTETime;
    UInt32 mFlags;
    UInt32 mReserved;
};

constexpr uint32_t kAudioTimeStampSampleTimeValid = 1u << 0;
constexpr uint32_t kAudioTimeStampHostTimeValid = 1u << 1;
constexpr uint32_t kAudioTimeStampRateScalarValid = 1u << 2;
constexpr uint32_t kAudioTimeStampWordClockTimeValid = 1u << 3;

struct AudioValueRange {
    Float64 mMinimum;
    Float64 mMaximum;
};

struct AudioStreamRangedDescription {
    AudioStreamBasicDescription mFormat;
    AudioValueRange mSampleRateRange;  // hertz
};

struct AudioValueTranslation {
    void* mInputData;
    UInt32 mInputDataSize;
    void* mOutputData;
    UInt32 mOutputDataSize;
};

struct AudioChannelDescription {
    UInt32 mChannelLabel;
    UInt32 mChannelFlags;
    Float32 mCoordinates[3];
};

struct AudioChannelLayout {
    UInt32 mChannelLayoutTag;
    UInt32 mChannelBitmap;
    UInt32 mNumberChannelDescriptions;
    AudioChannelDescription mChannelDescriptions[1];  // mNumberChannelDescriptions of them
};

constexpr uint32_t kAudioChannelLayoutTag_UseChannelDescriptions = 0;
constexpr uint32_t kAudioChannelLayoutTag_UseChannelBitmap = 0x10000;
constexpr uint32_t kAudioChannelLabel_Unknown = 0xFFFFFFFF;
constexpr uint32_t kAudioChannelLabel_Left = 1;
constexpr uint32_t kAudioChannelLabel_Right = 2;
constexpr uint32_t kAudioChannelLabel_Center = 3;
constexpr uint32_t kAudioChannelLabel_LFEScreen = 4;
constexpr uint32_t kAudioChannelLabel_LeftSurround = 5;
constexpr uint32_t kAudioChannelLabel_RightSurround = 6;
constexpr uint32_t kAudioChannelLabel_LeftCenter = 7;
constexpr uint32_t kAudioChannelLabel_RightCenter = 8;
constexpr uint32_t kAudioChannelLabel_CenterSurround = 9;
constexpr uint32_t kAudioChannelLabel_LeftSurroundDirect = 10;
constexpr uint32_t kAudioChannelLabel_RightSurroundDirect = 11;
constexpr uint32_t kAudioChannelLabel_TopCenterSurround = 12;
constexpr uint32_t kAudioChannelLabel_VerticalHeightLeft = 13;
constexpr uint32_t kAudioChannelLabel_VerticalHeightCenter = 14;
constexpr uint32_t kAudioChannelLabel_VerticalHeightRight = 15;
constexpr uint32_t kAudioChannelLabel_TopBackLeft = 16;
constexpr uint32_t kAudioChannelLabel_TopBackCenter = 17;
constexpr uint32_t kAudioChannelLabel_TopBackRight = 18;
constexpr uint32_t kAudioChannelLabel_RearSurroundLeft = 33;
constexpr uint32_t kAudioChannelLabel_RearSurroundRight = 34;
constexpr uint32_t kAudioChannelLabel_Mono = 42;
constexpr uint32_t kAudioChannelLabel_Discrete_0 = 1u << 16;  // ... Discrete_0 + n

static_assert(sizeof(AudioBuffer) == 16 && offsetof(AudioBufferList, mBuffers) == 8);
static_assert(sizeof(AudioStreamRangedDescription) == 56);
static_assert(sizeof(AudioStreamBasicDescription) == 40 && sizeof(AudioTimeStamp) == 64);
static_assert(sizeof(AudioChannelDescription) == 20 && offsetof(AudioChannelLayout, mChannelDescriptions) == 12);
