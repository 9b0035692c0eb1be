// ObedientPlugIn: what a test says to the plug-in of its bundle, as properties of the plug-in's own object.
#pragma once

#include "platform/audio/AudioHardwarePlugIn.h"

/// Every order has the words of an Order; an answer comes back in mObject.
struct Order {
    enum What : UInt32 {
        Create,     // makes an object of class mClass that mObject owns
        Publish,    // of owner mOwner, mObject
        Kill,       // the same
        Change,     // says that mSelector of mObject changed, in every scope that there is
        AskInside,  // what "dev#" holds, asked from inside: how many
    } mWhat;
    AudioObjectID mObject = 0, mOwner = kAudioObjectSystemObject;
    UInt32 mClass = kAudioDeviceClassID;
    AudioObjectPropertySelector mSelector = 0;
};

constexpr AudioObjectPropertySelector kOrder = FourCC("ordr");
constexpr AudioObjectPropertySelector kHeard = FourCC("hear");  // UInt32: how many listeners are there
