#include "platform/foundation/CFNotificationCenter.h"

#include "platform/foundation/DistributedCenter.h"

namespace {

std::optional<std::string> TextIfAny(const void* string)
{
    if (!string) return std::nullopt;
    return cf::ToStdString(static_cast<CFStringRef>(string));
}

}  // namespace

CFNotificationCenterRef CFNotificationCenterGetLocalCenter()
{
    static auto* const sCenter = new cf::NotificationCenter;
    return sCenter;
}

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter()
{
    static auto* const sCenter = new cf::DistributedCenter;
    return sCenter;
}

void CFNotificationCenterAddObserver(CFNotificationCenterRef center, const void* observer,
                                     CFNotificationCallback callback, CFStringRef name, const void* object,
                                     CFNotificationSuspensionBehavior)
{
    center->Add({observer, callback, cf::ToStdString(name), TextIfAny(object)});
}

void CFNotificationCenterRemoveObserver(CFNotificationCenterRef center, const void* observer, CFNotificationName name,
                                        const void* object)
{
    center->Remove(observer, TextIfAny(name), TextIfAny(object));
}

void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef center, CFNotificationName name,
                                                     const void* object, CFDictionaryRef userInfo, CFOptionFlags)
{
    using cf::Ref;
    center->Post({Ref<cf::String>::Share(name), Ref<cf::String>::Share(static_cast<CFStringRef>(object)),
                  Ref<cf::Dictionary>::Share(userInfo)});
}
