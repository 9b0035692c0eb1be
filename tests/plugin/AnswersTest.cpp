// What the plug-in, a device and its streams answer to each property of their own.
#include "platform/foundation/CFDictionary.h"
#include "plugin/PlugInRig.h"
#include "support/Forked.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstring>

namespace {

using namespace support;

enum Kind { kNumber, kCode, kRate, kText, kFormats };

struct Answer {
    char mOf;  // plug-in, device, input stream, output stream
    const char* mSelector;
    char mScope;
    Kind mKind;
    const char* mValue;
    bool mSettable = false;
};

constexpr Answer kAnswers[] = {
    {'p', "lnam", 'g', kText, "com.ostrel.corvane.plugin"},
    {'d', "lnam", 'g', kText, "Corvane: One"},
    {'d', "lmak", 'g', kText, "Ostrel Software, Inc."},
    {'d', "uid ", 'g', kText, "com.ostrel.audio.corvane.halplugin.device.1"},
    {'d', "muid", 'g', kText, "com.ostrel.audio.corvane.halplugin." CORVANE_VERSION},
    {'d', "capp", 'g', kText, "com.ostrel.corvane"},
    {'d', "tran", 'g', kCode, "virt"},
    {'d', "livn", 'g', kNumber, "1"},
    {'d', "dflt", 'i', kNumber, "1"},
    {'d', "dflt", 'o', kNumber, "0"},
    {'d', "sflt", 'o', kNumber, "0"},
    {'d', "ltnc", 'i', kNumber, "0"},
    {'d', "ltnc", 'o', kNumber, "0"},
    {'d', "saft", 'i', kNumber, "1024"},
    {'d', "saft", 'o', kNumber, "0"},
    {'d', "nsrt", 'g', kRate, "48000", true},
    {'d', "fsiz", 'g', kNumber, "512", true},
    {'i', "lmak", 'g', kText, "Ostrel Software, Inc."},
    {'i', "sdir", 'g', kNumber, "1"},
    {'i', "schn", 'g', kNumber, "1"},
    {'i', "mix?", 'g', kNumber, "1"},
    {'i', "pft ", 'g', kFormats, "48000 lpcm 12 4 2 16", true},
    {'i', "sfmt", 'g', kFormats, "48000 lpcm 9 8 2 32", true},
    {'i', "pft#", 'g', kFormats, "44100 lpcm 12 2 1 16; 44100 lpcm 20 4 1 24"},
    {'i', "sfm#", 'g', kFormats, "44100 lpcm 9 4 1 32"},
    {'o', "sdir", 'g', kNumber, "0"},
    {'o', "pft ", 'g', kFormats, "48000 lpcm 12 4 2 16", true},
    {'o', "pft#", 'g', kFormats, "44100 lpcm 12 4 2 16; 44100 lpcm 20 8 2 24"},
};

std::string Letters(UInt32 code)
{
    return {char(code >> 24), char(code >> 16), char(code >> 8), char(code)};
}

UInt32 Code(const char* letters)
{
    return UInt32(letters[0]) << 24 | UInt32(letters[1]) << 16 | UInt32(letters[2]) << 8 | UInt32(letters[3]);
}

template <class Value>
Value Take(const char* data)
{
    Value value;
    std::memcpy(&value, data, sizeof value);
    return value;
}

std::string Text(const char* data, UInt32 size, Kind kind)
{
    if (kind == kNumber) return std::to_string(Take<UInt32>(data));
    if (kind == kCode) return Letters(Take<UInt32>(data));
    if (kind == kRate) return fmt::format("{}", Take<Float64>(data));
    if (kind == kText) return cf::ToStdString(cf::Ref<cf::String>::Adopt(Take<CFStringRef>(data)).Get());
    std::string text;
    for (const char* next = data; next < data + size; next += sizeof(AudioStreamBasicDescription)) {
        const auto f = Take<AudioStreamBasicDescription>(next);
        text += fmt::format("{}{} {} {} {} {} {}", next == data ? "" : "; ", f.mSampleRate, Letters(f.mFormatID),
                            f.mFormatFlags, f.mBytesPerFrame, f.mChannelsPerFrame, f.mBitsPerChannel);
    }
    return text;
}

/// The plug-in, its one device and the streams of that are numbered in this order.
AudioObjectID NumberOf(char letter)
{
    return PlugInRig::Devices().at(0).mNumber - 1 + AudioObjectID(std::string("pdio").find(letter));
}

std::string Set(char of, const char* selector, UInt32 size, const void* data)
{
    const AudioObjectPropertyAddress address{Code(selector), kAudioObjectPropertyScopeGlobal, 0};
    const OSStatus status = AudioObjectSetPropertyData(NumberOf(of), &address, 0, nullptr, size, data);
    return status == 0 ? "ok" : Letters(UInt32(status));
}

void Expect(const Answer& row)
{
    SCOPED_TRACE(std::string(1, row.mOf) + ' ' + row.mSelector + ' ' + row.mScope);
    const UInt32 scope = row.mScope == 'i'   ? kAudioObjectPropertyScopeInput
                         : row.mScope == 'o' ? kAudioObjectPropertyScopeOutput
                                             : kAudioObjectPropertyScopeGlobal;
    const AudioObjectPropertyAddress address{Code(row.mSelector), scope, 0};
    char data[256];
    UInt32 size = 0, odd = 3;
    Boolean settable = 9;
    ASSERT_EQ(AudioObjectGetPropertyDataSize(NumberOf(row.mOf), &address, 0, nullptr, &size), 0);
    ASSERT_EQ(AudioObjectGetPropertyData(NumberOf(row.mOf), &address, 0, nullptr, &size, data), 0);
    EXPECT_EQ(Text(data, size, row.mKind), row.mValue);
    EXPECT_EQ(AudioObjectIsPropertySettable(NumberOf(row.mOf), &address, &settable), 0);
    EXPECT_EQ(settable, row.mSettable);
    const OSStatus status = AudioObjectGetPropertyData(NumberOf(row.mOf), &address, 0, nullptr, &odd, data);
    EXPECT_EQ(status == 0, row.mSelector[3] == '#') << "lists alone take any size";
}

}  // namespace

