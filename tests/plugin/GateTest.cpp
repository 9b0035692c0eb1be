#include "platform/foundation/CFBundle.h"
#include "platform/foundation/CFDictionary.h"
#include "platform/foundation/CFUUID.h"
#include "plugin/PlugInRig.h"
#include "support/Forked.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>

namespace {

using platform::machine::MainBundle;
using support::ExpectForked;
using support::PlugInRig;

constexpr const char* kDaemon = "/usr/sbin/coreaudiod";

void* Find(const char* name)
{
    const CFBundleRef bundle = CFBundleGetBundleWithIdentifier(CFSTR("com.ostrel.audio.corvane.halplugin"));
    return bundle ? CFBundleGetFunctionPointerForName(bundle, CFSTR(name)) : nullptr;
}

uint32_t Starts()
{
    const auto* count = static_cast<std::atomic<uint32_t>*>(Find("gSHP_PlugInCount"));
    return count ? count->load() : 99;
}

enum Result { None, Client, Daemon };

}  // namespace

TEST(PlugInGate, DecidesByUserIdentifierAndPathWhoGetsAPlugIn)
{
    struct Row {
        const char* mWhat;
        uid_t mReal, mEffective;
        std::optional<MainBundle> mBundle;
        Result mResult;
    };
    const Row rows[] = {
        {"a user's program", 1000, 1000, MainBundle{"org.test.host", "/opt/host"}, Client},
        {"no main bundle", 1000, 1000, std::nullopt, Client},
        {"an identifier of the table, in other letters", 1000, 1000, MainBundle{"COM.APPLE.DOCK", "/opt/d"}, None},
        {"the last of the table", 1000, 1000, MainBundle{"com.ostrel.games.longshoal", "/opt/g"}, None},
        {"a path of the table", 1000, 1000, MainBundle{"agent", "/usr/sbin/UserEventAgent"}, None},
        {"that path in other letters", 1000, 1000, MainBundle{"agent", "/usr/sbin/usereventagent"}, Client},
        {"part of an identifier", 1000, 1000, MainBundle{"com.apple.dock.extra", "/opt/d"}, Client},
        {"the daemon as a user", 1000, 1000, MainBundle{kDaemon, "/usr/sbin/coreaudiod"}, Daemon},
        {"the daemon as root", 0, 0, MainBundle{kDaemon, "/usr/sbin/coreaudiod"}, Daemon},
        {"the daemon in other letters, as root", 0, 0, MainBundle{"/usr/sbin/CoreAudioD", "/opt/c"}, None},
        {"the daemon's other name", 1000, 1000, MainBundle{"com.apple.coreaudiod", "/opt/c"}, Client},
        {"root", 0, 0, MainBundle{"org.test.host", "/opt/host"}, None},
        {"root without a main bundle", 0, 0, std::nullopt, None},
        {"who was root", 0, 1000, MainBundle{"org.test.host", "/opt/host"}, None},
        {"who became root", 1000, 0, MainBundle{"org.test.host", "/opt/host"}, None},
        {"root and in the table", 0, 0, MainBundle{"com.apple.dock", "/opt/d"}, None},
    };
    for (const Row& row : rows) {
        ExpectForked([&] {
            PlugInRig rig;
            auto& identity = rig.mScenario.machine().GetIdentity();
            identity.mRealUser = row.mReal;
            identity.mEffectiveUser = row.mEffective;
            identity.mMainBundle = row.mBundle;
            rig.Write(true, {{"One", 1}});
            const size_t expected[] = {0, 1, 12};
            EXPECT_EQ(rig.Numbers().size(), expected[row.mResult]) << row.mWhat;
            EXPECT_EQ(Starts(), row.mResult == None ? 0u : 1u) << row.mWhat;
            const bool isDaemon = row.mBundle && row.mBundle->mIdentifier == kDaemon;
            EXPECT_EQ(rig.SystemWord(FourCC("mast")), isDaemon) << row.mWhat;
        });
    }
}

TEST(PlugInGate, TheDaemonHasTwelveDevicesWhateverTheListSaysAndHearsOfNoChange)
{
    ExpectForked([] {
        PlugInRig rig;
        rig.mScenario.machine().GetIdentity().mMainBundle = MainBundle{kDaemon, kDaemon};
        rig.Write(false, {});
        const auto devices = rig.Devices();
        ASSERT_EQ(devices.size(), 12u);
        for (size_t i = 0; i < devices.size(); ++i) {
            EXPECT_EQ(devices[i].mUID, "com.ostrel.audio.corvane.halplugin.device." + std::to_string(i));
            EXPECT_EQ(devices[i].mName, "Corvane " + std::to_string(i + 1));
        }
        rig.Tell();
        EXPECT_EQ(rig.Devices(), devices);
    });
}

TEST(PlugInGate, NothingIsMadeForAnotherTypeOfPlugIn)
{
    ExpectForked([] {
        PlugInRig rig;
        const auto make = reinterpret_cast<void* (*)(CFAllocatorRef, CFUUIDRef)>(Find("New_SHP_PlugIn"));
        ASSERT_TRUE(make);
        const CFUUIDRef other =
            CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0xF8, 0xBB, 0x1C, 0x28, 0xBA, 0xE8, 0x11, 0xD6, 0x9C,
                                           0x31, 0x00, 0x03, 0x93, 0x15, 0xCD, 0x47);
        EXPECT_EQ(make(kCFAllocatorDefault, other), nullptr);
        EXPECT_EQ(make(kCFAllocatorDefault, nullptr), nullptr);
    });
}
