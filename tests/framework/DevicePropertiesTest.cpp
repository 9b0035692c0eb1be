// Every property of a device and of a stream, in every scope, with every size up to twice the right one.
#include "framework/TestObjects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace {

enum Kind {
    kFixed,   // the very size, nothing else
    kObject,  // the same, and the caller releases it
    kList,    // as many entries as fit
    kWhole,   // all or nothing
    kAsked,   // fixed; refuses what the buffer is filled with
};

struct Expected {
    const char* mCode;
    Kind mKind;
    UInt32 mBytes;                 // of the whole value
    UInt32 mEntryBytes;            // of a list
    const char* mScopes;           // where it exists: g, i, o, p (for play-through)
    const char* mOnSet = nullptr;  // what setting it to the filling of the buffer gives; null: not settable
};

// A device with a stream of 2 channels on each side, which both can be mixable or not, and no names but its own.
constexpr Expected kOfDevice[] = {
    {"akin", kList, 4, 4, "giop"},
    {"asrt", kFixed, 8, 0, "giop"},
    {"bsiz", kFixed, 4, 0, "giop", "nope"},
    {"bsz#", kFixed, 16, 0, "giop"},
    {"capp", kObject, 8, 0, "giop"},
    {"ccnm", kWhole, 10, 0, "giop"},
    {"lccn", kObject, 8, 0, "giop"},
    {"chnm", kWhole, 0, 0, ""},
    {"lchn", kObject, 8, 0, ""},
    {"cnnm", kWhole, 0, 0, ""},
    {"lcnn", kObject, 8, 0, ""},
    {"clkd", kFixed, 4, 0, "giop"},
    {"dflt", kFixed, 4, 0, "io"},
    {"sflt", kFixed, 4, 0, "o"},
    {"diff", kFixed, 4, 0, "giop"},
    {"fsiz", kFixed, 4, 0, "giop", "nope"},
    {"fsz#", kFixed, 16, 0, "giop"},
    {"goin", kFixed, 4, 0, "giop", "unop"},
    {"gone", kFixed, 4, 0, "giop"},
    {"hidn", kFixed, 4, 0, "giop"},
    {"icon", kObject, 8, 0, ""},
    {"livn", kFixed, 4, 0, "giop"},
    {"lmak", kObject, 8, 0, ""},
    {"makr", kWhole, 0, 0, ""},
    {"lnam", kObject, 8, 0, "giop"},
    {"name", kWhole, 7, 0, "giop"},
    {"ltnc", kFixed, 4, 0, "io"},
    {"saft", kFixed, 4, 0, "io"},
    {"muid", kObject, 8, 0, ""},
    {"oink", kFixed, 4, 0, "giop"},
    {"over", kFixed, 4, 0, "giop"},
    {"slay", kWhole, 24, 0, "io"},
    {"stm#", kList, 4, 4, "io"},
    {"tran", kFixed, 4, 0, "giop"},
    {"uid ", kObject, 8, 0, "giop"},
    // What the streams have
    {"nsrt", kFixed, 8, 0, "giop", "!dat"},
    {"nsr#", kList, 16, 16, "giop"},
    {"sfmt", kFixed, 40, 0, "gio", "!dat"},
    {"sfma", kList, 112, 56, "gio"},
    {"pft ", kFixed, 40, 0, "gio", "!dat"},
    {"pfta", kList, 112, 56, "gio"},
    {"sfm#", kList, 80, 40, "gio"},
    {"sfm?", kAsked, 40, 0, "gio"},
    {"sfmm", kFixed, 40, 0, "gio"},
    {"pft#", kList, 80, 40, "gio"},
    {"pft?", kAsked, 40, 0, "gio"},
    {"pftm", kFixed, 40, 0, "gio"},
    {"mix?", kFixed, 4, 0, "giop", "ok"},
    // What every object has, and what none has
    {"lisa", kFixed, 12, 0, "giop", "ok"},
    {"lisr", kFixed, 12, 0, "giop", "ok"},
    {"suse", kFixed, 4, 0, ""},
    {"zzzz", kFixed, 4, 0, ""},
};

// Its first output stream, which has no name.
constexpr Expected kOfStream[] = {
    {"lnam", kObject, 8, 0, ""},          {"lmak", kObject, 8, 0, ""},
    {"lchn", kObject, 8, 0, ""},          {"lccn", kObject, 8, 0, "giop"},
    {"lcnn", kObject, 8, 0, ""},          {"ltnc", kFixed, 4, 0, "giop"},
    {"schn", kFixed, 4, 0, "giop"},       {"sdir", kFixed, 4, 0, "giop"},
    {"term", kFixed, 4, 0, "giop"},       {"nsrt", kFixed, 8, 0, "giop", "!dat"},
    {"nsr#", kList, 16, 16, "giop"},      {"sfmt", kFixed, 40, 0, "giop", "!dat"},
    {"pfta", kList, 112, 56, "giop"},     {"pft?", kAsked, 40, 0, "giop"},
    {"mix?", kFixed, 4, 0, "giop", "ok"}, {"stm#", kFixed, 4, 0, ""},
};