TEST(PlugInObjects, AnswerEachPropertyOfTheirOwnAndRefuseWhatTheyDoNotOffer)
{
    ExpectForked([] {
        PlugInRig rig;
        rig.mScenario.output("speakers");
        rig.Write(true, {{"One", 1, 1}}, RouteOfHost("speakers"));
        for (const Answer& row : kAnswers) Expect(row);

        const UInt32 no = 0;
        EXPECT_EQ(Set('p', "lnam", sizeof no, &no), "nope");
        EXPECT_EQ(Set('i', "mix?", 3, &no), "!siz");
        EXPECT_EQ(Set('i', "mix?", sizeof no, &no), "nope");
        AudioStreamBasicDescription format{48000, kAudioFormatLinearPCM, 20, 4, 1, 4, 1, 24, 0};
        EXPECT_EQ(Set('i', "pft ", sizeof format - 1, &format), "!siz");
        EXPECT_EQ(Set('i', "pft ", sizeof format, &format), "!dat") << "a rate that the list does not have";
        format.mSampleRate = 44100;
        EXPECT_EQ(Set('i', "pft ", sizeof format, &format), "ok");
        Expect({'i', "pft ", 'g', kFormats, "44100 lpcm 20 4 1 24", true});
        format = {44100, kAudioFormatLinearPCM, 9, 4, 1, 4, 1, 32, 0};
        EXPECT_EQ(Set('i', "sfmt", sizeof format, &format), "ok");
        Expect({'i', "pft ", 'g', kFormats, "44100 lpcm 12 2 1 16", true});
    });
}
