// How formats are written out: for a menu, and for a log.
#include "utility/CADebug.h"
#include "utility/CAStreamBasicDescription.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace {

using Format = AudioStreamBasicDescription;

// Names of compressed formats are cut to seven characters: that is what people have always seen.
constexpr UInt32 kCompressedNameBytes = 8;

bool Has(const Format& format, UInt32 flag) noexcept
{
    return (format.mFormatFlags & flag) != 0;
}

// An open channel count has no width.
unsigned SlotBits(const Format& format) noexcept
{
    return format.mChannelsPerFrame ? format.mBytesPerFrame / format.mChannelsPerFrame * 8 : 0;
}

const char* KindWord(const Format& format, bool abbreviate) noexcept
{
    if (Has(format, kAudioFormatFlagIsFloat)) return abbreviate ? "Float" : "Floating Point";
    if (Has(format, kAudioFormatFlagIsSignedInteger)) return abbreviate ? "SInt" : "Signed Integer";
    return abbreviate ? "UInt" : "Unsigned Integer";
}

const char* MixWord(const Format& format) noexcept
{
    return Has(format, kAudioFormatFlagIsNonMixable) ? "Unmixable" : "Mixable";
}

std::string AlignmentWord(const Format& format)
{
    if (Has(format, kAudioFormatFlagIsPacked)) return "";
    return Has(format, kAudioFormatFlagIsAlignedHigh) ? "High" : "Low";
}

std::string EndianWord(const Format& format)
{
    return Has(format, kAudioFormatFlagIsBigEndian) ? "Big Endian " : "";
}

std::string ShortPCMName(const Format& format)
{
    const std::string kind = KindWord(format, true);
    const std::string alignment = AlignmentWord(format);
    std::string name = std::string(MixWord(format)) + " " + std::to_string(int(format.mChannelsPerFrame)) + " Ch " +
                       EndianWord(format);
    if (!alignment.empty()) name += alignment + " ";
    name += kind + std::to_string(int(format.mBitsPerChannel));
    if (!alignment.empty()) name += "/" + kind + std::to_string(SlotBits(format));
    return name;
}

std::string LongPCMName(const Format& format)
{
    const std::string alignment = AlignmentWord(format);
    std::string name = std::string(MixWord(format)) + " " + std::to_string(int(format.mChannelsPerFrame)) +
                       " Channel " + std::to_string(int(format.mBitsPerChannel)) + " Bit " + EndianWord(format) +
                       KindWord(format, false);
    if (!alignment.empty()) name += " Aligned " + alignment + " in " + std::to_string(SlotBits(format)) + " Bits";
    return name;
}

std::string Characters(UInt32 code)
{
    return {char(code >> 24), char(code >> 16), char(code >> 8), char(code)};
}

unsigned SampleBytes(const Format& format) noexcept
{
    const UInt32 channels = Has(format, kAudioFormatFlagIsNonInterleaved) ? 1 : format.mChannelsPerFrame;
    return channels ? format.mBytesPerFrame / channels : 0;
}

// A fixed-point format keeps in bits 7 to 12 of its flags how many of its bits are fractional.
std::string BitCount(const Format& format)
{
    const UInt32 fraction = format.mFormatFlags >> 7 & 0x3F;
    const UInt32 bits = format.mBitsPerChannel;
    if (fraction == 0) return std::to_string(int(bits));
    return std::to_string(int(bits - fraction)) + "." + std::to_string(fraction);
}

std::string NumberKind(const Format& format)
{
    if (Has(format, kAudioFormatFlagIsFloat)) return " float";
    return Has(format, kAudioFormatFlagIsSignedInteger) ? " signed integer" : " unsigned integer";
}

std::string PCMDetails(const Format& format)
{
    const unsigned bytes = SampleBytes(format);
    const bool fills = bytes * 8 == format.mBitsPerChannel;
    std::string text = BitCount(format) + "-bit";
    if (bytes > 1) text += Has(format, kAudioFormatFlagIsBigEndian) ? " big-endian" : " little-endian";
    text += NumberKind(format);
    if (!fills) {
        text += Has(format, kAudioFormatFlagIsPacked) ? ", packed in " : ", unpacked in ";
        text += std::to_string(bytes) + " bytes";
    }
    if (!fills || format.mBitsPerChannel % 8 != 0)
        text += Has(format, kAudioFormatFlagIsAlignedHigh) ? " high-aligned" : " low-aligned";
    if (Has(format, kAudioFormatFlagIsNonInterleaved)) text += ", deinterleaved";
    return text;
}

std::string LosslessDetails(const Format& format)
{
    constexpr int kSourceBits[] = {16, 20, 24, 32};
    std::string text = "from UNKNOWN source bit depth, ";
    if (format.mFormatFlags >= 1 && format.mFormatFlags <= 4)
        text = "from " + std::to_string(kSourceBits[format.mFormatFlags - 1]) + "-bit source, ";
    return text + std::to_string(int(format.mFramesPerPacket)) + " frames/packet";
}

std::string OtherDetails(const Format& format)
{
    return std::to_string(int(format.mBitsPerChannel)) + " bits/channel, " +
           std::to_string(int(format.mBytesPerPacket)) + " bytes/packet, " +
           std::to_string(int(format.mFramesPerPacket)) + " frames/packet, " +
           std::to_string(int(format.mBytesPerFrame)) + " bytes/frame";
}

std::string Details(const Format& format)
{
    if (format.mFormatID == kAudioFormatLinearPCM) return PCMDetails(format);
    return format.mFormatID == kAudioFormatAppleLossless ? LosslessDetails(format) : OtherDetails(format);
}

void Put(const std::string& text, char* buffer, unsigned long size)
{
    if (size == 0) return;
    buffer[text.copy(buffer, size - 1)] = '\0';
}

}  // namespace

void CAStreamBasicDescription::GetSimpleName(const AudioStreamBasicDescription& format, char* name, UInt32 size,
                                             bool abbreviate)
{
    switch (format.mFormatID) {
        case kAudioFormat60958AC3:
            Put("AC-3 for SPDIF", name, std::min(size, kCompressedNameBytes));
            break;
        case kAudioFormatAC3:
            Put("AC-3", name, std::min(size, kCompressedNameBytes));
            break;
        case kAudioFormatLinearPCM:
            Put(abbreviate ? ShortPCMName(format) : LongPCMName(format), name, size);
            break;
        default:
            Put(Characters(format.mFormatID), name, size);
    }
}

void CAStreamBasicDescription::AsString(char* buffer, unsigned long size) const
{
    char code[kOSTypeStringBytes];
    const int written = std::snprintf(buffer, size, "%2d ch, %6.0f Hz, %s (0x%08X) ", int(mChannelsPerFrame),
                                      mSampleRate, CAStringForOSType(mFormatID, code), mFormatFlags);
    if (written < 0 || static_cast<unsigned long>(written) >= size) return;
    Put(Details(*this), buffer + written, size - static_cast<unsigned long>(written));
}
