#include "framework/HP_HardwarePlugIn.h"

#include "framework/HP_SystemInfo.h"
#include "platform/foundation/CFPlugIn.h"
#include "utility/CAException.h"

HP_HardwarePlugIn::HP_HardwarePlugIn(CFUUIDRef factory)
    : HP_Object(0, kAudioPlugInClassID, this), mFactoryUUID(cf::Ref<cf::UUID>::Share(factory))
{
    CFPlugInAddInstanceForFactory(factory);
}

HP_HardwarePlugIn::~HP_HardwarePlugIn()
{
    CFPlugInRemoveInstanceForFactory(mFactoryUUID.Get());
}

void HP_HardwarePlugIn::Initialize()
{
    InitializeWithObjectID(0);
}

// Calls find the plug-in until it is destroyed.
void HP_HardwarePlugIn::Teardown() {}

void HP_HardwarePlugIn::InitializeWithObjectID(AudioObjectID objectID)
{
    HP_SystemInfo::Initialize();
    HP_Object::Initialize();
    SetObjectID(objectID);
}

UInt32 HP_HardwarePlugIn::Retain()
{
    return mRefCount.fetch_add(1, std::memory_order_relaxed) + 1;
}

UInt32 HP_HardwarePlugIn::Release()
{
    const UInt32 left = mRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) delete this;
    return left;
}

HP_HardwarePlugIn& HP_HardwarePlugIn::FromInterface(AudioHardwarePlugInRef interface)
{
    if (!interface) throw CAException(kAudioHardwareIllegalOperationError);
    return *reinterpret_cast<Reference*>(interface)->mPlugIn;
}
