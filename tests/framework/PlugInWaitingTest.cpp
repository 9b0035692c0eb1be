// A call that waits for a device while another thread takes the device away.
#include "framework/TestObjects.h"
#include "platform/machine/simulated/Scenario.h"
#include "support/Forked.h"
#include "utility/CAPThread.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

TEST(HP_HardwarePlugIn, ACallThatWaitedForADeviceThatWentFindsNoObject)
{
    support::ExpectForked([] {
        platform::machine::simulated::Scenario scenario;
        static TestPlugIn* sRig;
        static OSStatus sStatus;
        sRig = new TestPlugIn;
        CAPThread caller(
            [](void*) -> void* {
                UInt32 size;
                const AudioObjectPropertyAddress address{FourCC("fsiz"), kAudioObjectPropertyScopeGlobal, 0};
                sStatus = sRig->Calls().ObjectGetPropertyDataSize(sRig->Ref(), 7, &address, 0, nullptr, &size);
                return nullptr;
            },
            nullptr, 31, false, false, "caller");
        {
            const HP_Object::StateScope held(*sRig->mDevice);
            caller.Start();
            scenario.runFor(1ms);  // until it waits
            EXPECT_TRUE(caller.IsRunning());
            HP_Object::SetObjectStateMutexForID(7, nullptr);
            sRig->mDevice->Teardown();
            sRig->mDevice.reset();
        }
        scenario.runFor(1ms);
        EXPECT_FALSE(caller.IsRunning());
        EXPECT_EQ(Status(sStatus), "!obj");
        delete sRig;
    });
}

}  // namespace
