#include "platform/foundation/CFBase.h"

#include "platform/foundation/CFObjects.h"

#include <cassert>

CFTypeRef CFRetain(CFTypeRef object)
{
    assert(object);
    object->mOwners.fetch_add(1, std::memory_order_relaxed);
    return object;
}

void CFRelease(CFTypeRef object)
{
    assert(object);
    const uint32_t before = object->mOwners.fetch_sub(1, std::memory_order_acq_rel);
    assert(before > 0);
    if (before == 1) delete object;
}

CFTypeID CFGetTypeID(CFTypeRef object)
{
    assert(object);
    return object->TypeID();
}

bool CFEqual(CFTypeRef a, CFTypeRef b)
{
    assert(a && b);
    return a == b || (a->TypeID() == b->TypeID() && a->IsEqual(*b));
}

CFHashCode CFHash(CFTypeRef object)
{
    assert(object);
    return object->Hash();
}

CFStringRef CFCopyDescription(CFTypeRef object)
{
    assert(object);
    return new cf::String(object->Describe());
}
