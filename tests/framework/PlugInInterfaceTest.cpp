// The life of a plug-in as those see it who hold it. What its entries say: TableDriver.c.
#include "framework/TestObjects.h"

#include <gtest/gtest.h>

namespace {

TEST(HP_HardwarePlugIn, AnInterfaceThatItHasIsAReferenceMoreAndAnyOtherIsNone)
{
    TestPlugIn rig;
    const CFUUIDBytes known[] = {
        {0xE9, 0x6C, 0x3E, 0x92, 0xE7, 0x45, 0x4C, 0xB7, 0xBA, 0x91, 0xB3, 0x3C, 0x68, 0xF2, 0xF0, 0x26},
        {0x38, 0xD7, 0x8A, 0x18, 0x77, 0xA5, 0x11, 0xD8, 0xB8, 0xB8, 0x00, 0x0A, 0x95, 0x88, 0x78, 0x7E},
        {0x5D, 0x80, 0xCB, 0x6C, 0x48, 0x4F, 0x11, 0xD7, 0x85, 0x71, 0x00, 0x0A, 0x95, 0x77, 0x12, 0x82},
        {0xFA, 0xFC, 0xAF, 0xC3, 0xBA, 0xE8, 0x11, 0xD6, 0xB4, 0xA8, 0x00, 0x03, 0x93, 0x15, 0xCD, 0x46},
        {0, 0, 0, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    void* interface = nullptr;
    for (const CFUUIDBytes& bytes : known) {
        EXPECT_EQ(rig.Calls().QueryInterface(rig.Ref(), bytes, &interface), 0);
        EXPECT_EQ(interface, rig.Ref());
        EXPECT_EQ(rig.Calls().Release(rig.Ref()), 1u);
    }
    CFUUIDBytes unknown = known[0];
    unknown.byte15 = 0;
    EXPECT_EQ(rig.Calls().QueryInterface(rig.Ref(), unknown, &interface), HRESULT(0x80000004));
    EXPECT_EQ(interface, nullptr);
    EXPECT_EQ(rig.Calls().AddRef(rig.Ref()), 2u);
    EXPECT_EQ(rig.Calls().Release(rig.Ref()), 1u);

    EXPECT_EQ(rig.Calls().InitializeWithObjectID(rig.Ref(), 5), 0);
    EXPECT_EQ(HP_Object::GetObjectByID(5), rig.mPlugIn);
    EXPECT_EQ(rig.Calls().Teardown(rig.Ref()), 0);
}

}  // namespace
