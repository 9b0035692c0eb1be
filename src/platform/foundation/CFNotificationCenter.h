// CFNotificationCenter: "something changed", by name: inside this process, or to every process of the same user.
// Why: those who keep a shared file tell those who read it, without either knowing the other.
// Start at CFNotificationCenterPostNotificationWithOptions. The distributed center stands on the machine's Messenger.
#pragma once

#include "platform/foundation/CFBase.h"
#include "platform/foundation/CFRunLoop.h"

namespace cf {
class NotificationCenter;
}
using CFNotificationCenterRef = cf::NotificationCenter*;
using CFNotificationName = CFStringRef;
using CFNotificationCallback = void (*)(CFNotificationCenterRef center, void* observer, CFNotificationName name,
                                        const void* object, CFDictionaryRef userInfo);
enum CFNotificationSuspensionBehavior : CFIndex { CFNotificationSuspensionBehaviorDeliverImmediately = 4 };
constexpr CFOptionFlags kCFNotificationDeliverImmediately = 1;
constexpr CFOptionFlags kCFNotificationPostToAllSessions = 2;

/// Both live as long as the process.
CFNotificationCenterRef CFNotificationCenterGetLocalCenter();
CFNotificationCenterRef CFNotificationCenterGetDistributedCenter();

/// Calls `callback` for each notification of that name, and of that object where `object` is not null: objects are
/// strings, and compared as such. The callback runs on the run loop that is current here. Where none is, it runs on the
/// thread that posts, before the post returns, and for a post of another process on the messenger's thread. While 64
/// notifications wait for an observer's loop, the observer misses later ones.
///
/// @param name  not null
/// @thread      any that may block, as the next ones
void CFNotificationCenterAddObserver(CFNotificationCenterRef center, const void* observer,
                                     CFNotificationCallback callback, CFStringRef name, const void* object,
                                     CFNotificationSuspensionBehavior behavior);

/// After this no callback of that observer runs for that name, and none will: one that is running on another
/// thread ends first, unless this is called from inside another one of the same. Quietly nothing where it was never
/// added. Null name: all its names; null object: any.
void CFNotificationCenterRemoveObserver(CFNotificationCenterRef center, const void* observer, CFNotificationName name,
                                        const void* object);

/// Tells the observers of a name. A listener elsewhere learns the name and the object and nothing more: `userInfo`
/// stays in this process. Whoever is dead or slow costs the caller nothing, and one who missed it reads what there is
/// when he next looks. An empty object is none to them; what a message cannot hold (a zero byte, 4,096 bytes of name
/// and object and more) stays in this process.
void CFNotificationCenterPostNotificationWithOptions(CFNotificationCenterRef center, CFNotificationName name,
                                                     const void* object, CFDictionaryRef userInfo,
                                                     CFOptionFlags options);
