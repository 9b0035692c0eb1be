// RunningApplications: the applications that run, as dictionaries, and how entries are found among dictionaries.
// Start at CopyLaunchedApplications. For threads that may block.
#pragma once

#include "platform/foundation/CFDictionary.h"

/// The key under which CopyLaunchedApplications puts where the application lies.
#define kCFBundlePathKey CFSTR("kCFBundlePathKey")

/// A dictionary an application, as ProcessManager.h has it, each with the path of its bundle; the caller releases the
/// array. Those whose bundle cannot be located are left out.
///
/// @param includeBackground  also those that only run in the background or show no windows
/// @param excludeSelf        of this process, where it is one of those and they are not asked for
CFArrayRef CopyLaunchedApplications(bool includeBackground, bool excludeSelf);

/// The last dictionary in the array with an equal value for the key, not retained; null for none.
CFDictionaryRef DictionaryThatContainsCFTypeForKey(CFArrayRef array, CFTypeRef value, CFStringRef key);

/// Whether the arrays are equally long and each value of `a` is in `b`. How often a value is there does not count.
bool CFArraysContainSameValues(CFArrayRef a, CFArrayRef b);
