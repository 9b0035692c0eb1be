#include "capture/buffers/UnitCalls.h"

namespace capture {

OSStatus OpenUnit(OSType type, OSType subType, AudioUnit* unit)
{
    ComponentDescription description = DescribeUnit(type, subType);
    const Component component = FindNextComponent(nullptr, &description);
    return component ? OpenAComponent(component, unit) : kNoSuchComponent;
}

}  // namespace capture
