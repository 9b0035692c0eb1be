// CFBundle: a folder with an Info.plist around a shared library.
// Why: the tap and the plug-in are found and loaded alike, and share the one platform with their host.
#pragma once

#include "platform/foundation/CFDictionary.h"

CFTypeID CFBundleGetTypeID();
/// The bundle at a folder, or null where its Info.plist is missing, hostile (over 1 MiB, too deep, entity
/// declarations) or not a dictionary.
CFBundleRef CFBundleCreate(CFAllocatorRef allocator, const char* folder);
CFStringRef CFBundleGetIdentifier(CFBundleRef bundle);
/// A value of the Info.plist; null where there is none.
CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key);
/// Loads the bundle's library (key "CFBundleExecutable", a plain file name inside the bundle) on first use;
/// it stays loaded. Null where that fails, with one line on standard error that says why.
void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef name);