constexpr AudioObjectID kDevice = 7, kStream = 8;

struct DeviceRig : TestPlugIn {
    DeviceRig()
    {
        for (TestStream* stream :
             {&mDevice->Add(9, true, 1, Integers(16)), &mDevice->Add(kStream, false, 1, Integers(16))})
            stream->GetFormatList().AddPhysicalFormat({Unmixable(Integers(16)), {44100, 44100}});
    }
};

constexpr unsigned char kFilling = 0xA5;

/// What a call wrote into a larger block beyond `bytes`.
struct Room {
    Room() { std::memset(mBytes, kFilling, sizeof mBytes); }
    bool IsWrittenBeyond(UInt32 bytes) const
    {
        return std::any_of(mBytes + bytes, std::end(mBytes), [](unsigned char byte) { return byte != kFilling; });
    }
    unsigned char mBytes[256];
};

std::string OnGet(const Expected& property, bool exists, UInt32 size)
{
    if (!exists) return "who?";
    if (property.mKind == kList) return "ok";
    if (property.mKind == kWhole ? size < property.mBytes : size != property.mBytes) return "!siz";
    return property.mKind == kAsked ? "!dat" : "ok";
}

std::string OnSet(const Expected& property, bool exists, UInt32 size)
{
    if (!exists) return "who?";
    if (!property.mOnSet) return "nope";
    return size == property.mBytes ? property.mOnSet : "!siz";
}

UInt32 BytesGiven(const Expected& property, UInt32 size)
{
    if (property.mKind != kList) return property.mBytes;
    return std::min(size / property.mEntryBytes * property.mEntryBytes, property.mBytes);
}

using Get = std::function<OSStatus(UInt32* size, void* data)>;

void SweepGet(const Expected& property, bool exists, const Get& get)
{
    for (UInt32 room = 0; room <= 2 * property.mBytes; ++room) {
        SCOPED_TRACE(room);
        Room block;
        UInt32 size = room;
        const std::string status = Status(get(&size, block.mBytes));
        EXPECT_EQ(status, OnGet(property, exists, room));
        const UInt32 given = status == "ok" ? BytesGiven(property, room) : 0;
        EXPECT_EQ(size, status == "ok" ? given : room);
        EXPECT_FALSE(block.IsWrittenBeyond(given));
        CFTypeRef object;
        std::memcpy(&object, block.mBytes, sizeof object);
        if (status == "ok" && property.mKind == kObject) CFRelease(object);
    }
}

void Sweep(AudioObjectID number, const Expected& property, char letter)
{
    SCOPED_TRACE(property.mCode + std::string(" ") + letter + " of " + std::to_string(number));
    DeviceRig rig;
    const auto& calls = rig.Calls();
    const AudioObjectPropertyScope scope = letter == 'g'   ? kAudioObjectPropertyScopeGlobal
                                           : letter == 'i' ? kAudioObjectPropertyScopeInput
                                           : letter == 'o' ? kAudioObjectPropertyScopeOutput
                                                           : kAudioObjectPropertyScopePlayThrough;
    const AudioObjectPropertyAddress address{Code(property.mCode), scope, 0};
    const bool exists = std::strchr(property.mScopes, letter);

    UInt32 bytes = 0;
    Boolean settable = false;
    EXPECT_EQ(calls.ObjectHasProperty(rig.Ref(), number, &address), exists);
    EXPECT_EQ(Status(calls.ObjectGetPropertyDataSize(rig.Ref(), number, &address, 0, nullptr, &bytes)),
              exists ? "ok" : "who?");
    EXPECT_EQ(Status(calls.ObjectIsPropertySettable(rig.Ref(), number, &address, &settable)), exists ? "ok" : "who?");
    EXPECT_EQ(bytes, exists ? property.mBytes : 0);
    EXPECT_EQ(settable, exists && property.mOnSet);

    SweepGet(property, exists, [&](UInt32* size, void* data) {
        return calls.ObjectGetPropertyData(rig.Ref(), number, &address, 0, nullptr, size, data);
    });
    if (number == kDevice && (letter == 'i' || letter == 'o')) {
        SweepGet(property, exists, [&](UInt32* size, void* data) {
            return calls.DeviceGetProperty(rig.Ref(), number, 0, letter == 'i', address.mSelector, size, data);
        });
    }
    for (UInt32 size = 0; size <= 2 * property.mBytes; ++size) {
        EXPECT_EQ(Status(calls.ObjectSetPropertyData(rig.Ref(), number, &address, 0, nullptr, size, Room().mBytes)),
                  OnSet(property, exists, size));
    }
}

TEST(HP_Device, EveryPropertyAnswersInEveryScopeAndWithEverySizeAsItShould)
{
    for (const Expected& property : kOfDevice)
        for (const char scope : {'g', 'i', 'o', 'p'}) Sweep(kDevice, property, scope);
}

TEST(HP_Stream, EveryPropertyAnswersInEveryScopeAndWithEverySizeAsItShould)
{
    for (const Expected& property : kOfStream)
        for (const char scope : {'g', 'i', 'o', 'p'}) Sweep(kStream, property, scope);
}

}  // namespace
