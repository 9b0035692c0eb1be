// UnitCalls: opening an audio unit, and its properties as values.
#pragma once

#include "platform/audio/AudioUnit.h"

namespace capture {

constexpr OSStatus kNoSuchComponent = 1;

/// Names one of the system's own components.
constexpr ComponentDescription DescribeUnit(OSType type, OSType subType)
{
    return {type, subType, FourCC("appl"), 0, 0};
}

/// Opens a unit of one of the system's own components.
///
/// @param unit  closed by the caller
/// @return      0, kNoSuchComponent, or the platform's status
OSStatus OpenUnit(OSType type, OSType subType, AudioUnit* unit);

/// Reads and writes a property that is one Value.
template <class Value>
OSStatus GetUnitProperty(AudioUnit unit, UInt32 property, UInt32 scope, UInt32 element, Value* value)
{
    UInt32 size = sizeof *value;
    return AudioUnitGetProperty(unit, property, scope, element, value, &size);
}
template <class Value>
OSStatus SetUnitProperty(AudioUnit unit, UInt32 property, UInt32 scope, UInt32 element, const Value& value)
{
    return AudioUnitSetProperty(unit, property, scope, element, &value, sizeof value);
}

}  // namespace capture
