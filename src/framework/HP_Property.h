// HP_Property: one or more properties that an object adds to itself.
// Why: formats, and later controls and channels, are served alike by a device and by its streams.
// Start at HP_Object::AddProperty. All of it runs under the state mutex of the object that it was added to.
#pragma once

#include "platform/audio/AudioObject.h"

class HP_Property {
public:
    HP_Property() = default;
    virtual ~HP_Property() = default;
    HP_Property(const HP_Property&) = delete;
    HP_Property& operator=(const HP_Property&) = delete;

    virtual void Initialize() {}
    virtual void Teardown() {}

    /// Whether the property is there now, for an address that matches one of those implemented.
    virtual bool IsActive(const AudioObjectPropertyAddress&) const { return true; }
    virtual bool IsPropertySettable(const AudioObjectPropertyAddress&) const { return true; }
    /// In bytes.
    virtual UInt32 GetPropertyDataSize(const AudioObjectPropertyAddress&, UInt32 /*qualifierSize*/,
                                       const void* /*qualifier*/) const
    {
        return 0;
    }
    /// @param size  bytes of room at `data` on entry, bytes used on return
    /// @throws      CAException with the status
    virtual void GetPropertyData(const AudioObjectPropertyAddress&, UInt32 /*qualifierSize*/, const void* /*qualifier*/,
                                 UInt32& size, void* /*data*/) const
    {
        size = 0;
    }
    /// @param when  null: now
    /// @throws      CAException with the status
    virtual void SetPropertyData(const AudioObjectPropertyAddress&, UInt32 /*qualifierSize*/, const void* /*qualifier*/,
                                 UInt32 /*size*/, const void* /*data*/, const AudioTimeStamp* /*when*/)
    {
    }

    /// The addresses that this serves; wildcards stand for every scope or element.
    virtual UInt32 GetNumberAddressesImplemented() const { return 0; }
    /// Leaves the parts of the address alone that it does not care for.
    virtual void GetImplementedAddressByIndex(UInt32 /*index*/, AudioObjectPropertyAddress& /*address*/) const {}
};
