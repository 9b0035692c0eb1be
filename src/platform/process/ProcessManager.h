// ProcessManager: the applications that run, one entry each: the topmost process of a group, its helpers folded in.
// Why: a name never resolves to a helper that is silent. Those without a stream count too: they run.
// Start at GetNextProcess. What is a group is said in Applications.h.
#pragma once

#include "platform/foundation/CFDictionary.h"
#include "platform/process/Folders.h"

constexpr OSStatus procNotFound = -600;
constexpr UInt32 kNoProcess = 0;
constexpr UInt32 kProcessDictionaryIncludeAllInformationMask = 0xFFFFFFFF;

/// An application in the list that the calling thread walked last. The low word is the topmost process's number.
struct ProcessSerialNumber {
    UInt32 highLongOfPSN;
    UInt32 lowLongOfPSN;
};

/// The keys of an application's dictionary: "CFBundleIdentifier" and "CFBundleName" (strings, where it has them), "pid"
/// (number), "LSBackgroundOnly", "LSUIElement" (booleans).
#define kCFBundleIdentifierKey CFSTR("CFBundleIdentifier")
#define kCFBundleNameKey CFSTR("CFBundleName")

/// The next one of the list, which is looked at anew where `process` starts at kNoProcess, and then walked as it was,
/// by the calling thread. In the order in which the topmost processes were started: of a program started twice the
/// later run comes later.
///
/// @return 0, or procNotFound with kNoProcess at the end
OSStatus GetNextProcess(ProcessSerialNumber* process);

/// What is known of an application, in a dictionary that the caller releases; null where it is gone.
CFDictionaryRef ProcessInformationCopyDictionary(const ProcessSerialNumber* process, UInt32 mask);

/// Where its executable lies. @return 0, or procNotFound where that may not be read
OSStatus GetProcessBundleLocation(const ProcessSerialNumber* process, FSRef* location);
