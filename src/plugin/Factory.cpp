// New_SHP_PlugIn: where the audio system enters. It decides whether this process gets a plug-in at all.
#include "platform/foundation/CFDictionary.h"
#include "platform/foundation/CFUUID.h"
#include "platform/kernel/System.h"
#include "plugin/ExclusionTable.h"
#include "plugin/SHP_PlugIn.h"
#include "plugin/settings/MainBundle.h"

#include <algorithm>

namespace {

constexpr const char* kDaemonIdentifier = "/usr/sbin/coreaudiod";

bool IsExcluded(CFStringRef identifier, CFStringRef path)
{
    return std::ranges::any_of(plugin::kExcludedPrograms, [&](const char* program) {
        const CFStringRef row = CFSTR(program);
        return CFStringCompare(identifier, row, kCFCompareCaseInsensitive) == kCFCompareEqualTo ||
               (path && CFStringCompare(path, row, 0) == kCFCompareEqualTo);
    });
}

/// F8BB1C28-BAE8-11D6-9C31-00039315CD46, a plug-in of the audio system.
CFUUIDRef PlugInType()
{
    return CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0xF8, 0xBB, 0x1C, 0x28, 0xBA, 0xE8, 0x11, 0xD6, 0x9C,
                                          0x31, 0x00, 0x03, 0x93, 0x15, 0xCD, 0x46);
}

void* MakePlugIn(CFUUIDRef type)
{
    const bool isRoot = platform::kernel::getuid() == 0 || platform::kernel::geteuid() == 0;
    const auto identifier = settings::CopyMainBundleIdentifier(), path = settings::CopyMainBundlePath();
    const bool isDaemon = identifier && identifier.Get()->Text() == kDaemonIdentifier;
    const bool isExcluded = identifier && !isDaemon && IsExcluded(identifier.Get(), path.Get());
    if (isRoot ? !isDaemon : isExcluded) return nullptr;
    if (!type || !CFEqual(type, PlugInType())) return nullptr;

    auto* plugIn = new SHP_PlugIn(type);
    plugIn->SetMode(isDaemon, isRoot);
    plugIn->Retain();
    return plugIn->GetInterface();
}

}  // namespace

/// The plug-in's interface, which the caller owns a reference of; null where this process gets none, or none of this
/// type.
extern "C" __attribute__((visibility("default"))) void* New_SHP_PlugIn(CFAllocatorRef, CFUUIDRef requestedTypeUUID)
{
    try {
        return MakePlugIn(requestedTypeUUID);
    } catch (...) {  // out of memory: the process does without
        return nullptr;
    }
}
